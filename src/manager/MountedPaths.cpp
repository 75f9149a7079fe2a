#include "manager/MountedPaths.h"

#include <algorithm>
#include <climits>
#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

#include "resid/ResId.h"

namespace
{
/// The target of a link as a path; "" when it cannot be read.
std::string TargetOf(const std::string& link)
{
    char target[PATH_MAX];
    const ssize_t length = readlink(link.c_str(), target, sizeof target);
    if (length <= 0)
        return {};
    const std::string text(target, static_cast<std::size_t>(length));
    return text.front() == '/' ? text : QvExtractResPath(link) + text;
}
} // namespace

bool TMountedPaths::Has(const std::string& path)
{
    if (path.empty())
        return false; // the node has no disk files
    if (!std::exchange(m_isFilled, true))
        for (const auto& node : m_nodes) {
            std::error_code ignored; // then the path stays relative
            const std::string folder = node->GetResourceFile(node->MountPointId());
            if (!folder.empty())
                AddWayTo(std::filesystem::absolute(folder, ignored).string());
        }
    struct stat status = {};
    // Behind a "/" a link would be followed.
    const std::string plain = path.substr(0, path.find_last_not_of('/') + 1);
    return lstat(plain.c_str(), &status) == 0 &&
           m_entries.count({status.st_dev, status.st_ino}) != 0;
}

/// Each folder and link in the path, also in the targets of links.
void TMountedPaths::AddWayTo(const std::string& path)
{
    for (std::size_t end = 0; end < path.size();) {
        end = std::min(path.find('/', end + 1), path.size());
        const std::string part = path.substr(0, end);
        struct stat status = {};
        if (lstat(part.c_str(), &status) != 0)
            return;
        const bool isNew = m_entries.insert({status.st_dev, status.st_ino}).second;
        // A link that is in the set was followed already; this ends endless chains.
        if (isNew && S_ISLNK(status.st_mode))
            AddWayTo(TargetOf(part));
    }
}
