#include "QvStd/FileChange.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QvStd/Descriptor.h"
#include "QvStd/FreshFile.h"
#include "QvStd/Message.h"
#include "QvStd/NewFile.h"
#include "QvStd/files/StaleRetry.h"

namespace
{
/// A file's content, and which file it was.
struct TFound
{
    std::optional<std::string> Content;
    struct stat Status = {};
};

/// 0 or an errno.
int ReadToEnd(const TQvFreshFile& file, std::string* content)
{
    // On the stack, since most settings are smaller.
    char block[16384];
    for (;;) {
        const ssize_t count = file.ReadAt(content->size(), block, sizeof block);
        if (count < 0)
            return errno;
        if (count == 0)
            return 0;
        content->append(block, static_cast<std::size_t>(count));
    }
}

/// 0, also when there is no file, or an errno.
int Find(const std::string& path, TFound* found)
{
    TQvFreshFile file;
    const int error = file.Open(path, O_RDONLY, &found->Status);
    // Another machine has just replaced the file: the next attempt opens the new one.
    if (QvIsStale(path, error))
        return ESTALE;
    if (error != 0)
        return error == ENOENT ? 0 : error;
    return ReadToEnd(file, &found->Content.emplace());
}

bool IsStillThere(const std::string& path, const TFound& found)
{
    struct stat now = {};
    if (stat(path.c_str(), &now) != 0)
        return errno == ENOENT && !found.Content;
    return found.Content && QvIsSameInode(now, found.Status);
}

TQvResult Replace(const std::string& path, const TFound& found, const std::string& content)
{
    TQvNewFile::TOptions options;
    options.Synced = true;
    // The caller has the lock, and its own share lock would refuse this open.
    options.IsLockedByCaller = true;
    TQvNewFile file;
    TQvResult result = file.Open(path, options);
    // Compared after Open, which has refreshed the name.
    if (result && !IsStillThere(path, found))
        return TQvResult::Failed(ESTALE, path);
    if (result)
        result = file.Write(content.data(), content.size());
    return result ? file.Publish() : result;
}

TQvFileChange TryChange(const std::string& path, const TQvContentChange& change)
{
    TFound found;
    if (const int error = Find(path, &found))
        return {TQvResult::Failed(error, path), {}};
    const std::string content = change(found.Content);
    // Not written again: the time of the file stays, and a file that may only be read is no
    // failure.
    if (found.Content == content)
        return {};
    return {{}, Replace(path, found, content)};
}
} // namespace

bool QvIsStale(const std::string& path, int error)
{
    struct stat status = {};
    // Some clients report the file as missing while their caches still list it.
    return error == ESTALE || (error == ENOENT && stat(path.c_str(), &status) == 0);
}

TQvFileChange QvChangeFile(const std::string& path, const TQvContentChange& change)
{
    for (const TStaleRetry retry;;) {
        TQvFileChange done = TryChange(path, change);
        const bool isStale = done.Reading.Error() == ESTALE || done.Writing.Error() == ESTALE;
        // The change starts again from the new content: what the other one wrote is kept.
        if (!isStale || !retry.Wait())
            return done;
    }
}

void QvChangeFileE(const TQvPath& file, const TQvContentChange& change)
{
    QvRequireChangedE(file, QvChangeFile(file.toSysStr(), change));
}

void QvRequireChangedE(const TQvPath& file, const TQvFileChange& done)
{
    if (!done.Reading)
        throw QvMsg_helper("Err_ReadFile_name")
            << file.toSysStr() << QvErrorText(done.Reading.Error());
    if (!done.Writing)
        throw QvMsg_helper("Err_XIniWrite_name")
            << file.toSysStr() << QvErrorText(done.Writing.Error()) + ".";
}
