// The disk folders that no operation may remove or rename, because a mount's own folder is one of
// them or is reached through them.
//
// Thread-safety: one object belongs to one thread at a time.
#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

#include "manager/ResourceManager.h"

/// For the time of one operation: what is at the paths is looked up once, when it is first needed.
/// Folders and links are known by device and inode, so that another path to one is recognised.
class TMountedPaths
{
public:
    /// The nodes must stay alive.
    explicit TMountedPaths(const std::vector<var_a<TResourceManager::TMountNode*>>& nodes)
        : m_nodes(nodes)
    {
    }

    /// Whether what is at `path`, itself and not what it may link to, is a mount's own folder or
    /// lies on the way to one. False when nothing is there, it cannot be looked at, or `path` is
    /// "".
    bool Has(const std::string& path);

private:
    void AddWayTo(const std::string& path);

    const std::vector<var_a<TResourceManager::TMountNode*>>& m_nodes;
    bool m_isFilled = false;
    std::set<std::pair<dev_t, ino_t>> m_entries;
};
