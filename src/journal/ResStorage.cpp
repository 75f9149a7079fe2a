#include "journal/ResStorage.h"

#include <cassert>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>

#include "QvStd/Clock.h"
#include "QvStd/Files.h"
#include "QvStd/Log.h"
#include "QvStd/Message.h"
#include "QvStd/Strings.h"
#include "journal/JournalBlock.h"
#include "journal/JournalFormat.h"
#include "journal/StorageMessages.h"
#include "resid/ResId.h"

namespace
{
/// Other processes are busy for the time of one append or load.
constexpr std::uint32_t kRetryPauseMs = 100;
} // namespace

TQvPath TResStorage::DirFile() const
{
    return TQvPath(QvIncludeTrailingBackslash(TQvPath(Folder)).toSysStr() + kJournalFileName);
}

TQvPath TResStorage::XIniFile() const
{
    return TQvPath(QvIncludeTrailingBackslash(TQvPath(Folder)).toSysStr() + kStorageXIniFileName);
}

bool TResStorage::LoadDir(const TLocker& given)
{
    TLocker locker = Begin(given, false, TMessages::LoadDir);
    if (!locker)
        return false;
    TJournalFile read;
    if (LoadOrRepair(locker, &read, true) != TLoaded::Failed)
        return true;
    if (given || (m_failure.Error() != EDEADLK && m_failure.Error() != ESTALE))
        return false;
    // When two processes find the journal broken at once, both have the shared lock, and one is
    // refused the exclusive one: it releases its lock and loads what the other one has rebuilt.
    // When the other one was killed, it repairs the journal itself, under one lock: between two
    // locks another process could repair and append.
    locker.reset();
    locker = Begin({}, true, TMessages::LoadDir);
    return locker && LoadOrRepair(locker, &read, true) != TLoaded::Failed;
}

bool TResStorage::DoLoadDir(const TLocker& given)
{
    const TLocker locker = Begin(given, false, TMessages::DoLoadDir);
    TJournalFile read;
    return locker && Load(locker, &read, true);
}

bool TResStorage::Load(const TLocker& locker, TJournalFile* read, bool shortens)
{
    m_dir->Clear();
    m_reading = ReadDirFile(read);
    // The map keeps what was read: it is what a caller can still see of a broken journal.
    if (m_reading.State != TJournalState::Whole)
        return false;
    if (shortens && m_reading.Checkpoints > Settings.ChangeCount2Merge)
        return Shorten(locker, *read);
    return true;
}

TResStorage::TLoaded TResStorage::LoadOrRepair(const TLocker& locker, TJournalFile* read,
                                               bool shortens)
{
    if (Load(locker, read, shortens))
        return TLoaded::AsItIs;
    // The second load finds a whole journal; callers want to know what was wrong with the first.
    const TJournalReading broken = m_reading;
    if (broken.State == TJournalState::Unreadable || broken.State == TJournalState::Whole)
        return TLoaded::Failed; // nothing is broken
    const bool repaired = Repair(locker, *read);
    const bool loaded = Load(locker, read, shortens);
    m_reading = broken;
    return repaired && loaded ? TLoaded::Rewritten : TLoaded::Failed;
}

/// Rewrites what was just read: the upgrade never releases the lock, so no writer can get in
/// between. It does not wait for others that share the lock, since the next load can do the same.
/// False only when the new journal may not survive a power cut, with what is appended to it next.
bool TResStorage::Shorten(const TLocker& locker, const TJournalFile& read)
{
    const TQvResult before = m_failure; // of a repair, which decides whether the load is repeated
    if (!locker->Relock(true, false))
        Log(TMessages::SaveDir.NotLocked, kLevelWrite);
    else if (!Save(locker, &read, false) && m_hasReplaced)
        return false;
    m_failure = before;
    return true;
}

TJournalReading TResStorage::ReadDirFile(TJournalFile* read)
{
    const TQvResult opened = Open(read, TJournalAccess::Read, TMessages::DoLoadDir);
    if (opened.IsNothing())
        return {TJournalState::Missing};
    m_isStale = true; // until it was read to its end
    if (!opened) {
        Fail(TMessages::DoLoadDir.NotOpened, kLevelRead, opened);
        return {TJournalState::Unreadable};
    }
    // Before the content is read: a change by others during the reading then shows as one.
    NoteDirFile(*read);
    int error = 0;
    const TJournalReading reading = ReadJournal(
        [&](char* buffer, std::size_t count) {
            const std::size_t got = read->Read(buffer, count);
            error = got == TQvStream::invalid_value ? errno : 0;
            return got;
        },
        m_dir.get());
    // From here on only the lock file protects the journal; a rewrite compares it with this file.
    read->Unlock();
    m_isStale = reading.State == TJournalState::Unreadable;
    if (m_isStale)
        Fail(TMessages::DoLoadDir.NotOpened, kLevelRead,
             TQvResult::Failed(error, DirFile().toSysStr()));
    return reading;
}

bool TResStorage::SaveDir(const TLocker& given)
{
    const TLocker locker = Begin(given, true, TMessages::SaveDir);
    return locker && Save(locker, nullptr, false);
}

/// With `read` only that file is replaced, and only as it was read.
bool TResStorage::Save(const TLocker& locker, const TJournalFile* read, bool keepsOld)
{
    assert(locker->IsExclusive()); // else appends of others would be lost
    // Set by the rename only: a failure after it must not count as "the old journal is still
    // there".
    m_hasReplaced = false;
    TJournalFile old;
    TQvResult result = Open(&old, TJournalAccess::Change, TMessages::SaveDir);
    // Another process may have appended under the lock file of another path: replacing the journal
    // would lose that.
    const bool isAsRead =
        read == nullptr || (old ? *read && read->IsUnchanged(old) : !static_cast<bool>(*read));
    TJournalRewrite rewrite;
    if (result || result.IsNothing())
        result = rewrite.Open(DirFile().toSysStr(), old);
    if (result)
        result = WriteDir(&rewrite);
    if (result)
        result = rewrite.Sync();
    // As late as possible, just before the rename: a lock file that was replaced until now no
    // longer excludes others.
    const TQvResult held =
        isAsRead ? locker->IsAtPath() : TQvResult::Failed(ESTALE, Folder + kStorageLockSuffix);
    if (result && !held)
        return Fail(TMessages::SaveDir.NotLocked, kLevelWrite, held);
    if (result)
        result = rewrite.Publish(keepsOld);
    m_hasReplaced = rewrite.HasReplaced();
    if (!result)
        return Fail(TMessages::SaveDir.NotOpened, kLevelWrite, result.Named(DirFile().toSysStr()));
    TJournalFile written;
    // Opened again for size and time as the server has them; without them the next check counts as
    // a change.
    const TQvResult opened = written.Open(DirFile().toSysStr(), TJournalAccess::Read);
    NoteDirFile(written);
    m_isStale = !opened || written.Size() != rewrite.Size();
    return true;
}

TQvResult TResStorage::WriteDir(TJournalRewrite* rewrite) const
{
    TBlockWriter block(rewrite);
    block.Add(Korvadel::ssprintf("%c%08X", kStampMark, QvGetTickCount()));
    block.Add(kLineEnd);
    block.Add(StorageSgn);
    for (const auto& [key, name] : *m_dir)
        block.AddRecord(key, name);
    return block.Seal();
}

bool TResStorage::AddResourceRecord(const std::string& id, bool isFolder, const TLocker& given)
{
    std::string line = QvNormalizeResId(id);
    if (isFolder)
        line += '/';
    line.append(1, kNameMark).append(QvExtractResName(id));
    return Append(id, std::move(line), given, TMessages::AddResourceRecord);
}

bool TResStorage::DeleteResourceRecord(const std::string& id, bool isFolder, const TLocker& given)
{
    std::string line = QvNormalizeResId(id);
    // The mark takes the place of the leading "/", which every absolute id has.
    line.replace(0, 1, 1, kRemovalMark);
    if (isFolder)
        line += '/';
    return Append(id, std::move(line), given, TMessages::DeleteResourceRecord);
}

bool TResStorage::Append(const std::string& id, std::string line, const TLocker& given,
                         const TMessages& messages)
{
    // Readers trim a line: an id with a blank at its end, or after the mark of a removal, would
    // name another resource. What cannot be removed is not added either.
    if (!QvIsAbsoluteResId(id) || id.back() == '/' || !IsStorable(id) ||
        id.compare(1, 1, " ") == 0 || line.back() == ' ') {
        m_failure = TQvResult::Failed(EINVAL, id);
        QvLogWriteInfo(TQvMessage(messages.Refused) << Name << id, kLevelWrite, 0);
        return false;
    }
    line += kLineEnd;
    line += Checkpoint(JournalChecksum(line));
    // The line is complete before the lock is taken, which others wait for.
    const TLocker locker = Begin(given, true, messages);
    if (!locker)
        return false;
    const std::uint32_t start = QvGetTickCount();
    do {
        if (!AppendBlock(line, messages))
            return false;
        // While the lock file was replaced, a rewrite by another process may have lost the block.
        // Appending it twice does no harm.
        if (locker->IsAtPath())
            return true;
    } while (locker->Renew() && QvGetTickCount() - start <= Settings.LockTimeout);
    return Fail(messages.NotLocked, kLevelWrite,
                TQvResult::Failed(ESTALE, Folder + kStorageLockSuffix));
}

/// A size that this object did not know means that others have appended: its map is stale even
/// after its own append.
bool TResStorage::AppendBlock(const std::string& block, const TMessages& messages)
{
    TJournalFile file;
    TQvResult result = Open(&file, TJournalAccess::Append, messages);
    // Compared before the append changes the size.
    const bool wasKnown = file.Size() == m_dirSize;
    if (result)
        result = file.AppendAndClose(block, &m_syncedFile);
    if (!result)
        return Fail(messages.NotOpened, kLevelWrite, result);
    const bool isStale = m_isStale || !wasKnown;
    NoteDirFile(file);
    m_isStale = isStale;
    return true;
}

bool TResStorage::CutTornTail(const TLocker& given)
{
    const TLocker locker = Begin(given, true, TMessages::CutTornTail);
    if (!locker)
        return false;
    TJournalFile file;
    TQvResult result = Open(&file, TJournalAccess::Change, TMessages::CutTornTail);
    if (result.IsNothing())
        return true;
    if (result)
        result = file.CutUnsealed();
    return result || Fail(TMessages::CutTornTail.NotOpened, kLevelWrite, result);
}

bool TResStorage::DirChanged() const
{
    struct statx now = {};
    // A missing journal has size and time 0; one that cannot be examined may have changed.
    if (statx(AT_FDCWD, DirFile().toSysStr().c_str(), AT_STATX_FORCE_SYNC, STATX_SIZE | STATX_MTIME,
              &now) != 0 &&
        errno != ENOENT)
        return true;
    // Both are needed: the time misses an append within one second, the size misses a rewrite of
    // the same length.
    return m_isStale || now.stx_size != m_dirSize ||
           static_cast<std::uint32_t>(now.stx_mtime.tv_sec) != m_dirTime;
}

bool TResStorage::LoadDirUpdate(const TLocker& /*given*/)
{
    return false;
}

bool TResStorage::MergeDir(const TLocker& given)
{
    const TLocker locker = Begin(given, true, TMessages::MergeDir);
    if (!locker)
        return false;
    TJournalFile read;
    const TLoaded loaded = LoadOrRepair(locker, &read, false);
    return loaded == TLoaded::Rewritten ||
           (loaded == TLoaded::AsItIs && Save(locker, &read, false));
}

/// Starts an operation: the given lock, or an own one, in the kind that it needs. Empty when that
/// was not gained.
TResStorage::TLocker TResStorage::Begin(const TLocker& given, bool forWriting,
                                        const TMessages& messages)
{
    m_failure = {};
    TLocker locker = given;
    return Lock(&locker, forWriting, messages) ? locker : TLocker();
}

bool TResStorage::Lock(TLocker* locker, bool forWriting, const TMessages& messages)
{
    if (!*locker)
        *locker = TStorageLocker::VCreate(*this, forWriting);
    else if (forWriting)
        // The result shows in IsExclusive below.
        (*locker)->Relock(true);
    // After a refused upgrade the shared lock remains, which does not allow writing.
    if (**locker && (!forWriting || (*locker)->IsExclusive()))
        return true;
    const int error = (*locker)->getError();
    return Fail(messages.NotLocked, kLevelWrite,
                TQvResult::Failed(error != 0 ? -error : EAGAIN, Folder + kStorageLockSuffix));
}

void TResStorage::Log(const char* text, int level) const
{
    QvLogWriteInfo(TQvMessage(text) << Name, level, 0);
}

/// False. The first failure of an operation is the one that Failure() answers.
bool TResStorage::Fail(const char* text, int level, const TQvResult& why)
{
    Log(text, level);
    if (m_failure)
        m_failure = why;
    return false;
}

/// Tries again while the journal is busy, up to the time-out, with one log entry for all attempts.
TQvResult TResStorage::Open(TJournalFile* file, TJournalAccess access,
                            const TMessages& messages) const
{
    const std::string path = DirFile().toSysStr();
    TQvResult result = file->Open(path, access);
    if (result.Error() != EBUSY)
        return result;
    Log(messages.Busy, kLevelRead);
    const std::uint32_t firstFailure = QvGetTickCount();
    while (result.Error() == EBUSY && QvGetTickCount() - firstFailure < Settings.LockTimeout) {
        result = file->Open(path, access);
        if (result.Error() == EBUSY)
            QvSleep(kRetryPauseMs);
    }
    return result;
}

void TResStorage::NoteDirFile(const TJournalFile& file)
{
    m_dirSize = file.Size();
    m_dirTime = file.Time();
    m_isStale = false;
}

std::string JournalFinding(const TJournalReading& reading)
{
    switch (reading.State) {
    case TJournalState::Whole:
        return reading.UnreadBytes == 0 ? "whole" : "torn tail";
    case TJournalState::TornTail:
        return "torn tail";
    case TJournalState::Damaged:
        return "damage at byte " + std::to_string(reading.SealedBytes);
    case TJournalState::BadSignature:
        return "bad signature";
    case TJournalState::Missing:
        return "missing";
    case TJournalState::Unreadable:
        break;
    }
    return "not readable";
}
