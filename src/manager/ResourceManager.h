/// @file
/// The virtual resource tree: mount table, resolution of ids, and every operation on resources and
/// folders.
///
/// The global ResourceManager is the one of the process; tests may have others. A typical use:
///
///     Init_QvServices();
///     ResourceManager.Init();                                       // the current profile, or
///     ResourceManager.MountFileNodeE("/Data", "/srv/data", false);  // one folder for this run
///     const auto a = ResourceManager.OpenResourceE("/Data/a", kQvOpenRead, kQvShareAll, 0);
///     if (!ResourceManager.CopyResource("/Data/a", "/Data/b", nullptr))
///         std::cerr << TResourceManager::LastFailure().text() << '\n';
///
/// Operations whose names end in E throw a TQvMessage; their plain twins and the queries answer
/// false, 0 or an empty reference, and LastFailure has the cause. Every operation throws a
/// TQvMessage for an id that is not valid ("...: Invalid resource id ..."), and for one that
/// belongs to no mount node, except where its comment says otherwise. When the user cancels, an
/// operation with a result answers false (ECANCELED); one without a result throws the TQvUserBreak
/// of the progress handler.
///
/// Thread-safety: nothing is locked. No other call may run during Init, mounting and unmounting.
/// All others may run on any threads at once, except that a listing with a mask of a folder above
/// the mount points must not run twice at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "QvServicesExport.h"
#include "QvStd/LockFile.h"
#include "QvStd/Message.h"
#include "QvStd/Progress.h"
#include "QvStd/ResourceLabel.h"
#include "QvStd/Stream.h"
#include "QvStd/Var.h"
#include "profiles/ResourceProfile.h"
#include "resid/Failure.h"
#include "resid/ResAttrib.h"

struct TQvCopyFolders;
class TMountFolders;
class TMountIndex;
class TMountedPaths;
class TQvFolderKeeper;

/// The mount table, and every operation on the tree. `progress` arguments may be null. Operations
/// on resources and folders are const: they do not change the table.
class QVSERVICES_API TResourceManager
{
public:
    /// Settings of "ResourceManager.x-ini".
    struct QVSERVICES_API SConfig
    {
        static const std::uint32_t StDirLockTimeout_Default;       ///< ms
        static const std::uint32_t StDirSyncMinInterval_Default;   ///< ms
        static const std::uint32_t StDirChangeCount2Merge_Default; ///< changes
        static const bool MountMyComputer_Default;                 ///< of a host

        std::uint32_t StDirLockTimeout; ///< ms that storage code waits for a lock or a busy file
        std::uint32_t
            StDirSyncMinInterval; ///< ms between two synchronisations of a storage directory
        std::uint32_t
            StDirChangeCount2Merge; ///< changes after which a storage directory is rewritten
        bool MountMyComputer;       ///< kept for the hosts; not used by the library
    };

    /// A node of the mount table: the interface of one kind of storage. A host can mount nodes of
    /// its own kind (MountNodeE): a zip archive, an object store.
    ///
    /// **What to write.** All pure functions. The others have an implementation here that only
    /// calls the pure ones; a node overrides one to do better (a rename instead of a copy), and
    /// IsSameResource where the comment there says so. `QvServices/QvServices.h` declares all that
    /// a node needs.
    ///
    /// **Ids** are absolute and belong to the node: after the first MountPointId().size() bytes,
    /// which may differ from the mount point in letter case, an id ends or has a "/". The rest
    /// names something in the node's storage; the node decides whether letter case matters there.
    /// Ids are valid and have no wildcards. "." and ".." may be parts of an id: the node resolves
    /// them inside its storage, so that other ids than the mount point may name the node's own
    /// folder. Ids of folders have no trailing "/", except in Find; an id with one never names a
    /// resource.
    ///
    /// **The node's own folder** always exists. It is never deleted, renamed or replaced (EBUSY, or
    /// EISDIR for an operation on resources), and has no sidecar.
    ///
    /// **Sidecars.** A resource may have one: bytes that are copied, moved and deleted with it and
    /// that no listing shows. Folders have none. The services define its content. An id that ends
    /// in kSidecarSuffix is refused, or is the sidecar of the resource named before the suffix. A
    /// new resource never gets the sidecar of an earlier resource of that name.
    ///
    /// **Answers.** A TQvResult is done; "nothing" when the resource or folder does not exist; or
    /// failed with an errno when the work was not done or the query could not be answered, never
    /// "nothing" then. It names the id that it is about. EISDIR: a folder where a resource is
    /// needed; ENOTDIR: a resource where a folder is needed (to a query, nothing exists below a
    /// resource); ENOENT: no parent folder, and none is made; EEXIST, EROFS, EACCES, ENOSPC,
    /// ENAMETOOLONG as for files; ENOTSUP: this kind of node cannot do it. A failure has changed
    /// nothing, except where the function says otherwise. Only Find throws a TQvUserBreak, and only
    /// RenameFolderE and the root's CreateLockFile throw a TQvMessage.
    ///
    /// **Progress handlers** may be null. Long work calls QvPollProgress for each entry of a
    /// listing and at least every 8 MiB of content.
    ///
    /// **Thread-safety.** All functions of a node may run on any threads at once. A stream belongs
    /// to one thread at a time and may outlive the node.
    ///
    /// No virtual destructor: nodes are only owned through var_a (make_var), which destroys the
    /// concrete class.
    class QVSERVICES_API TMountNode
    {
    public:
        /// `mountPointId` has no trailing "/"; "" for the root.
        explicit TMountNode(std::string mountPointId) : m_mountPointId(std::move(mountPointId)) {}
        TMountNode(const TMountNode&) = delete;
        TMountNode& operator=(const TMountNode&) = delete;

        /// The id at which the node is mounted, without a trailing "/"; "" for the root.
        const std::string& MountPointId() const { return m_mountPointId; }

        /// The kind: kFileNode, kRootNode, or a number of the host's own, kFirstHostNode or above.
        /// The manager only treats kRootNode specially; GetResourceType answers the number.
        virtual unsigned Type() const = 0;
        /// Whether the node has no storage of its own: true only for the root. Such a node contains
        /// folders only, and nothing is copied into it (EROFS).
        virtual bool IsPureVirtual() const = 0;
        /// Opens a resource in a mode of Stream.h, which says what must exist and what is created.
        /// The answer is a stream that may not be open: then operator bool is false and getError is
        /// the negative errno; -ENOENT: no resource, or no parent folder; -EISDIR: a folder; -EROFS
        /// or -ENOTSUP: the node cannot open in this mode; -EINVAL: no such mode. Only pure virtual
        /// nodes answer an empty reference.
        ///
        /// A mode that creates a resource deletes the sidecar of an earlier resource. With
        /// kQvOpenCreate a `sizeHint` above 0 sets the size at once, the position is 0. Share modes
        /// are enforced (-EACCES) or, where the storage has no locks, granted. What was written is
        /// visible to other calls when the stream is closed or destroyed, at the latest; after a
        /// Flush that answered true it survives a power cut. The stream derives from TQvResStream,
        /// by which its users get the id; its info name is "qvres:ID" (SetInfoName).
        virtual var_a<TQvStream*> OpenResource(const std::string& id, qvOpenMode mode,
                                               qvShareMode share, unsigned long sizeHint) = 0;
        /// Opens the sidecar of an existing resource; a mode that creates makes one. Always an open
        /// stream or an empty reference. `result` (may be null) receives done; "nothing" when the
        /// resource, or with kQvOpenRead its sidecar, does not exist; or the failure (EISDIR: a
        /// folder). The info name is "qvres:ID:meta".
        virtual var_a<TQvStream*> OpenResourceMeta(const std::string& id, qvOpenMode mode,
                                                   qvShareMode share,
                                                   TQvResult* result = nullptr) = 0;
        /// As CopyResourceMetaTo, inside this node.
        virtual TQvResult CopyResourceMeta(const std::string& src, const std::string& dst);
        /// Deletes a resource, then its sidecar. When only the sidecar cannot be deleted, the
        /// resource is deleted and the answer is that failure.
        virtual TQvResult DeleteResource(const std::string& id) = 0;
        /// As MoveResourceTo, inside this node; when only the sidecar fails, the answer is that
        /// failure.
        virtual TQvResult RenMovResource(const std::string& src, const std::string& dst,
                                         TQvProgressHandler* progress);
        /// As CopyResourceTo, inside this node; when only the sidecar fails, the answer is that
        /// failure.
        virtual TQvResult CopyResource(const std::string& src, const std::string& dst,
                                       TQvProgressHandler* progress);
        /// Creates a folder with its missing parents. Done, too, when it existed; EEXIST or ENOTDIR
        /// for a resource.
        virtual TQvResult CreateFolder(const std::string& id) = 0;
        /// Renames the folder `src` with its content: the new id is QvExtractResPath(src) +
        /// newName, resolved as any id. `newName` is not checked before: it may contain "/" and
        /// characters that no id has. An existing target (EEXIST) and one inside the folder
        /// (EINVAL) are refused. On failure `result` (may be null) receives the cause and a
        /// TQvMessage with the reason is thrown (by the nodes here "The folder cannot be renamed
        /// (error ...)").
        virtual void RenameFolderE(const std::string& src, const std::string& newName,
                                   TQvResult* result = nullptr) = 0;
        /// Deletes an empty folder (ENOTEMPTY otherwise), or a link to a folder, whose target
        /// stays.
        virtual TQvResult DeleteFolder(const std::string& id) = 0;
        /// Whether `id` exists: kResResource or kResFolder with a result that is done; kResNothing
        /// with "nothing", or with the failure when that could not be found out. With a trailing
        /// "/" only a folder exists.
        virtual TQvExistence ResourceExists(const std::string& id) const = 0;
        /// Done when the resource has a sidecar; "nothing" when it has none, does not exist, or is
        /// a folder.
        virtual TQvResult ResourceMetaExists(const std::string& id) const = 0;
        /// Fills all of `attrib`; "nothing" when `id` does not exist, EINVAL when `attrib` is null.
        /// The origin is kOriginFileNode for every node with a storage. The size of a folder is
        /// what its storage says; 0 where it says nothing. Times equal those of Find, to the
        /// millisecond; 0 where the storage has none.
        virtual TQvResult GetResourceAttr(const std::string& id, TQvResAttrib* attrib) const = 0;
        /// Appends the entries of one level of `folder` to `items`, in any order; the id of an
        /// entry is `folder` as it was given, one "/" and the name. A name contains no "/" and is
        /// not "." or ".."; one that is no valid part of an id is listed, and the manager never
        /// passes its id to the node. `mask` is matched with names as
        /// QRegularExpression::wildcardToRegularExpression says ("*", "?", "[...]"), ignoring case;
        /// an invalid mask matches nothing. A node implements these `flags`: kFindResources and
        /// kFindFolders (what is listed), kFindHidden (names with a leading ".", too),
        /// kFindAttributes (size and times, else 0) and kFindNoLink, which recursion sets: a folder
        /// that is a link counts as empty, except the node's own. The manager does the others.
        ///
        /// An item has an id without a trailing "/", kind and origin; MayHaveSidecar is false only
        /// where the node knows that there is no sidecar. Sidecars are not listed. `items` may be
        /// empty: then the search ends at the first match. Done when something was found; "nothing"
        /// when nothing matched or there is no such folder; failed when the folder could not be
        /// read completely, and `items` has what could be read.
        virtual TQvResult Find(const var_a<std::vector<TQvResFindItem>*>& items,
                               const std::string& folder, const std::string& mask, unsigned flags,
                               TQvProgressHandler* progress) const = 0;
        /// The path of the disk file or folder of `id`, whether or not it exists; "" where the
        /// storage has no disk files. The manager and its users read, write and replace this file
        /// directly, which changes the resource; its sidecar is the file of that name with
        /// kSidecarSuffix appended. So neither a temporary copy nor an archive that contains the
        /// resource is such a file.
        virtual std::string GetResourceFile(const std::string& id) const = 0;
        /// A lock on the resource's disk file, as TQvLockFile takes it, waiting up to `timeoutMs`
        /// milliseconds; operator bool is whether the lock is held. Without disk files it never is,
        /// and the call does not wait. The root throws a TQvMessage.
        virtual var_a<TQvLockFile*> CreateLockFile(const std::string& id, unsigned long timeoutMs,
                                                   bool forWriting, const std::string& owner);

        /// Whether the folder is a symbolic link to a folder: it is listed, and recursion does not
        /// enter it. Never true for the node's own folder. Here always false.
        virtual bool IsLink(const std::string& id) const;
        /// Creates one folder with the permission bits of the folder `modelId` of `model`, so that
        /// a copy is readable by no more users than its source; its owner can always change it.
        /// Here, and where one of both nodes has no permission bits, as CreateFolder.
        virtual TQvResult CreateFolderLike(const std::string& id, const TMountNode& model,
                                           const std::string& modelId);
        /// What the caller of a copy knows already.
        struct TCopyHints
        {
            /// The parent folder of the target is new: an existing target is refused (EEXIST).
            bool IsTargetNew = false;
            /// False when its folder was listed and contains no sidecar: the node need not check
            /// for one.
            bool MayHaveSidecar = true;
            /// With IsTargetNew: keeps disk folders open for the next copy; may be null. Nodes
            /// without disk files ignore it.
            TQvCopyFolders* Folders = nullptr;
        };
        /// Copies a resource with its sidecar to an id of `target`, which is this node or another
        /// one of any kind, and replaces a resource there. Content and sidecar have a result each;
        /// when the content fails or the user cancels (ECANCELED), the target stays as it was, or
        /// absent. A target's sidecar stays when the source has none. Copying a resource onto
        /// itself does nothing and is done; onto its own sidecar, or the reverse, is refused
        /// (EINVAL).
        ///
        /// Here: OpenResource of the source, ReceiveResource of the target, then the same with the
        /// sidecar. The update time is copied where the target can store it. Permission bits are
        /// not: where only one of both nodes has disk files, the target has those of the file that
        /// it replaces, or of any new file.
        virtual TQvTransfer CopyResourceTo(const std::string& src, TMountNode& target,
                                           const std::string& dst, const TCopyHints& hints,
                                           TQvProgressHandler* progress);
        /// As CopyResourceTo; then the source is deleted. It is deleted only after content and
        /// sidecar are complete and synced at the target; it stays when the sidecar failed or
        /// another process changed it meanwhile (EBUSY). Moving a resource onto itself does nothing
        /// inside one node, and is refused (EINVAL) between two that show one storage. Here: a copy
        /// and DeleteResource.
        virtual TQvTransfer MoveResourceTo(const std::string& src, TMountNode& target,
                                           const std::string& dst, TQvProgressHandler* progress);
        /// As DeleteResource for an entry of a listing that was just made: its kind need not be
        /// queried again, and without MayHaveSidecar no sidecar is deleted. `folders` keeps a disk
        /// folder open for the next call. Here: DeleteResource.
        virtual TQvResult DeleteListed(const TQvResFindItem& resource, TQvFolderKeeper& folders);
        /// Copies only the sidecar. "Nothing", with the id, when one of both resources does not
        /// exist, and when the source has no sidecar.
        virtual TQvResult CopyResourceMetaTo(const std::string& src, TMountNode& target,
                                             const std::string& dst);

        /// What a copy by streams passes to its target besides the content.
        struct TIncoming
        {
            TQvDateTime UpdateTime;   ///< of the source; none: the time of the copy
            bool HasSidecar = false;  ///< a sidecar follows: fail now if it could not be stored
            bool IsTargetNew = false; ///< an existing target is refused (EEXIST)
            bool IsSynced = false;    ///< done means that the content survives a power cut
        };
        /// Replaces the content of the resource by that of `content` from its position to its end,
        /// or creates the resource: all of it or nothing where the storage can do that, so that a
        /// failed read, a full storage, a cancelling user (ECANCELED, no exception) and a kill
        /// leave the old content or none. QvReadBlocks reads, polls and reports; when reading
        /// `content` fails, the result has an empty name, and the caller adds that of the source. A
        /// new resource does not get the sidecar of an earlier one, which is deleted; that of a
        /// replaced resource stays. Refused: a folder (EISDIR), a missing parent folder (ENOENT), a
        /// resource that may not be written.
        virtual TQvResult ReceiveResource(const std::string& id, TQvStream& content,
                                          const TIncoming& incoming,
                                          TQvProgressHandler* progress) = 0;
        /// The same for the sidecar of a resource, which must exist ("nothing" otherwise).
        /// `isSynced` as in TIncoming.
        virtual TQvResult ReceiveResourceMeta(const std::string& id, TQvStream& content,
                                              bool isSynced) = 0;
        /// Whether `id` and `otherId` of `other` name one resource. Here true for the same id in
        /// the same node, "." and ".." resolved, and for the same disk file. Override it where the
        /// node ignores letter case, or its storage can be mounted twice or has two names for one
        /// resource: a move of a resource onto itself that is not recognised deletes it.
        virtual bool IsSameResource(const std::string& id, const TMountNode& other,
                                    const std::string& otherId) const;
        /// A text that differs after each change, replacement or deletion of the resource or its
        /// sidecar; "" when the resource does not exist or that could not be found out. Here made
        /// of size, update time and whether there is a sidecar, which misses a change of the same
        /// length within a millisecond; an object store answers its version or checksum.
        virtual std::string ResourceVersion(const std::string& id) const;

    protected:
        ~TMountNode() = default;

    private:
        TQvTransfer CopyByStreams(const std::string& src, TMountNode& target,
                                  const std::string& dst, const TCopyHints& hints, bool isSynced,
                                  TQvProgressHandler* progress);

        std::string m_mountPointId;
    };
    /// A node of the table, which owns it.
    using PTMountNode = TMountNode*;

    /// Kinds of mount nodes.
    static constexpr unsigned kFileNode = 1;
    /// The folders above the mount points.
    static constexpr unsigned kRootNode = 3;
    /// The first number for kinds of the hosts.
    static constexpr unsigned kFirstHostNode = 256;

    /// What listings append to.
    using TFindItems = var_a<std::vector<TQvResFindItem>*>;

    /// What an extended copy has done, or with DryRun would do.
    struct TCopyCounts
    {
        std::uint64_t TotalBytes = 0; ///< of all sources; known before the first is copied
        std::uint64_t Folders = 0;    ///< created
        std::uint64_t Resources = 0;  ///< copied
        std::uint64_t Bytes = 0;      ///< of the resources copied
        std::uint64_t Skipped = 0;    ///< resources whose destination exists and was not replaced
    };

    /// The request to CopyResourceEx.
    struct TCopyResourceExParams
    {
        std::set<std::string> Sources; ///< folders with a trailing "/"
        std::string DestFolder;        ///< created when it is missing
        bool OverwriteDefault = false; ///< the answer when no callback is set
        /// Asked when a destination resource exists; true means overwrite. May be null.
        bool (*OverwriteCallback)(const std::string& destinationId, void* context) = nullptr;
        void* CallbackContext = nullptr; ///< passed to the callback
        std::set<std::string>* Failed =
            nullptr; ///< receives the ids that could not be copied; may be null
        TQvProgressHandler* Progress = nullptr; ///< may be null
        /// Receives why, for each of `Failed`; may be null.
        std::map<std::string, TQvFailure>* Failures = nullptr;
        TCopyCounts* Counts = nullptr; ///< may be null
        /// Changes nothing. Counts what would be copied, and reports failures that can be found
        /// beforehand.
        bool DryRun = false;
        /// Called for each folder and resource that was copied, or with DryRun would be; a folder's
        /// destination ends with a "/". May be null.
        void (*CopiedCallback)(const std::string& destinationId, void* context) = nullptr;
    };

    TResourceManager();
    ~TResourceManager();
    TResourceManager(const TResourceManager&) = delete;
    TResourceManager& operator=(const TResourceManager&) = delete;

    /// Reads the settings and the current profile, mounts its folders and the root, and registers
    /// the scheme "qvres". Each further call rebuilds everything. Returns true or throws:
    /// std::runtime_error without a configuration object, TQvMessage for a configuration that is
    /// not loaded, an unreadable settings or profile file, or a node that cannot be mounted. After
    /// a failure the settings and nodes that were already read stay in the table, and no id
    /// resolves until the next Init or mount; LastFailure has the cause (EBADMSG for a malformed
    /// file) with the id "/".
    bool Init();

    /// Registers the scheme "qvres" with the URL manager, as Init does: for hosts without a
    /// profile.
    static void RegisterURLScheme();

    /// Why the last public operation of the calling thread failed; Error is 0 when it succeeded,
    /// and when a query had an answer, even "nothing there". Of several failures the first. When a
    /// part failed that the result does not show (the sidecar of a copy between two nodes), that
    /// failure is here. Queries of the mount table alone (IsMountNode, CanMountPersistent,
    /// IsInsideMyComputer, IsValid...) do not change it.
    ///
    /// The reference is valid until the thread ends, its value until the next operation.
    static const TQvFailure& LastFailure();
    /// For services built on the tree: records why their own work failed, or with 0 that it
    /// succeeded.
    static void SetLastFailure(int error, const std::string& id);

    // Mount table and resolution

    /// The node of `id`: the one with the longest mount point that is the id or ends before a "/"
    /// of it, ignoring letter case. Null when there is none; throws then with `throwIfNone`, and
    /// always for an id that is not valid. With `skipExactMountPoint` a mount point's own id
    /// belongs to the node above. The pointer is valid until the table changes.
    PTMountNode GetNode4Id(const std::string& id, bool throwIfNone, bool forbidWildcards,
                           bool skipExactMountPoint) const;
    /// True for a valid id (without wildcards) that belongs to a node; an operation on any other id
    /// throws. LastFailure has EINVAL or ENOENT otherwise.
    bool IsReachable(const std::string& id) const;
    /// @copydoc QvIsValidResId
    static bool IsValidResId(const std::string& id, bool forbidWildcards);
    /// @copydoc QvIsValidResNamePart
    static bool IsValidResNamePart(const std::string& name, bool forbidWildcards);
    /// Whether `id` is exactly a mount point, ignoring letter case.
    bool IsMountNode(const std::string& id) const;
    /// Whether mounting can be made persistent: not with a remote profile.
    bool CanMountPersistent() const;
    /// Whether `id` belongs to a mounted node, and not to the folders above the mount points. False
    /// when nothing is mounted; throws for an id that is not valid.
    bool IsInsideMountedNodes(const std::string& id) const;
    /// Whether `id` begins with "/My Computer/", ignoring letter case; nothing need exist there.
    bool IsInsideMyComputer(const std::string& id) const;
    /// The kind of the node of `id`.
    unsigned GetResourceType(const std::string& id) const;

    /// A node for a mount of a profile; it is not added to the table.
    var_a<TMountNode*> LoadFileMountNode(const TQvResourceProfile::TNode& node) const;
    /// A node that shows the folder `path` at `id`; it is not added to the table.
    var_a<TMountNode*> LoadFileMountNode(const std::string& id, const TQvPath& path) const;
    /// A root node for the mount points that are in the table now.
    var_a<TMountNode*> LoadRootMountNode() const;
    /// Rebuilds the indexes of the table; mounting and unmounting do that themselves.
    void RefreshNodeMaps();

    /// Mounts the folder `path` at `mountPoint`, with `persistent` also in the profile file. Throws
    /// a TQvMessage with the reason. The table changes first and stays changed when the persistent
    /// part fails. That part waits up to 10 s for the lock of the VAR folder and reads the profile
    /// file again: changes by other processes are kept, also in Profile().
    void MountFileNodeE(const std::string& mountPoint, const std::string& path, bool persistent);
    /// Mounts a node of the host's own kind at its mount point, until UnmountNodeE or Init; it is
    /// never part of the profile. Throws a TQvMessage with the reason, and nothing has changed: no
    /// node or a root node, a mount point that is not valid (EINVAL) or is taken (EEXIST).
    void MountNodeE(const var_a<TMountNode*>& node);
    /// Unmounts the node, with `persistent` also in the profile file, as MountFileNodeE. Throws a
    /// TQvMessage with the reason. A profile that was loaded from its file has its mounts under
    /// their upper-cased ids, and `persistent` needs the id as the profile has it.
    void UnmountNodeE(const std::string& mountPoint, bool persistent);

    /// The mount table in its order, the root node last.
    const std::vector<var_a<TMountNode*>>& MountNodes() const { return m_mountNodes; }
    /// The settings, as Init read them.
    const SConfig& Config() const { return m_config; }
    /// The current profile, as Init read it and persistent mounts changed it.
    const TQvResourceProfile& Profile() const { return m_profile; }

    // Resources

    /// Empty, or a stream that may not be open: check its operator bool. The modes and share modes
    /// are those of Stream.h; a share lock is never waited for. With kQvOpenCreate a `sizeHint`
    /// above 0 sets the size at once, in bytes.
    var_a<TQvStream*> OpenResource(const std::string& id, qvOpenMode mode, qvShareMode share,
                                   unsigned long sizeHint) const;
    /// As OpenResource; an open stream, or throws a TQvMessage that names the id.
    var_a<TQvStream*> OpenResourceE(const std::string& id, qvOpenMode mode, qvShareMode share,
                                    unsigned long sizeHint) const;
    /// Opens the metadata sidecar; empty when the resource does not exist or the sidecar does not
    /// open.
    var_a<TQvStream*> OpenResourceMeta(const std::string& id, qvOpenMode mode,
                                       qvShareMode share) const;
    /// Copies only the sidecar; both resources must exist. False also when the source has none.
    bool CopyResourceMeta(const std::string& src, const std::string& dst) const;
    /// Deletes a resource and its sidecar; false when one of both fails.
    bool DeleteResource(const std::string& id) const;
    /// Renames or moves a resource with its sidecar and replaces the target. Between two nodes: a
    /// synced copy, then a delete. The source stays after a failure, and when another process
    /// changes it meanwhile (EBUSY). Refused (EINVAL) when both ids are one entry of a folder or
    /// one is the other's sidecar.
    bool RenMovResource(const std::string& src, const std::string& dst,
                        TQvProgressHandler* progress) const;
    /// Copies a resource with its sidecar and replaces the target; a target's sidecar stays when
    /// the source has none. After a failure the target is as it was, or absent. Not synced. When
    /// only the sidecar fails, the content stays, and the answer is false inside one node and true
    /// between two; the cause is in LastFailure and the log.
    bool CopyResource(const std::string& src, const std::string& dst,
                      TQvProgressHandler* progress) const;
    /// kResNothing (0), kResResource (1) or kResFolder (2); 0 also for an id that is not valid, and
    /// when it could not be found out: then LastFailure has the cause.
    unsigned ResourceExists(const std::string& id) const;
    /// Whether ResourceExists answers 1.
    bool IsResource(const std::string& id) const;
    /// Whether the resource has a sidecar; false, too, when that could not be found out
    /// (LastFailure).
    bool ResourceMetaExists(const std::string& id) const;
    /// False, `attrib` unchanged, when nothing is there, when that could not be found out
    /// (LastFailure), or when `attrib` is null.
    bool GetResourceAttr(const std::string& id, TQvResAttrib* attrib) const;
    /// Size and time, without a checksum, from the global manager; false unless `id` is a resource.
    static bool GetResourceLabelWeak(const std::string& id, TQvResourceLabel* label);
    /// The path of the disk file of a resource; "" when there is none. With `createIfMissing` a
    /// missing resource is created first, empty.
    std::string GetResourceFile(const std::string& id, bool createIfMissing) const;
    /// The folder of that file, with a trailing "/"; "" when `id` is no resource.
    std::string GetResourceFileFolder(const std::string& id) const;
    /// A lock on the resource's disk file (QvStd/LockFile.h), exclusive when `forWriting`; the file
    /// is created when it is missing. Waits up to `timeoutMs` milliseconds. Its operator bool is
    /// whether the lock is held.
    var_a<TQvLockFile*> CreateLockFile(const std::string& id, unsigned long timeoutMs,
                                       bool forWriting, const std::string& owner) const;

    // Folders

    /// Whether `id` is a folder; with `realOnly` the folders above the mount points do not count.
    bool IsFolder(const std::string& id, bool realOnly) const;
    /// Whether a listing finds nothing; false for a folder that cannot be read completely.
    bool IsFolderEmpty(const std::string& id) const;
    /// Creates the folder and its missing parents; true when it was there already, false (logged)
    /// when it is a resource.
    bool CreateFolder(const std::string& id) const;
    /// Renames a folder; throws a TQvMessage when `src` is no folder, is or contains a mount point,
    /// or the rename fails, which changes nothing. The new id is the parent of `src` and `newName`,
    /// which is not checked.
    void RenameFolderE(const std::string& src, const std::string& newName) const;
    /// Deletes an empty folder, with `clearFirst` after ClearFolder. A mount point is never deleted
    /// (EBUSY), though it is cleared. Of a symbolic link to a folder only the link is deleted.
    ///
    bool DeleteFolder(const std::string& id, bool clearFirst, TQvProgressHandler* progress) const;
    /// Deletes the content of the folder. After a failure it continues and answers false, also when
    /// not everything could be listed. A symbolic link to a folder is not cleared (ENOTDIR).
    ///
    bool ClearFolder(const std::string& id, TQvProgressHandler* progress) const;
    /// Appends the entries of `folder` that match `mask` to `items`; recursive listings put the
    /// deepest first and cross mount points. Links to folders are listed and not entered. What
    /// could not be read is left out: LastFailure has the first such folder, `failures` (may be
    /// null) receives all of them.
    ///
    /// `flags` are the kFind... bits of ResAttrib.h. With kFindMounts mount points, and parent
    /// folders of mount points, that are not on the disk (in any letter case) follow the folder's
    /// own entries if their names match, as folders with kOriginRootNode. A mount point replaces a
    /// disk file of its name, since the id belongs to the mount.
    void Find(const TFindItems& items, const std::string& folder, const std::string& mask,
              unsigned flags, TQvProgressHandler* progress,
              std::vector<TQvFailure>* failures = nullptr) const;

    /// Copies resources and folders into one folder, keeping their layout. True when everything was
    /// copied or skipped on purpose. After a failure it continues; `Failed` has all failures: also
    /// a folder that could not be read completely, a disk name that is no valid id, and a symbolic
    /// link to a folder below a source, which is not entered and not created. A missing source is
    /// ignored. Throws a TQvMessage when the destination is the sources' common parent.
    bool CopyResourceEx(const TCopyResourceExParams& params) const;

private:
    void Load(int* error);
    void ReadSettings(int* error);
    void LoadProfileNodes();
    void RefreshStaleMaps();
    void AppendNode(var_a<TMountNode*> node);
    void RemoveNode(std::uint32_t place);
    TMountFolders TakeRootNode();
    void AddToTable(var_a<TMountNode*> node);
    void RemoveFromTable(std::uint32_t place);
    PTMountNode ResolveNode(const std::string& id, bool forbidWildcards, bool skipExactMountPoint,
                            bool* isValid) const;
    PTMountNode NodeFor(const std::string& id) const { return GetNode4Id(id, true, true, false); }
    void CheckProfileCanBeSaved(const char* operation, const std::string& mountPoint) const;
    void ChangeProfile(
        const char* operation, const std::string& mountPoint,
        const std::function<void(std::map<std::string, TQvResourceProfile::TNode>&)>& change);
    void DoFind(const TFindItems& items, const std::string& folder, const std::string& mask,
                unsigned flags, TQvProgressHandler* progress,
                std::vector<TQvFailure>& failures) const;
    void DoFindBelow(const TFindItems& items, const TFindItems& open, const std::string& folder,
                     const std::string& mask, unsigned flags, TQvProgressHandler* progress,
                     std::vector<TQvFailure>& failures) const;
    TQvResult ListFolder(const TMountNode& node, const TFindItems& items, const std::string& folder,
                         const std::string& mask, unsigned flags,
                         TQvProgressHandler* progress) const;
    void ShowMounts(const TMountNode& node, std::vector<TQvResFindItem>& items, std::size_t first,
                    const std::string& folder, const std::string& mask, unsigned flags) const;
    TQvResult DoCreateFolder(const std::string& id) const;
    TQvResult DoClearFolder(const std::string& id, TQvProgressHandler* progress) const;
    TQvResult DoDeleteFolder(const std::string& id, bool clearFirst,
                             TQvProgressHandler* progress) const;
    TQvResult ClearFolderEntries(const std::vector<TQvResFindItem>& entries,
                                 TQvProgress& progress) const;
    TQvResult DeleteEntry(const TQvResFindItem& entry, TQvFolderKeeper& folders,
                          TMountedPaths& mounted) const;
    TQvResult RequireFolder(const std::string& id) const;
    bool HoldsMountFolder(const std::string& id, TMountedPaths& mounted) const;
    const TMountNode* NodeToAsk(const std::string& id) const;
    TQvExistence LookUp(const std::string& id) const;
    friend class TExtendedCopy;

    SConfig m_config;
    std::vector<var_a<TMountNode*>> m_mountNodes;
    std::unique_ptr<TMountIndex> m_mountIndex; ///< from mount points to m_mountNodes
    TQvResourceProfile m_profile;
    std::string m_myComputerId;
    std::string m_myComputerNormal;
    std::string m_myComputerFolder;
};

/// The one manager of the process.
QVSERVICES_API extern TResourceManager ResourceManager;
