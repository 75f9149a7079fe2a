// The mount points of the tree and the folders above them. Their names compare without regard to
// letter case, unlike the names on the disk, so that each of them is served in one spelling.
//
// Thread-safety: does not change after it was made.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include <QvServices/QvServices.h>

struct TMountPoint
{
    std::string ShownName;
    bool IsMount = false;     ///< a folder of the disk is mounted here
    bool HoldsMounts = false; ///< there are mount points below
};

/// A folder of the disk that is mounted.
struct TMountedFolder
{
    std::string Id;
    std::string Path;     ///< as it was mounted
    std::string RealPath; ///< without links
};

class TMountPoints
{
public:
    explicit TMountPoints(const TResourceManager& tree);

    /// Null unless it is a mount point or above one. "" is the root of the tree.
    const TMountPoint* Find(const std::string& id) const;
    /// The names of mount points, and of folders above them, in the folder `id`.
    std::vector<std::string> NamesIn(const std::string& id) const;
    /// What is mounted, in the order of the mount table.
    const std::vector<TMountedFolder>& Folders() const { return m_folders; }

private:
    std::unordered_map<std::string, TMountPoint> m_byNormalId;
    std::vector<TMountedFolder> m_folders;
};
