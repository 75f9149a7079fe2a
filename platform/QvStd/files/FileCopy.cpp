// Calls on whole files: copying, moving, replacing and reading them.
#include "QvStd/Files.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <new>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

#include "QvStd/Descriptor.h"
#include "QvStd/Message.h"
#include "QvStd/NewFile.h"
#include "QvStd/files/ContentCopy.h"
#include "QvStd/files/FileNames.h"

namespace
{
constexpr mode_t kPermissionBits = 0777;
constexpr mode_t kModeBits = 07777;
/// Up to this size reading for nothing costs less than checking the target first.
constexpr off_t kSmall = off_t{256} * 1024;

/// Sets errno, too, for callers that use the result as a bool.
TQvResult Answer(TQvResult result)
{
    if (!result)
        errno = result.Error();
    return result;
}

TQvResult AnswerError(int error, const std::string& path)
{
    errno = error;
    return TQvResult::FromErrno(path);
}

enum class TPurpose
{
    Copy,
    CopyToNew, ///< into a folder that was just made
    Move       ///< the copy is about to be the only one
};

int OpenSource(const std::string& path, TQvCopyFolders* folders, TQvDescriptor* file,
               struct stat* status)
{
    const TQvPlace place = folders != nullptr ? folders->Source.Locate(path) : TQvPlace();
    if (place.Folder != AT_FDCWD &&
        QvOpenRegular(place.Name, O_RDONLY, file, status, place.Folder) == 0)
        return 0;
    // When that fails in the open folder, try the path: there may be another folder now.
    return QvOpenRegular(path, O_RDONLY, file, status);
}

TQvResult CopyOpened(int input, const struct stat& source, const std::string& from,
                     const std::string& to, const TQvNewFile::TOptions& options,
                     TQvProgressHandler* progress)
{
    TQvNewFile output;
    if (TQvResult ready = output.Open(to, options); !ready)
        return Answer(ready);
    TQvCopyReport report(progress, static_cast<std::uint64_t>(source.st_size));
    if (!output.IsSameFile()) {
        const TQvCopyError error = QvCopyContent(input, source, output.Descriptor(), report);
        if (error.Reading != 0)
            return AnswerError(error.Reading, from);
        if (error.Writing != 0)
            return AnswerError(error.Writing, to);
    }
    // Before the publication: a user who cancels at the last report still keeps the old target.
    report.Whole();
    return output.IsSameFile() ? TQvResult::Done() : Answer(output.Publish());
}

/// `opened` (may be null) receives the state of the source before it is read.
TQvResult CopyFile(const std::string& from, const std::string& to, bool failIfExists,
                   TPurpose purpose, TQvProgressHandler* progress,
                   TQvCopyFolders* folders = nullptr, struct stat* opened = nullptr)
{
    struct stat source = {};
    TQvDescriptor input;
    if (const int error = OpenSource(from, folders, &input, &source))
        return AnswerError(error, from);
    if (opened != nullptr)
        *opened = source;
    TQvNewFile::TOptions options;
    options.FailIfExists = failIfExists;
    // A large source is read only when the target can be replaced.
    // A file of the kernel says 0, and may have its content only once.
    const bool isSmall = source.st_size > 0 && source.st_size <= kSmall &&
                         purpose == TPurpose::Copy && !failIfExists;
    options.ExpectsNone = isSmall || purpose == TPurpose::CopyToNew;
    options.Synced = purpose == TPurpose::Move;
    options.Permissions =
        source.st_mode & (purpose == TPurpose::Move ? kModeBits : kPermissionBits);
    options.UpdateTime = source.st_mtim;
    options.AttributesOf = purpose == TPurpose::Move ? input.Number() : -1;
    // Two names of one file: nothing is copied, and both names stay.
    options.NotOnto = input.Number();
    options.Folder = folders != nullptr ? &folders->Target : nullptr;
    TQvResult copied = CopyOpened(input.Number(), source, from, to, options, progress);
    // Whatever the reason: with a look at the target first, the copy succeeds or reports the right
    // one. The target may be a link to another folder, or the source itself on a full disk.
    if (isSmall && !copied) {
        options.ExpectsNone = false;
        copied = CopyOpened(input.Number(), source, from, to, options, progress);
    }
    return copied;
}

TQvResult CopyUnlessBroken(const std::string& from, const std::string& to, bool failIfExists,
                           TPurpose purpose, TQvProgressHandler* progress,
                           TQvCopyFolders* folders = nullptr, struct stat* opened = nullptr)
{
    try {
        return CopyFile(from, to, failIfExists, purpose, progress, folders, opened);
    } catch (const TQvUserBreak&) {
        return AnswerError(ECANCELED, from);
    }
}

bool ReadToEnd(int file, std::uint64_t size, std::string* content)
{
    // One byte more than expected shows the end of the file in the same call.
    content->resize(static_cast<std::size_t>(std::max<std::uint64_t>(size + 1, 4096)));
    std::size_t done = 0;
    for (;;) {
        const std::size_t room = content->size() - done;
        const ssize_t count =
            QvRetryInterrupted([&] { return read(file, content->data() + done, room); });
        if (count < 0)
            return false;
        done += static_cast<std::size_t>(count);
        if (count == 0 || (static_cast<std::size_t>(count) < room && done == size))
            break;
        if (done == content->size())
            content->resize(done * 2);
    }
    content->resize(done);
    return true;
}

/// After a successful rename: two hard links of one file both still exist then.
TQvResult FinishRename(const std::string& from, const std::string& to)
{
    struct stat status = {};
    if (lstat(from.c_str(), &status) != 0)
        return TQvResult::Done();
    switch (QvCompareFiles(from, to)) {
    case TQvSameness::OneEntry:
        return AnswerError(EINVAL, to);
    case TQvSameness::HardLinks:
        return unlink(from.c_str()) == 0 ? TQvResult::Done() : TQvResult::FromErrno(from);
    case TQvSameness::OtherCase:
    case TQvSameness::Different:
        break; // renamed; another process has written a new one
    }
    return TQvResult::Done();
}

TQvResult MoveAcrossDevices(const std::string& from, const std::string& to, bool overwrite,
                            TQvProgressHandler* progress)
{
    // Two mounts of one file system are two devices to a rename.
    const TQvSameness sameness = QvCompareFiles(from, to);
    if (sameness == TQvSameness::OneEntry || sameness == TQvSameness::OtherCase)
        return AnswerError(overwrite ? EINVAL : EEXIST, to);
    struct stat copied = {};
    TQvResult done =
        CopyUnlessBroken(from, to, !overwrite, TPurpose::Move, progress, nullptr, &copied);
    if (done)
        // What was written to the source during the copy would be lost with it.
        done = QvRequireUnchanged(from, copied);
    return done && unlink(from.c_str()) != 0 ? TQvResult::FromErrno(from) : done;
}
} // namespace

TQvResult QvCopyFile(const std::string& from, const std::string& to, bool failIfExists)
{
    return CopyFile(from, to, failIfExists, TPurpose::Copy, nullptr);
}

TQvResult QvCopyFileEx(const std::string& from, const std::string& to, bool failIfExists,
                       TQvProgressHandler* progress)
{
    return CopyUnlessBroken(from, to, failIfExists, TPurpose::Copy, progress);
}

TQvResult QvCopyFileToNew(const std::string& from, const std::string& to,
                          TQvProgressHandler* progress, TQvCopyFolders* folders)
{
    return CopyUnlessBroken(from, to, true, TPurpose::CopyToNew, progress, folders);
}

TQvResult QvCopyFileToMove(const std::string& from, const std::string& to,
                           TQvProgressHandler* progress, struct stat* copied)
{
    return CopyUnlessBroken(from, to, false, TPurpose::Move, progress, nullptr, copied);
}

TQvResult QvRequireUnchanged(const std::string& path, const struct stat& copied)
{
    struct stat now = {};
    if (stat(path.c_str(), &now) != 0)
        return TQvResult::FromErrno(path);
    const auto isSame = [](const timespec& a, const timespec& b) {
        return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
    };
    // Writers can set the modification time back, but not the time of the status change.
    return QvIsSameInode(now, copied) && now.st_size == copied.st_size &&
                   isSame(now.st_mtim, copied.st_mtim) && isSame(now.st_ctim, copied.st_ctim)
               ? TQvResult::Done()
               : AnswerError(EBUSY, path);
}

TQvResult QvMoveFileEx(const std::string& from, const std::string& to, bool overwrite,
                       bool acrossDevices, TQvProgressHandler* progress)
{
    if (overwrite ? rename(from.c_str(), to.c_str()) == 0 : QvRenameToFreeName(from, to))
        return overwrite ? FinishRename(from, to) : TQvResult::Done();
    if (errno == EXDEV && acrossDevices)
        return MoveAcrossDevices(from, to, overwrite, progress);
    const int error = errno;
    struct stat status = {};
    if (error == ENOENT && lstat(from.c_str(), &status) == 0) {
        errno = error; // the folder of the target is missing: the source has not vanished
        return TQvResult::Failed(error, to);
    }
    return AnswerError(error, from);
}

TQvResult QvWriteFileAtomically(const std::string& path, const std::string& content)
{
    TQvNewFile::TOptions options;
    options.Synced = true;
    TQvNewFile file;
    TQvResult result = file.Open(path, options);
    if (result)
        result = file.Write(content.data(), content.size());
    if (result)
        result = file.Publish();
    return Answer(result);
}

TQvResult QvReadWholeFile(const std::string& path, std::string* content)
{
    struct stat status = {};
    TQvDescriptor file;
    if (const int error = QvOpenRegular(path, O_RDONLY, &file, &status))
        return AnswerError(error, path);
    try {
        std::string read;
        if (!ReadToEnd(file.Number(), static_cast<std::uint64_t>(status.st_size), &read))
            return TQvResult::FromErrno(path);
        *content = std::move(read);
        return TQvResult::Done();
    } catch (const std::bad_alloc&) {
        return AnswerError(ENOMEM, path);
    } catch (const std::length_error&) {
        return AnswerError(ENOMEM, path);
    }
}
