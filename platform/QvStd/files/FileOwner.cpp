#include "QvStd/files/FileOwner.h"

#include <cerrno>
#include <linux/limits.h>
#include <string_view>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

namespace
{
bool CopyAttribute(int from, int to, const char* name)
{
    // The largest size that the kernel allows, so that no second call is needed for a value that
    // grows.
    std::vector<char> value(XATTR_SIZE_MAX);
    const ssize_t size = fgetxattr(from, name, value.data(), value.size());
    if (size < 0)
        return errno == ENODATA || QvMayBeLeftOut(errno);
    return fsetxattr(to, name, value.data(), static_cast<std::size_t>(size), 0) == 0 ||
           QvMayBeLeftOut(errno);
}
} // namespace

bool QvMayBeLeftOut(int error)
{
    return error == EPERM || error == EOPNOTSUPP || error == EACCES;
}

bool QvCopyAttributes(int from, int to)
{
    std::vector<char> names(XATTR_LIST_MAX);
    const ssize_t length = flistxattr(from, names.data(), names.size());
    if (length < 0)
        return QvMayBeLeftOut(errno);
    for (const char* name = names.data(); name < names.data() + length;
         name += std::string_view(name).size() + 1)
        if (!CopyAttribute(from, to, name))
            return false;
    return true;
}

int QvCopyOwner(const struct stat& from, int to, mode_t* mode)
{
    struct stat now = {};
    if (fstat(to, &now) != 0)
        return errno;
    if (from.st_uid == now.st_uid && from.st_gid == now.st_gid)
        return 0;
    if (fchown(to, from.st_uid, from.st_gid) == 0)
        return 0;
    // Only an administrator can give a file away: for other users it becomes their own.
    if (!QvMayBeLeftOut(errno))
        return errno;
    // A program would otherwise run with the rights of the copying user.
    *mode &= static_cast<mode_t>(~(S_ISUID | S_ISGID));
    if (from.st_gid == now.st_gid || fchown(to, static_cast<uid_t>(-1), from.st_gid) == 0)
        return 0;
    if (!QvMayBeLeftOut(errno))
        return errno;
    // The bits were meant for another group: the new one gets no more than all users have.
    const mode_t ofOthers = (*mode & S_IRWXO) << 3;
    *mode &= ~static_cast<mode_t>(S_IRWXG) | ofOthers;
    return 0;
}
