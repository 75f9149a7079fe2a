#include "StopServer.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <spawn.h>
#include <sstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <QvStd/Descriptor.h>

#include "../qvres/Checks.h"
#include "../qvres/Failure.h"

namespace
{
/// The system writes blanks of a mount point as "\040".
std::string Unescaped(const std::string& text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isEscape = text[i] == '\\' && i + 3 < text.size();
        result +=
            isEscape ? static_cast<char>(std::stoi(text.substr(i + 1, 3), nullptr, 8)) : text[i];
        i += isEscape ? 3 : 0;
    }
    return result;
}

/// The user whose server shows a tree at `folder`. Throws TFailure when none does.
uid_t UserOfServer(const std::string& folder)
{
    constexpr char kUser[] = "user_id=";
    std::ifstream mounts("/proc/self/mounts");
    std::string user;
    for (std::string line; std::getline(mounts, line);) {
        std::istringstream fields(line);
        std::string source, mountPoint, type, options;
        fields >> source >> mountPoint >> type >> options;
        if (Unescaped(mountPoint) != folder)
            continue;
        const std::size_t at = options.find(kUser);
        user = type == "fuse.qvres" && at != std::string::npos
                   ? options.substr(at + sizeof(kUser) - 1)
                   : std::string();
    }
    if (user.empty())
        throw TFailure("nothing is served at " + Quoted(folder));
    return static_cast<uid_t>(std::stoul(user));
}

/// The process that serves; 0 when it was killed.
pid_t ServerOf(const std::string& folder)
{
    std::array<char, 32> text{};
    const ssize_t size =
        getxattr(folder.c_str(), "user.qvres.server", text.data(), text.size() - 1);
    if (size > 0)
        return static_cast<pid_t>(std::strtol(text.data(), nullptr, 10));
    if (errno == ENOTCONN)
        return 0;
    ThrowFailed("the server of " + Quoted(folder) + " does not answer", errno);
}

void FreeMountPoint(const std::string& folder)
{
    if (umount2(folder.c_str(), MNT_DETACH) == 0)
        return;
    // Users other than root need the system's helper program for that.
    std::string program = "fusermount3";
    std::string unmount = "-u";
    std::string detached = "-z";
    std::string path = folder;
    char* const arguments[] = {program.data(), unmount.data(), detached.data(), path.data(),
                               nullptr};
    pid_t child = 0;
    int status = 0;
    const int error = posix_spawnp(&child, program.c_str(), nullptr, nullptr, arguments, environ);
    if (error != 0)
        ThrowFailed("fusermount3 cannot be started", error);
    if (waitpid(child, &status, 0) != child || status != 0)
        throw TFailure(Quoted(folder) + " cannot be unmounted");
}

/// Any user can serve a folder and could name a process of another user.
void RequireUser(pid_t server, uid_t user, const std::string& folder)
{
    struct stat process = {};
    const std::string path = "/proc/" + std::to_string(server);
    if (stat(path.c_str(), &process) == 0 && process.st_uid != user)
        throw TFailure("the server of " + Quoted(folder) + " names a process of another user");
}
} // namespace

void StopServer(const std::string& givenFolder)
{
    // The absolute path, found without a request to the server, which may be dead.
    std::error_code missing;
    const std::string real = std::filesystem::canonical(givenFolder, missing).string();
    const std::string& folder = missing ? givenFolder : real;
    const uid_t user = UserOfServer(folder);
    const pid_t server = ServerOf(folder);
    if (server == 0) {
        FreeMountPoint(folder);
        return;
    }
    // Opened before it is checked: from now on the number stands for this process alone.
    const TQvDescriptor process(static_cast<int>(syscall(SYS_pidfd_open, server, 0)));
    if (!process)
        ThrowFailed("the server of " + Quoted(folder) + " cannot be found", errno);
    RequireUser(server, user, folder);
    if (syscall(SYS_pidfd_send_signal, process.Number(), SIGTERM, nullptr, 0) != 0)
        ThrowFailed("the server of " + Quoted(folder) + " cannot be stopped", errno);
    pollfd ended{process.Number(), POLLIN, 0};
    QvRetryInterrupted([&] { return poll(&ended, 1, -1); });
}
