#include "Server.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <syslog.h>
#include <unistd.h>

#include <QvStd/Descriptor.h>

#include "../qvres/Checks.h"
#include "../qvres/Failure.h"
#include "Callbacks.h"
#include "ParallelLookups.h"
#include "StopServer.h"
#include "Workers.h"

namespace
{
std::string g_log; ///< messages of libfuse until the tree is served

void Remember(fuse_log_level level, const char* format, va_list arguments)
{
    if (level > FUSE_LOG_WARNING)
        return;
    std::array<char, 512> line{};
    std::vsnprintf(line.data(), line.size(), format, arguments);
    g_log = line.data();
    while (!g_log.empty() && g_log.back() == '\n')
        g_log.pop_back();
}

struct TEndSession
{
    void operator()(fuse_session* session) const { fuse_session_destroy(session); }
};
using TSessionPointer = std::unique_ptr<fuse_session, TEndSession>;

[[noreturn]] void ThrowNotServed(const TServeOptions& options)
{
    throw TFailure("the tree cannot be served at " + Quoted(options.Folder) +
                   (g_log.empty() ? std::string() : ": " + g_log));
}

/// Once the tree is served there is no terminal for messages.
void Report(fuse_log_level level, const char* format, va_list arguments)
{
    if (level <= FUSE_LOG_WARNING)
        vsyslog(LOG_WARNING, format, arguments);
}

bool IsInside(const std::filesystem::path& path, const std::filesystem::path& folder)
{
    const std::filesystem::path way = path.lexically_relative(folder);
    return !way.empty() && *way.begin() != "..";
}

/// A server that asked itself for its own files would wait for itself.
void RequireOutside(const TServeOptions& options)
{
    namespace fs = std::filesystem;
    const fs::path folder = fs::canonical(options.Folder);
    for (const auto& node : ResourceManager.MountNodes()) {
        if (node->IsPureVirtual())
            continue;
        std::error_code missing;
        const fs::path mounted =
            fs::canonical(node->GetResourceFile(node->MountPointId()), missing);
        if (missing)
            continue;
        if (IsInside(folder, mounted))
            throw TFailure("the folder " + Quoted(options.Folder) + " lies in " +
                           Quoted(mounted.string()) + ", which is part of the tree");
        if (IsInside(mounted, folder))
            throw TFailure("the folder " + Quoted(options.Folder) + " would hide " +
                           Quoted(mounted.string()) + ", which is part of the tree");
    }
}

void RequireFolderToServeAt(const TServeOptions& options)
{
    struct stat status = {};
    // The kernel caches attributes, but not the free space, so this asks the server.
    struct statvfs space = {};
    if (statvfs(options.Folder.c_str(), &space) != 0 && errno == ENOTCONN)
        throw TFailure("a server that was killed has left " + Quoted(options.Folder) +
                       "; run \"qvres serve --stop " + options.Folder + "\" first");
    if (stat(options.Folder.c_str(), &status) != 0)
        ThrowFailed("the folder " + Quoted(options.Folder) + " cannot be accessed", errno);
    if (!S_ISDIR(status.st_mode))
        throw TFailure(Quoted(options.Folder) + " is not a folder");
    if (IsServed(std::filesystem::canonical(options.Folder).string()))
        throw TFailure("a tree is already served at " + Quoted(options.Folder));
    RequireOutside(options);
}

std::string RootId(const TServeOptions& options)
{
    RequireFolder(ResourceManager, options.Id);
    return options.Id == "/" ? std::string() : QvExcludeTrailingSlash(options.Id);
}

TSessionPointer MakeSession(const TServeOptions& options, TServed& served)
{
    const std::string mountOptions = std::string("default_permissions,fsname=qvres,subtype=qvres") +
                                     (options.AllowOther ? ",allow_other" : "") +
                                     (options.ReadOnly ? ",ro" : "");
    fuse_args arguments = FUSE_ARGS_INIT(0, nullptr);
    fuse_opt_add_arg(&arguments, "qvres");
    fuse_opt_add_arg(&arguments, "-o");
    fuse_opt_add_arg(&arguments, mountOptions.c_str());
    TSessionPointer session(
        fuse_session_new(&arguments, &ServeCallbacks(), sizeof(fuse_lowlevel_ops), &served));
    fuse_opt_free_args(&arguments);
    return session;
}

/// Each open file of a client is one here.
void AllowManyFiles()
{
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

/// Sends here what shared mappings have changed. Reports the errors of what was sent before.
int WriteMappingsBack(const std::string& folder)
{
    const TQvDescriptor view(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return view && syncfs(view.Number()) == 0 ? 0 : errno;
}

void CloseAtTheEnd(const TServeOptions& options, TFileSystem& files, int settled)
{
    const int closed = files.CloseAll();
    const int error = settled != 0 ? settled : closed;
    if (error == 0)
        return;
    const std::string text = "what was written below " + Quoted(options.Folder) +
                             " could not be brought to the disk: " + QvErrorText(error);
    // The terminal is gone.
    if (!options.Foreground)
        syslog(LOG_ERR, "qvres: %s", text.c_str());
    throw TFailure(text);
}
} // namespace

void Serve(const TServeOptions& options)
{
    fuse_set_log_func(&Remember);
    RequireFolderToServeAt(options);
    TServed served{TFileSystem(RootId(options)), options.AttrTimeout};
    const TSessionPointer session = MakeSession(options, served);
    if (!session)
        ThrowNotServed(options);
    TWorkers workers(session.get());
    if (fuse_session_mount(session.get(), options.Folder.c_str()) != 0)
        ThrowNotServed(options);
    if (!AllowParallelLookups(session.get())) {
        const int error = errno;
        fuse_session_unmount(session.get());
        ThrowFailed("the tree cannot be served at " + Quoted(options.Folder), error);
    }
    fuse_set_log_func(&Report);
    AllowManyFiles();
    // New files are accessible to their owner only until they have the requested bits.
    umask(077);
    if (fuse_daemonize(options.Foreground ? 1 : 0) != 0) {
        fuse_session_unmount(session.get());
        ThrowNotServed(options);
    }
    int settled = 0;
    const int error =
        workers.Run([folder = options.Folder] { return WriteMappingsBack(folder); }, &settled);
    fuse_session_unmount(session.get());
    CloseAtTheEnd(options, served.Files, settled);
    if (error != 0)
        throw TFailure("serving " + Quoted(options.Folder) + " has ended: " + QvErrorText(error));
}
