/// @file
/// The virtual resource tree: mount table, resolution of ids, and every operation on resources and
/// folders.
///
/// Operations whose names end in E throw a TQvMessage; their plain twins and the queries answer
/// false, 0 or an empty reference, and LastFailure has the cause. Every operation throws a
/// TQvMessage for an id that is not valid ("...: Invalid resource id ..."), and for one that no
/// mount node answers for, except where it says otherwise. A user break ends an operation: false
/// (ECANCELED) where it has a result, the passing TQvUserBreak where it has none.
///
/// Thread-safety: nothing is locked. Init, mounting and unmounting need the library for themselves;
/// everything else may run on any thread at once, except that a masked listing of a
/// folder above the mount points must not run twice at once.
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

/// The mount table, and every operation on the tree.
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
        bool MountMyComputer;       ///< kept for the hosts; nothing here consults it
    };

    /// A node of the mount table: what one kind of storage owes the manager. A host can mount nodes
    /// of its own kind (MountNodeE): a zip archive, an object store.
    ///
    /// **What to write.** All pure functions. The others have an implementation here that needs
    /// nothing but the pure ones; a node overrides it for what it can do better (a rename instead
    /// of a copy, an archive member that is moved as it is).
    ///
    /// **Ids** are absolute and were already matched to the node, letter case aside: an id is the
    /// mount point, or begins with it and a "/". They are valid ids without wildcards, letters as
    /// the caller wrote them; whether case matters behind the mount point is the node's business.
    /// "." and ".." may be parts of an id: a node resolves them and never leaves its own storage,
    /// so an id may lead to the node's own folder without being the mount point. Ids of folders
    /// come without a trailing "/" except in Find; one that has it is no resource's.
    ///
    /// **The node's own folder** is always there. It is never deleted, renamed or replaced (EBUSY,
    /// or EISDIR for an operation on resources), and has no sidecar.
    ///
    /// **Sidecars.** A resource may have one: a stream of bytes that is copied, moved and deleted
    /// with it, and that no listing shows. Folders have none. Its content belongs to the services.
    /// An id that ends in kSidecarSuffix is refused, or is the sidecar of the resource named before
    /// it. A resource that is created never gets the sidecar of an earlier one of its name.
    ///
    /// **Answers.** A TQvResult is done; "nothing" where the resource or folder that the operation
    /// is about is not there; failed with an errno where the work was not done or the question
    /// could not be answered, never "nothing" then. It names the id that it is about. EISDIR: a
    /// folder where a resource is wanted; ENOTDIR: a resource on the way; ENOENT: no parent folder,
    /// none is made; EEXIST, EROFS, EACCES, ENOSPC, ENAMETOOLONG as files have them; ENOTSUP: the
    /// kind of node cannot do that. What fails has changed nothing, except where a function says
    /// otherwise. Nothing is thrown except a TQvUserBreak by Find, and by RenameFolderE and
    /// CreateLockFile what they say.
    ///
    /// **Progress handlers** may be null. Long work polls them once an entry of a listing and at
    /// least every 8 MiB of content.
    ///
    /// **Thread-safety.** Any function may run on any thread at once with any other of the same
    /// node. A stream belongs to one thread at a time and may outlive the node.
    ///
    /// It has no virtual destructor on purpose: nodes are only owned through var_a, which knows the
    /// concrete class.
    class QVSERVICES_API TMountNode
    {
    public:
        /// Without a trailing "/"; "" for the root.
        explicit TMountNode(std::string mountPointId) : m_mountPointId(std::move(mountPointId)) {}
        TMountNode(const TMountNode&) = delete;
        TMountNode& operator=(const TMountNode&) = delete;

        /// The id at which the node is mounted, without a trailing "/"; "" for the root.
        const std::string& MountPointId() const { return m_mountPointId; }

        /// The kind: kFileNode, kRootNode, or from kFirstHostNode on a number of the host's own.
        virtual unsigned Type() const = 0;
        /// Whether the node has no storage of its own: true for the root alone. A pure virtual
        /// node holds folders only, and nothing is copied into it (EROFS).
        virtual bool IsPureVirtual() const = 0;
        /// Opens a resource in a mode of Stream.h, which says what must be there and what is made.
        /// The answer is a stream that may not be open: then operator bool is false and getError is
        /// the negative errno; -ENOENT: nothing there, or no parent folder; -EISDIR: a folder. An
        /// empty reference stands for "there are no resources here" and is for pure virtual nodes.
        ///
        /// A creating mode deletes a sidecar that is left over from an earlier resource. With mode
        /// 9 a `sizeHint` above 0 sets the size at once, the position is 0. Share modes are
        /// enforced (-EACCES) or, where the storage has no locks, granted. The stream should be a
        /// TQvResStream, by which its users find out the id.
        virtual var_a<TQvStream*> OpenResource(const std::string& id, qvOpenMode mode,
                                               qvShareMode share, unsigned long sizeHint) = 0;
        /// Opens the sidecar of a resource that is there; a creating mode makes one. Always an open
        /// stream or an empty reference. `result` (may be null) receives done, "nothing" when the
        /// resource, or in mode 10 its sidecar, is not there, or the failure (EISDIR: a folder).
        /// The info name is "qvres:ID:meta".
        virtual var_a<TQvStream*> OpenResourceMeta(const std::string& id, qvOpenMode mode,
                                                   qvShareMode share,
                                                   TQvResult* result = nullptr) = 0;
        /// As CopyResourceMetaTo, inside the node.
        virtual TQvResult CopyResourceMeta(const std::string& src, const std::string& dst);
        /// Deletes a resource, then its sidecar. When only the sidecar fails, the resource is gone
        /// and the answer is that failure.
        virtual TQvResult DeleteResource(const std::string& id) = 0;
        /// As MoveResourceTo, inside the node; a failure of the sidecar is one of the whole.
        virtual TQvResult RenMovResource(const std::string& src, const std::string& dst,
                                         TQvProgressHandler* progress);
        /// As CopyResourceTo, inside the node; a failure of the sidecar is one of the whole.
        virtual TQvResult CopyResource(const std::string& src, const std::string& dst,
                                       TQvProgressHandler* progress);
        /// A folder with its missing parents. Done, too, when it was there.
        virtual TQvResult CreateFolder(const std::string& id) = 0;
        /// Renames the folder `src` with all it holds to `newName` beside it: the new id is
        /// QvExtractResPath(src) + newName, resolved as any id. An existing target is refused
        /// (EEXIST). Throws a TQvMessage with the reason on failure, after `result` (may be null)
        /// received the cause. (The nodes here throw "The folder cannot be renamed (error ...)".)
        virtual void RenameFolderE(const std::string& src, const std::string& newName,
                                   TQvResult* result = nullptr) = 0;
        /// An empty folder (ENOTEMPTY otherwise), or a link to a folder, of which only the link
        /// goes.
        virtual TQvResult DeleteFolder(const std::string& id) = 0;
        /// What is there: kResResource or kResFolder with a result that is done, kResNothing with
        /// "nothing", or with the failure when it could not be found out. The id of a resource with
        /// a "/" behind it is nothing's.
        virtual TQvExistence ResourceExists(const std::string& id) const = 0;
        /// Done when the resource has a sidecar, "nothing" when it has none, is not there, or is a
        /// folder.
        virtual TQvResult ResourceMetaExists(const std::string& id) const = 0;
        /// Fills all of `attrib`; "nothing" when nothing is there, and EINVAL when `attrib` is
        /// null. The origin is kOriginFileNode for every node with a storage. Times are those that
        /// Find answers, to the millisecond; none (0) where the storage has none.
        virtual TQvResult GetResourceAttr(const std::string& id, TQvResAttrib* attrib) const = 0;
        /// Appends the entries of one level of `folder` to `items`, in an order of the node's own;
        /// the id of an entry is `folder`, as it was given, with one "/" and the name. `mask` is
        /// matched to names as Qt's wildcards "*", "?" and "[...]" are, without regard to case; one
        /// that is no valid mask matches nothing.
        /// Of `flags` a node heeds kFindResources and kFindFolders (what is listed), kFindHidden
        /// (without it names with a leading "." are left out), kFindAttributes (size and times are
        /// filled, else 0) and kFindNoLink, which recursion sets: a folder that is a link holds
        /// nothing then, the node's own folder excepted. The manager does the others.
        ///
        /// An item has an id without a trailing "/", kind and origin; MayHaveSidecar may be false
        /// where the node knows that there is none. Sidecars are not listed. Without a list it is a
        /// probe that ends at the first match. Done when something was found, "nothing" when
        /// nothing was or there is no such folder; failed when the folder could not be read
        /// completely, and then `items` has what could be read.
        virtual TQvResult Find(const var_a<std::vector<TQvResFindItem>*>& items,
                               const std::string& folder, const std::string& mask, unsigned flags,
                               TQvProgressHandler* progress) const = 0;
        /// The path of the disk file or folder of `id`, whether or not it is there; "" where the
        /// storage has no disk files. One that is not "" may be read, written and replaced by
        /// others than the node, and what they do to it is done to the resource: the sidecar lies
        /// beside it, named with kSidecarSuffix behind. A temporary copy is no such file.
        virtual std::string GetResourceFile(const std::string& id) const = 0;
        /// A lock on the resource's disk file, as TQvLockFile takes it; its operator bool tells
        /// whether the lock is held. Without disk files it never is, and nothing is waited for. The
        /// root throws a TQvMessage.
        virtual var_a<TQvLockFile*> CreateLockFile(const std::string& id, unsigned long timeoutMs,
                                                   bool forWriting, const std::string& owner);

        /// Whether a folder is a symbolic link to one: it is listed, and recursion must not enter
        /// it. Never true for the node's own folder, and here never at all.
        virtual bool IsLink(const std::string& id) const;
        /// One folder with the permission bits of a folder of `model`, so that a copy shows no more
        /// than its source; its owner can always work in it. Here, and where one of both has no
        /// permission bits, as CreateFolder.
        virtual TQvResult CreateFolderLike(const std::string& id, const TMountNode& model,
                                           const std::string& modelId);
        /// What the caller of a copy knows already.
        struct TCopyHints
        {
            /// The folder of the target was just made: an existing target is refused (EEXIST).
            bool IsTargetNew = false;
            /// False when its folder was listed and held no sidecar: none is looked for then.
            bool MayHaveSidecar = true;
            /// With IsTargetNew: keeps the folders open for the next copy; may be null.
            TQvCopyFolders* Folders = nullptr;
        };
        /// Copies a resource with its sidecar to an id of `target`, which may be this node or
        /// another one of any kind, replacing what is there. Content and sidecar are answered
        /// apart; a failure of the content leaves the old target and its sidecar, or none, and a
        /// user break is one (ECANCELED). A target's sidecar stays when the source has none. A
        /// resource is copied onto itself by doing nothing, and never onto its own sidecar, or the
        /// reverse (EINVAL).
        ///
        /// Here it is done by streams: OpenResource of the source, ReceiveResource of the target,
        /// then the same with the sidecar. The update time follows as far as the target can keep
        /// it. Permission bits do not: where only one of both has disk files, the target has those
        /// of the file that it replaces, or of any new one.
        virtual TQvTransfer CopyResourceTo(const std::string& src, TMountNode& target,
                                           const std::string& dst, const TCopyHints& hints,
                                           TQvProgressHandler* progress);
        /// As CopyResourceTo; the source is deleted when all of it has arrived and reached the
        /// disk, and stays when the sidecar failed or when others changed it meanwhile (EBUSY).
        /// A resource is moved onto itself by doing nothing; one that is the target by another way
        /// is refused (EINVAL). Here it is a copy and a delete.
        virtual TQvTransfer MoveResourceTo(const std::string& src, TMountNode& target,
                                           const std::string& dst, TQvProgressHandler* progress);
        /// As DeleteResource for one that a listing has shown just before: what it is, need not be
        /// asked again, and where the listing showed no sidecar none is deleted. `folders` keeps a
        /// disk folder open for the next one. Here it is DeleteResource.
        virtual TQvResult DeleteListed(const TQvResFindItem& resource, TQvFolderKeeper& folders);
        /// Copies the sidecar alone; both resources must be there, or the answer is "nothing" about
        /// the one that is not. "Nothing", too, when the source has no sidecar.
        virtual TQvResult CopyResourceMetaTo(const std::string& src, TMountNode& target,
                                             const std::string& dst);

        /// What a copy by streams hands to its target beside the content.
        struct TIncoming
        {
            TQvDateTime UpdateTime;   ///< of the source; none: the time of the copy
            bool HasSidecar = false;  ///< a sidecar follows: when it could not, nothing is changed
            bool IsTargetNew = false; ///< an existing target is refused (EEXIST)
            bool IsSynced = false;    ///< done means that the content survives a power cut
        };
        /// Replaces the resource by what `content` holds from its position on, or creates it: whole
        /// or not at all where the storage can do that, so that a failed read, a full storage, a
        /// user break (ECANCELED) and a kill leave the old content or none. A failure to read
        /// `content`, for which QvReadBlocks serves, is answered without a name. Where there was no
        /// resource, a sidecar left over from an earlier one is deleted; otherwise the sidecar
        /// stays. Refused: a folder and the node's own (EISDIR), a missing parent folder (ENOENT),
        /// what may not be written.
        virtual TQvResult ReceiveResource(const std::string& id, TQvStream& content,
                                          const TIncoming& incoming,
                                          TQvProgressHandler* progress) = 0;
        /// The same for the sidecar of a resource, which must be there ("nothing" otherwise).
        virtual TQvResult ReceiveResourceMeta(const std::string& id, TQvStream& content,
                                              bool isSynced) = 0;
        /// Whether `id` is the resource `otherId` of `other`, by this or another way. Here by the
        /// text of both ids, and by their disk files where both have them; a node whose storage can
        /// be mounted twice, or that has two names for one resource, compares what they lead to.
        virtual bool IsSameResource(const std::string& id, const TMountNode& other,
                                    const std::string& otherId) const;
        /// A text that is another one after the resource or its sidecar was written, replaced or
        /// deleted; "" when nothing is there or that could not be found out. Here made of size,
        /// update time and whether there is a sidecar, which misses a change of the same length
        /// within a millisecond; an object store answers its version or checksum.
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
    /// The first of the numbers that are left to kinds of the hosts.
    static constexpr unsigned kFirstHostNode = 256;

    /// What listings append to.
    using TFindItems = var_a<std::vector<TQvResFindItem>*>;

    /// What an extended copy has done, or would do.
    struct TCopyCounts
    {
        std::uint64_t TotalBytes = 0; ///< of all sources; known before the first is copied
        std::uint64_t Folders = 0;    ///< created
        std::uint64_t Resources = 0;  ///< copied
        std::uint64_t Bytes = 0;      ///< of the resources copied
        std::uint64_t Skipped = 0;    ///< resources whose destination is there and stays
    };

    /// What CopyResourceEx is asked to do.
    struct TCopyResourceExParams
    {
        std::set<std::string> Sources; ///< folders with a trailing "/"
        std::string DestFolder;        ///< created when it is missing
        bool OverwriteDefault = false; ///< the answer when no callback is set
        /// Asked when a destination resource exists; true means overwrite. May be null.
        bool (*OverwriteCallback)(const std::string& destinationId, void* context) = nullptr;
        void* CallbackContext = nullptr; ///< handed to the callback
        std::set<std::string>* Failed =
            nullptr; ///< receives the ids that could not be copied; may be null
        TQvProgressHandler* Progress = nullptr; ///< may be null
        /// Receives why, for each of `Failed`; may be null.
        std::map<std::string, TQvFailure>* Failures = nullptr;
        TCopyCounts* Counts = nullptr; ///< may be null
        /// Nothing is changed. What would be copied counts, and fails where that shows beforehand.
        bool DryRun = false;
        /// Called for each folder and resource that was copied, or would be; a folder's destination
        /// ends with a "/". May be null.
        void (*CopiedCallback)(const std::string& destinationId, void* context) = nullptr;
    };

    TResourceManager();
    ~TResourceManager();
    TResourceManager(const TResourceManager&) = delete;
    TResourceManager& operator=(const TResourceManager&) = delete;

    /// Reads the settings and the current profile, mounts its folders and the root, and registers
    /// the scheme "qvres". May run again: everything is rebuilt. Returns true or throws:
    /// std::runtime_error without a configuration object, TQvMessage for a configuration that is
    /// not loaded, an unreadable settings or profile file, or a node that cannot be mounted. After
    /// a failure the settings read and the nodes loaded so far stay, and no id resolves until the
    /// next Init or mount; LastFailure has the cause (EBADMSG for a malformed file) with the id
    /// "/".
    bool Init();

    /// Registers the scheme "qvres" with the URL manager, as Init does: for hosts without a
    /// profile.
    static void RegisterURLScheme();

    /// Why the last public operation of the calling thread did not do what it was asked; Error is 0
    /// when it did, and when a query had an answer, even "nothing there". Of several failures the
    /// first. An operation that is done except for a part that its result does not show (the
    /// sidecar of a copy between two nodes) has it here. Questions about the mount table alone
    /// (IsMountNode, CanMountPersistent, IsInsideMyComputer, IsValid...) leave it as it is.
    ///
    /// The reference is valid for as long as the thread runs, its value until the next operation.
    static const TQvFailure& LastFailure();
    /// For services that are built on the tree: what their own work has failed with.
    static void SetLastFailure(int error, const std::string& id);

    // Mount table and resolution

    /// The node that answers for `id`: the one with the longest mount point that is a prefix of it.
    /// Throws for an id that is not valid whatever `throwIfNone` says. With `skipExactMountPoint` a
    /// mount point's own id belongs to the node above. The pointer is valid until the table
    /// changes.
    PTMountNode GetNode4Id(const std::string& id, bool throwIfNone, bool forbidWildcards,
                           bool skipExactMountPoint) const;
    /// Whether an operation on `id` would throw for it: true for a valid id (without wildcards)
    /// that some node answers for. LastFailure has EINVAL or ENOENT otherwise.
    bool IsReachable(const std::string& id) const;
    /// @copydoc QvIsValidResId
    static bool IsValidResId(const std::string& id, bool forbidWildcards);
    /// @copydoc QvIsValidResNamePart
    static bool IsValidResNamePart(const std::string& name, bool forbidWildcards);
    /// Whether `id` is, letter case aside, exactly a mount point.
    bool IsMountNode(const std::string& id) const;
    /// Whether mounting can be made persistent: not with a remote profile.
    bool CanMountPersistent() const;
    /// Whether a mounted folder answers for `id`, and not the folders above the mount points.
    bool IsInsideMountedNodes(const std::string& id) const;
    /// Whether `id` begins with the id of this computer's own folder, letter case aside; nothing
    /// need be there.
    bool IsInsideMyComputer(const std::string& id) const;
    /// The kind of the node that answers for `id`.
    unsigned GetResourceType(const std::string& id) const;

    /// A node for a mount of a profile; it is not put into the table.
    var_a<TMountNode*> LoadFileMountNode(const TQvResourceProfile::TNode& node) const;
    /// A node that shows the folder `path` at `id`; it is not put into the table.
    var_a<TMountNode*> LoadFileMountNode(const std::string& id, const TQvPath& path) const;
    /// A root node for the mount points that are in the table now.
    var_a<TMountNode*> LoadRootMountNode() const;
    /// Makes the indexes over the table anew; mounting and unmounting do it themselves.
    void RefreshNodeMaps();

    /// Mounts the folder `path` at `mountPoint`, with `persistent` in the profile file too. Throws
    /// a TQvMessage with the reason. The table changes first and stays changed when the persistent
    /// part fails. The persistent part reads the profile file again, under the lock of the VAR
    /// folder (up to 10 s): what others changed in it meanwhile is kept, and then also in
    /// Profile().
    void MountFileNodeE(const std::string& mountPoint, const std::string& path, bool persistent);
    /// Mounts a node of the host's own kind at its mount point, until UnmountNodeE or Init; it is
    /// never part of the profile. Throws a TQvMessage with the reason, and nothing has changed: no
    /// node or a root node, a mount point that is not valid (EINVAL) or is taken (EEXIST).
    void MountNodeE(const var_a<TMountNode*>& node);
    /// The reverse. A node made persistent by an earlier start is known to the profile under its
    /// upper-cased id.
    void UnmountNodeE(const std::string& mountPoint, bool persistent);

    /// The mount table in its order, the root node last.
    const std::vector<var_a<TMountNode*>>& MountNodes() const { return m_mountNodes; }
    /// The settings, as Init read them.
    const SConfig& Config() const { return m_config; }
    /// The current profile, as Init read it and persistent mounts changed it.
    const TQvResourceProfile& Profile() const { return m_profile; }

    // Resources

    /// Empty, or a stream that may not be open: its operator bool tells. With kQvOpenCreate a
    /// `sizeHint` above 0 sets the size at once.
    var_a<TQvStream*> OpenResource(const std::string& id, qvOpenMode mode, qvShareMode share,
                                   unsigned long sizeHint) const;
    /// An open stream, or a TQvMessage that names the id.
    var_a<TQvStream*> OpenResourceE(const std::string& id, qvOpenMode mode, qvShareMode share,
                                    unsigned long sizeHint) const;
    /// The metadata sidecar; empty when the resource does not exist or the sidecar does not open.
    var_a<TQvStream*> OpenResourceMeta(const std::string& id, qvOpenMode mode,
                                       qvShareMode share) const;
    /// Copies the sidecar alone; both resources must be there.
    bool CopyResourceMeta(const std::string& src, const std::string& dst) const;
    /// Deletes a resource and its sidecar; false when either fails.
    bool DeleteResource(const std::string& id) const;
    /// Renames or moves a resource with its sidecar, replacing the target. Between two nodes it is
    /// a copy that is brought to the disk, and a delete; a failure leaves the source, and so does
    /// another process that changes it meanwhile (EBUSY). Refused (EINVAL) when both ids are one
    /// entry of a folder or one is the other's sidecar.
    bool RenMovResource(const std::string& src, const std::string& dst,
                        TQvProgressHandler* progress) const;
    /// Copies a resource with its sidecar, replacing the target; a target's sidecar stays when the
    /// source has none. A failed copy leaves the old target, or none. When only the sidecar fails,
    /// the content stays, and the answer is false inside one node and true between two; the cause
    /// is in LastFailure and the log.
    bool CopyResource(const std::string& src, const std::string& dst,
                      TQvProgressHandler* progress) const;
    /// 0 nothing, 1 resource, 2 folder; 0 for an id that is not valid, and where it could not be
    /// found out: then LastFailure has the cause.
    unsigned ResourceExists(const std::string& id) const;
    /// Whether ResourceExists answers 1.
    bool IsResource(const std::string& id) const;
    /// Whether the resource has a sidecar; false, too, when that could not be found out
    /// (LastFailure).
    bool ResourceMetaExists(const std::string& id) const;
    /// False when nothing is there, when that could not be found out (LastFailure), or when
    /// `attrib` is null.
    bool GetResourceAttr(const std::string& id, TQvResAttrib* attrib) const;
    /// Size and time, without a checksum, from the global manager; false unless `id` is a resource.
    static bool GetResourceLabelWeak(const std::string& id, TQvResourceLabel* label);
    /// The disk file of a resource; "" when there is none. With `createIfMissing` an empty one is
    /// made first.
    std::string GetResourceFile(const std::string& id, bool createIfMissing) const;
    /// The folder part of GetResourceFile; "" when `id` is no resource.
    std::string GetResourceFileFolder(const std::string& id) const;
    /// A lock on the resource's file, as TQvLockFile takes it: created when it is missing, waited
    /// for up to `timeoutMs` milliseconds. Its operator bool: whether the lock is held.
    var_a<TQvLockFile*> CreateLockFile(const std::string& id, unsigned long timeoutMs,
                                       bool forWriting, const std::string& owner) const;

    // Folders

    /// With `realOnly` the folders above the mount points do not count.
    bool IsFolder(const std::string& id, bool realOnly) const;
    /// Whether a listing finds nothing; false for a folder that cannot be read completely.
    bool IsFolderEmpty(const std::string& id) const;
    /// Creates the folder and its missing parents; true when it was there already, false (logged)
    /// when it is a resource.
    bool CreateFolder(const std::string& id) const;
    /// Renames a folder; throws when `src` is no folder, is or holds a mount point, or the rename
    /// fails. `newName` goes to the node as it stands, which puts it after the parent of `src`.
    void RenameFolderE(const std::string& src, const std::string& newName) const;
    /// Deletes a folder, with `clearFirst` with what it holds. A mount point is never deleted
    /// (EBUSY), though it is cleared. Of a symbolic link to a folder only the link goes.
    bool DeleteFolder(const std::string& id, bool clearFirst, TQvProgressHandler* progress) const;
    /// Deletes what the folder holds; goes on after a failure and is false then, also when not all
    /// of it could be listed. A symbolic link to a folder is not cleared (ENOTDIR).
    bool ClearFolder(const std::string& id, TQvProgressHandler* progress) const;
    /// Appends the entries of `folder` that match `mask` to `items`; recursive listings put the
    /// deepest first and cross mount points. Links to folders are listed and not entered. What
    /// could not be read is left out: LastFailure has the first such folder, `failures` (may be
    /// null) receives all of them.
    ///
    /// `flags` are the kFind... bits of ResAttrib.h. With kFindMounts the tree is listed as ids
    /// resolve: a mount point, or a folder on the way to one, that the disk does not show (in any
    /// letter case) comes behind the folder's own entries if its name matches, as a folder with
    /// the root's marks; a mount point takes the place of a disk file of its name, which no id
    /// leads to.
    void Find(const TFindItems& items, const std::string& folder, const std::string& mask,
              unsigned flags, TQvProgressHandler* progress,
              std::vector<TQvFailure>* failures = nullptr) const;

    /// Copies resources and folders into one folder, keeping their layout. True when everything was
    /// copied or skipped on purpose; what failed is in `Failed`: also a folder that could not be
    /// read completely, a disk name that is no valid id, and a symbolic link to a folder found
    /// below a source, which is not entered and of which nothing is created. Throws when the
    /// destination is the sources' common parent.
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
