// The library as one call of qvres uses it: which VAR folder, which further mounts, start and stop.
//
// Thread-safety: belongs to one thread.
#pragma once

#include <string>
#include <vector>

#include <QvServices/QvServices.h>
#include <QvStd/Result.h>

class TSession
{
public:
    std::string VarFolder;           ///< of --var; "" when it was not given
    std::vector<std::string> Mounts; ///< of --mount, each as ID=DIR

    TSession() = default;
    ~TSession();
    TSession(const TSession&) = delete;
    TSession& operator=(const TSession&) = delete;

    /// The manager with everything mounted; started on the first call. Throws TFailure without a
    /// usable VAR folder, unless there is a --mount.
    TResourceManager& Tree();
    /// The same for commands that need a profile: a --mount is not enough.
    TResourceManager& ProfileTree();
    /// The same for commands that change the profile.
    TResourceManager& PersistentTree();

    /// For commands that work on the VAR folder itself, instead of all of the above. Without
    /// `withDefaultFolder` the configuration may answer that there is none.
    void StartConfiguration(bool withDefaultFolder);
    /// Throws TFailure unless the VAR folder is set up.
    void RequireSetUp() const;
    /// As the started configuration has it; empty when there is none.
    static TQvPath VarFolderInUse();
    /// Why there may be no VAR folder at all, and what would help.
    static std::string NoVarFolderHint();

    /// What is wrong with an ID=DIR; "" when nothing is.
    static std::string CheckMountOption(const std::string& option);
    /// What is wrong with a mount point that has no trailing "/"; "" when nothing is.
    static std::string CheckMountPoint(const std::string& id);
    /// `folder` as seen from the root of the disk.
    static std::string Absolute(const std::string& folder);
    /// The same; throws TFailure when that cannot be mounted. `id` is for the error alone.
    static std::string RequireDiskFolder(const std::string& folder, const std::string& id);
    /// Mounts `folder`, which may be relative to the current folder.
    static void Mount(const std::string& id, const std::string& folder, bool persistent);

private:
    [[noreturn]] void ThrowRegistryUnread() const;
    void Start();
    std::string SetUpHint() const;

    bool m_initialized = false;
    bool m_started = false;
    TQvResult m_registryRead; ///< of the registry, which names the VAR folder
    bool m_hasProfile = false;
};
