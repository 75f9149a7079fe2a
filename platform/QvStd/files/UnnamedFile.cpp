#include "QvStd/files/UnnamedFile.h"

#include <atomic>
#include <cerrno>
#include <unistd.h>

#include "QvStd/Descriptor.h"

int QvLinkUnnamed(int file, const char* name, int folder)
{
    // The direct way, which older kernels allow administrators only.
    static std::atomic<bool> isDirect{true};
    if (isDirect) {
        if (linkat(file, "", folder, name, AT_EMPTY_PATH) == 0)
            return 0;
        // ENOENT is how the kernel refuses it; any other reason would also refuse the second way.
        if (errno != ENOENT)
            return -1;
    }
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    const int linked = linkat(AT_FDCWD, path.c_str(), folder, name, AT_SYMLINK_FOLLOW);
    if (linked == 0)
        isDirect = false;
    return linked;
}

int QvOpenUnnamed(const std::string& path, mode_t mode, int folder)
{
    // Asked first, since a file that can get no name would be lost with all its content.
    static const bool kCanBeNamed = access("/proc/self/fd", X_OK) == 0;
    if (!kCanBeNamed) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return QvRetryInterrupted([&] {
        return openat(folder, path.empty() ? "." : path.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC,
                      mode);
    });
}

bool QvLacksUnnamedFiles(int error)
{
    // EISDIR: a kernel that does not know O_TMPFILE opens the folder for writing instead.
    return error == EOPNOTSUPP || error == EISDIR || error == EINVAL;
}
