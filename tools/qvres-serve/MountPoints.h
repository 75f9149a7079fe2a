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

class TMountPoints
{
public:
    explicit TMountPoints(const TResourceManager& tree);

    /// Null unless it is a mount point or above one. "" is the root of the tree.
    const TMountPoint* Find(const std::string& id) const;
    /// The folders of the disk that are mounted, in the order of the mount table.
    const std::vector<std::string>& Folders() const { return m_folders; }

private:
    std::unordered_map<std::string, TMountPoint> m_byNormalId;
    std::vector<std::string> m_folders;
};
