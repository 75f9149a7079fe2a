#include "StopServer.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <poll.h>
#include <spawn.h>
#include <sstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <thread>
#include <unistd.h>

#include <QvStd/Descriptor.h>

#include "../qvres/Checks.h"
#include "../qvres/Failure.h"

namespace
{
/// Longer than a server takes to write back and close what is open.
constexpr std::chrono::seconds kLimit{20};
/// Of a question that needs no disk.
constexpr std::chrono::seconds kAnswerLimit{10};

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

/// What is mounted at a folder, as the system lists it without asking the server.
struct TServedMount
{
    std::string User;       ///< "" when no tree is served there
    std::string Connection; ///< the kernel's number of it
};

TServedMount FindServed(const std::string& folder)
{
    constexpr char kUser[] = "user_id=";
    std::ifstream mounts("/proc/self/mountinfo");
    TServedMount found;
    for (std::string line; std::getline(mounts, line);) {
        std::istringstream fields(line);
        std::string id, parent, device, root, mountPoint, field, type, source, options;
        fields >> id >> parent >> device >> root >> mountPoint;
        while (fields >> field && field != "-") {
        }
        fields >> type >> source >> options;
        if (Unescaped(mountPoint) != folder)
            continue;
        const std::size_t at = options.find(kUser);
        found = {};
        if (type == "fuse.qvres" && at != std::string::npos)
            found = {options.substr(at + sizeof(kUser) - 1), device.substr(device.find(':') + 1)};
    }
    return found;
}

/// A folder as the system lists it. A server that hangs is asked nothing: its folder is looked at
/// only when it may be a link to one.
std::string SystemPath(const std::string& given)
{
    namespace fs = std::filesystem;
    fs::path path = fs::path(given).lexically_normal();
    if (!path.has_filename())
        path = path.parent_path();
    std::error_code missing;
    const fs::path parent = fs::canonical(path.parent_path(), missing);
    const std::string real = missing ? path.string() : (parent / path.filename()).string();
    if (!FindServed(real).User.empty())
        return real;
    const fs::path whole = fs::canonical(path, missing);
    return missing ? given : whole.string();
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

/// Ends what waits for a server that does not answer any more. False where that is not allowed.
bool Abort(const TServedMount& served)
{
    std::ofstream abort("/sys/fs/fuse/connections/" + served.Connection + "/abort");
    abort << "1";
    abort.close();
    return !abort.fail();
}

/// Frees the folder of a server that hangs. Always throws: what was written last may be lost.
[[noreturn]] void EndHangingServer(const std::string& folder, const TServedMount& served)
{
    const bool isAborted = Abort(served);
    FreeMountPoint(folder);
    throw TFailure("the server of " + Quoted(folder) +
                   " did not end in time; the folder was freed" +
                   (isAborted ? " and the server cut off" : ", the server may still run"));
}

/// The process that serves; 0 when it was killed, -1 when it does not answer in time.
pid_t ServerOf(const std::string& folder)
{
    struct TAnswer
    {
        std::array<char, 32> Text{};
        ssize_t Size = 0;
        int Error = 0;
    };
    // The question cannot be interrupted, so that another thread asks it.
    const auto asked = std::make_shared<std::promise<TAnswer>>();
    std::future<TAnswer> future = asked->get_future();
    std::thread([asked, folder] {
        TAnswer answer;
        answer.Size = getxattr(folder.c_str(), "user.qvres.server", answer.Text.data(),
                               answer.Text.size() - 1);
        answer.Error = errno;
        asked->set_value(answer);
    }).detach();
    if (future.wait_for(kAnswerLimit) != std::future_status::ready)
        return -1;
    const TAnswer answer = future.get();
    if (answer.Size > 0)
        return static_cast<pid_t>(std::strtol(answer.Text.data(), nullptr, 10));
    if (answer.Error == ENOTCONN)
        return 0;
    ThrowFailed("the server of " + Quoted(folder) + " does not answer", answer.Error);
}

/// Any user can serve a folder, and could name another user's process.
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
    const std::string folder = SystemPath(givenFolder);
    const TServedMount served = FindServed(folder);
    if (served.User.empty())
        throw TFailure("nothing is served at " + Quoted(folder));
    const auto user = static_cast<uid_t>(std::stoul(served.User));
    const pid_t server = ServerOf(folder);
    if (server < 0)
        EndHangingServer(folder, served);
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
    constexpr auto kMilliseconds = std::chrono::milliseconds(kLimit).count();
    const int count =
        QvRetryInterrupted([&] { return poll(&ended, 1, static_cast<int>(kMilliseconds)); });
    if (count == 0)
        EndHangingServer(folder, served);
}

bool IsServed(const std::string& folder)
{
    return !FindServed(folder).User.empty();
}
