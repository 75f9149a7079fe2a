#include "journal/ResStorage.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QvStd/Clock.h"
#include "QvStd/Files.h"
#include "QvStd/Log.h"
#include "QvStd/Message.h"
#include "QvStd/Strings.h"
#include "journal/JournalFormat.h"
#include "resid/ResAttrib.h"
#include "resid/ResId.h"

namespace
{
constexpr int kLevelRead = 3; ///< retries and read failures
constexpr int kLevelWrite = 5;
constexpr int kLevelWarning = 6;
constexpr std::uint32_t kRetryPauseMs = 100;

bool IsControl(char c)
{
    return static_cast<unsigned char>(c) < 0x20;
}

/// Whether a journal line can contain `id`: a control character could end the line, and the name is
/// split off at the last "?".
bool IsStorable(const std::string& id)
{
    return id.find(kNameMark) == std::string::npos && std::none_of(id.begin(), id.end(), IsControl);
}

std::string Checkpoint(std::uint32_t checksum)
{
    return Korvadel::ssprintf("%c%08X", kCheckpointMark, checksum).append(kLineEnd);
}

/// Writes one block in pieces of a fixed size: a text of the whole block costs more to
/// get than to fill, and a piece is still in the processor's cache when it is summed and written.
class TBlockWriter
{
public:
    explicit TBlockWriter(TJournalRewrite* rewrite) : m_rewrite(rewrite)
    {
        m_piece.reserve(kPiece);
    }

    void Add(std::string_view text)
    {
        m_piece.append(text);
        if (m_piece.size() >= kPiece - kRoom) {
            Sum();
            Write();
        }
    }
    void AddRecord(std::string_view key, std::string_view name)
    {
        // In place: QvNormalizeResId would make a string for each record.
        assert(!key.empty() && key.front() == kRecordMark); // else the line would be no record
        assert(key.find('\n') == std::string::npos && name.find('\n') == std::string::npos);
        const std::size_t start = m_piece.size();
        m_piece.resize(start + key.size());
        std::transform(key.begin(), key.end(), m_piece.data() + start, QvToUpper);
        m_piece.append(1, kNameMark).append(name);
        Add(kLineEnd);
    }
    TQvResult Seal()
    {
        Sum();
        m_piece += Checkpoint(m_checksum);
        Write();
        return m_result;
    }

private:
    static constexpr std::size_t kPiece = std::size_t{256} * 1024;
    static constexpr std::size_t kRoom = 4096; ///< so that a record hardly ever outgrows a piece

    void Sum() { m_checksum = JournalChecksum(m_piece, m_checksum); }
    void Write()
    {
        if (m_result)
            m_result = m_rewrite->Write(m_piece);
        m_piece.clear();
    }

    TJournalRewrite* m_rewrite;
    TQvResult m_result; ///< of the first write that failed
    std::string m_piece;
    std::uint32_t m_checksum = 0;
};

bool HasMetaExtension(const std::string& name)
{
    constexpr std::string_view kSuffix = kSidecarSuffix;
    return name.size() >= kSuffix.size() &&
           toupper_locale(name.substr(name.size() - kSuffix.size())) == toupper_locale(kSuffix);
}
} // namespace

/// What an operation logs. Only operations that open the journal themselves have more than
/// NotLocked.
struct TResStorage::TMessages
{
    const char* NotLocked;
    const char* Busy = nullptr;
    const char* NotOpened = nullptr; ///< or not read or written
    const char* Refused = nullptr;

    static const TMessages LoadDir;
    static const TMessages DoLoadDir;
    static const TMessages RecreateDir;
    static const TMessages SaveDir;
    static const TMessages AddResourceRecord;
    static const TMessages DeleteResourceRecord;
    static const TMessages CutTornTail;
    static const TMessages MergeDir;
};

const TResStorage::TMessages TResStorage::TMessages::LoadDir{
    "TResStorage::LoadDir(): error locking storage (%1%)"};
const TResStorage::TMessages TResStorage::TMessages::DoLoadDir{
    "TResStorage::DoLoadDir(): error locking storage (%1%)",
    "TResStorage::DoLoadDir(): Storage (%1%) dir busy, retrying",
    "TResStorage::DoLoadDir(): Storage (%1%) dir open failure"};
const TResStorage::TMessages TResStorage::TMessages::RecreateDir{
    "TResStorage::RecreateDir(): error locking storage (%1%)", nullptr, nullptr,
    "TResStorage::RecreateDir(): Storage (%1%) cannot hold the id (%2%)"};
const TResStorage::TMessages TResStorage::TMessages::SaveDir{
    "TResStorage::SaveDir(): error locking storage (%1%)",
    "TResStorage::SaveDir(): Storage (%1%) dir busy, retrying",
    "TResStorage::SaveDir(): error writing storage (%1%)"};
const TResStorage::TMessages TResStorage::TMessages::AddResourceRecord{
    "TResStorage::AddResourceRecord(): error locking storage (%1%)",
    "TResStorage::AddResourceRecord(): Storage (%1%) dir busy, retrying",
    "TResStorage::AddResourceRecord(): error writing storage (%1%)",
    "TResStorage::AddResourceRecord(): Storage (%1%) cannot hold the id (%2%)"};
const TResStorage::TMessages TResStorage::TMessages::DeleteResourceRecord{
    "TResStorage::DeleteResourceRecord(): error locking storage (%1%)",
    "TResStorage::DeleteResourceRecord(): Storage (%1%) dir busy, retrying",
    "TResStorage::DeleteResourceRecord(): error writing storage (%1%)",
    "TResStorage::DeleteResourceRecord(): Storage (%1%) cannot hold the id (%2%)"};
const TResStorage::TMessages TResStorage::TMessages::CutTornTail{
    "TResStorage::CutTornTail(): error locking storage (%1%)",
    "TResStorage::CutTornTail(): Storage (%1%) dir busy, retrying",
    "TResStorage::CutTornTail(): error writing storage (%1%)"};
const TResStorage::TMessages TResStorage::TMessages::MergeDir{
    "TResStorage::MergeDir(): error locking storage (%1%)"};

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
    if (!locker->Relock(true, false))
        Log(TMessages::SaveDir.NotLocked, kLevelWrite);
    else if (!Save(locker, &read, false) && m_hasReplaced)
        return false;
    m_failure = {};
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
    NoteDirFile(*read);
    int error = 0;
    const TJournalReading reading = ReadJournal(
        [&](char* buffer, std::size_t count) {
            const std::size_t got = read->Read(buffer, count);
            error = got == TQvStream::invalid_value ? errno : 0;
            return got;
        },
        m_dir.get());
    read->Unlock();
    m_isStale = reading.State == TJournalState::Unreadable;
    if (m_isStale)
        Fail(TMessages::DoLoadDir.NotOpened, kLevelRead,
             TQvResult::Failed(error, DirFile().toSysStr()));
    return reading;
}

/// Keeps the replaced journal and logs one warning with what was lost: a rebuild loses the
/// creators' spelling of names and every record without content.
bool TResStorage::Repair(const TLocker& locker, const TJournalFile& read)
{
    const TJournalReading broken = m_reading;
    TLocker exclusive = locker;
    const bool isMissing = broken.State == TJournalState::Missing;
    const bool keeps = !isMissing && read.Size() != 0;
    if (!Lock(&exclusive, true, TMessages::RecreateDir) || !ListContent() ||
        !Save(exclusive, &read, keeps))
        return false;
    if (isMissing && m_dir->empty())
        return true; // a new storage
    const std::string kept = DirFile().toSysStr() + kDamagedJournalSuffix;
    QvLogWriteWarning(TQvMessage("TResStorage::LoadDir(): Storage (%1%) was broken (%2%) and "
                                 "rebuilt from its content: %3% records were sealed in %4% bytes, "
                                 "%5% are there now%6%")
                          << Name << JournalFinding(broken) << broken.SealedRecords
                          << broken.SealedBytes << m_dir->size()
                          << (keeps ? "; the old journal is kept as " + kept : ""),
                      kLevelWarning, 0);
    return true;
}

bool TResStorage::RecreateDir(const TLocker& given)
{
    const TLocker locker = Begin(given, true, TMessages::RecreateDir);
    return locker && ListContent() && Save(locker, nullptr, false);
}

bool TResStorage::ListContent()
{
    const std::string content =
        QvIncludeTrailingBackslash(TQvPath(Folder)).toSysStr() + kStorageContentName;
    m_dir->Clear();
    m_failure = TakeContent(content);
    if (m_failure)
        return true;
    QvLogWriteInfo(QvMsg_helper("Err_ReadFolder_name")
                       << m_failure.Name() << QvErrorText(m_failure.Error()),
                   kLevelWrite, 0);
    m_dir->Clear(); // an incomplete listing must not become the journal
    return false;
}

TQvResult TResStorage::TakeContent(const std::string& content)
{
    const TQvResult made = QvCreateDirectory(content);
    bool isFolder = false;
    const TQvResult there = QvFileDirExists(content, &isFolder);
    if (there.HasFailed() || (there && !isFolder))
        return TQvResult::Failed(there ? ENOTDIR : there.Error(), content);
    if (!there) // a link to a volume that is not mounted is no empty folder
        return TQvResult::Failed(made.Error() == EEXIST ? ENOENT : made.Error(), content);
    std::vector<std::string> found;
    TQvResult result = QvSearchFiles(content, "*", true, true, &found);
    for (std::size_t i = 0; result && i < found.size(); ++i)
        result = TakeFound(found[i], content.size());
    return result;
}

TQvResult TResStorage::TakeFound(const std::string& path, std::size_t contentLength)
{
    assert(path.size() > contentLength && path[contentLength] == '/');
    std::string id = path.substr(contentLength);
    if (HasMetaExtension(id))
        return TQvResult::Done();
    // The names of a storage separate folders by backslashes. Where a path has none, the name is
    // the whole relative part with its leading "/": readers of rebuilt journals expect that.
    std::string name = id.substr(id.rfind('\\') + 1);
    if (!IsStorable(id)) {
        QvLogWriteWarning(TQvMessage(TMessages::RecreateDir.Refused) << Name << id, kLevelWarning,
                          0);
        return TQvResult::Done();
    }
    bool isFolder = false;
    const TQvResult there = QvFileDirExists(path, &isFolder);
    if (there.HasFailed() && !QvIsSymLink(path)) // a dangling link is recorded, too
        return there.Named(path);
    if (isFolder)
        id += '/';
    std::replace(id.begin(), id.end(), '\\', '/');
    m_dir->Set(QvNormalizeResId(id), name);
    return TQvResult::Done();
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
