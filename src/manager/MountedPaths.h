// The disk folders and links that no operation may remove or rename, because a mount's own folder
// is one of them or its path contains them.
//
// Thread-safety: one object belongs to one thread at a time.
#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

#include "manager/ResourceManager.h"

/// Lives for one operation: the paths are resolved once, when that is first needed. Folders and
/// links are identified by device and inode, so that another path to one is recognised.
class TMountedPaths
{
public:
    /// The nodes must outlive it.
    explicit TMountedPaths(const std::vector<var_a<TResourceManager::TMountNode*>>& nodes)
        : m_nodes(nodes)
    {
    }

    /// Whether the file, folder or link at `path` (a link itself, not its target) is a mount's own
    /// folder or is part of the path to one. False when nothing is there, it cannot be examined, or
    /// `path` is "".
    bool Has(const std::string& path);

private:
    void AddWayTo(const std::string& path);

    const std::vector<var_a<TResourceManager::TMountNode*>>& m_nodes;
    bool m_isFilled = false;
    std::set<std::pair<dev_t, ino_t>> m_entries;
};
