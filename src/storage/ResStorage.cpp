#include "storage/ResStorage.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "QvStd/Clock.h"
#include "QvStd/Files.h"
#include "QvStd/Log.h"
#include "QvStd/Message.h"
#include "QvStd/Strings.h"
#include "manager/ResourceManager.h"
#include "resid/ResId.h"
#include "storage/JournalFormat.h"

namespace
{
constexpr int kLevelRead = 3; ///< retries and read failures
constexpr int kLevelWrite = 5;
constexpr int kBusy = -13;
constexpr std::uint32_t kRetryPauseMs = 100;

bool IsControl(char c)
{
    return static_cast<unsigned char>(c) < 0x20;
}

/// Whether a journal line can hold `id`: a control character could end the line, and the name is
/// split off at the last "?".
bool IsStorable(const std::string& id)
{
    return id.find(kNameMark) == std::string::npos && std::none_of(id.begin(), id.end(), IsControl);
}

std::string Checkpoint(std::uint32_t checksum)
{
    return Korvadel::ssprintf("%c%08X", kCheckpointMark, checksum).append(kLineEnd);
}

/// Writes one block to a stream in pieces of a fixed size: a text of the whole block costs more to
/// get than to fill, and a piece is still in the processor's cache when it is summed and written.
class TBlockWriter
{
public:
    explicit TBlockWriter(TQvStream* stream) : m_stream(stream) { m_piece.reserve(kPiece); }

    void Add(std::string_view text)
    {
        m_piece.append(text);
        if (m_piece.size() >= kPiece - kRoom) {
            Sum();
            Write();
        }
    }
    void AddRecord(const std::string& key, const std::string& name)
    {
        // In place: QvNormalizeResId would make a string for each record.
        const std::size_t start = m_piece.size();
        m_piece.resize(start + key.size());
        std::transform(key.begin(), key.end(), m_piece.data() + start, QvToUpper);
        m_piece.append(1, kNameMark).append(name);
        Add(kLineEnd);
    }
    void Seal()
    {
        Sum();
        m_piece += Checkpoint(m_checksum);
        Write();
    }

private:
    static constexpr std::size_t kPiece = 256 * 1024;
    static constexpr std::size_t kRoom = 4096; ///< so that a record hardly ever outgrows a piece

    void Sum() { m_checksum = JournalChecksum(m_piece, m_checksum); }
    void Write()
    {
        m_stream->Write(m_piece.data(), m_piece.size());
        m_piece.clear();
    }

    TQvStream* m_stream;
    std::string m_piece;
    std::uint32_t m_checksum = 0;
};

bool HasMetaExtension(const std::string& name)
{
    return name.size() >= kMetaExtension.size() &&
           toupper_locale(name.substr(name.size() - kMetaExtension.size())) ==
               toupper_locale(kMetaExtension);
}
} // namespace

struct TResStorage::TMessages
{
    const char* NotLocked;
    const char* Busy = nullptr;
    const char* NotOpened = nullptr;
    const char* Refused = nullptr;

    static const TMessages LoadDir;
    static const TMessages DoLoadDir;
    static const TMessages RecreateDir;
    static const TMessages SaveDir;
    static const TMessages AddResourceRecord;
    static const TMessages DeleteResourceRecord;
    static const TMessages MergeDir;
};

const TResStorage::TMessages TResStorage::TMessages::LoadDir{
    "TResStorage::LoadDir(): error locking storage (%1%)"};
const TResStorage::TMessages TResStorage::TMessages::DoLoadDir{
    "TResStorage::DoLoadDir(): error locking storage (%1%)",
    "TResStorage::DoLoadDir(): Storage (%1%) dir busy, retrying", kResStorageNotRead};
const TResStorage::TMessages TResStorage::TMessages::RecreateDir{
    "TResStorage::RecreateDir(): error locking storage (%1%)", nullptr, nullptr,
    kResStorageLeftOut};
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
    TLocker locker = given;
    if (!Lock(&locker, false, TMessages::LoadDir))
        return false;
    if (DoLoadDir(locker))
        return true;
    const bool repaired = RecreateDir(locker);
    if (repaired || given || locker->getError() != -EDEADLK)
        return DoLoadDir(locker);
    // When two processes find the journal broken at once, one of them is refused the exclusive
    // lock and keeps the other one waiting: it steps aside and loads what the other has rebuilt.
    // When nobody has, because the other one died, it does so itself, under one lock: between two
    // locks somebody else could repair and append.
    locker.reset();
    return Lock(&locker, true, TMessages::LoadDir) &&
           (DoLoadDir(locker) || (RecreateDir(locker) && DoLoadDir(locker)));
}

bool TResStorage::DoLoadDir(const TLocker& given)
{
    TLocker locker = given;
    if (!Lock(&locker, false, TMessages::DoLoadDir))
        return false;
    m_dir.clear();
    const TJournalReading reading = ReadDirFile();
    if (reading.State != TJournalState::Whole)
        return false;
    if (reading.Checkpoints > ResourceManager.Config().StDirChangeCount2Merge)
        Shorten(locker);
    return true;
}

/// Rewrites what was just read: nobody else writes between a shared hold and the exclusive one that
/// it becomes. Others are not kept waiting for what the next load can do as well, nor for a journal
/// that may not be written, which would count as busy. There is no result, because the map is
/// loaded either way.
void TResStorage::Shorten(const TLocker& locker)
{
    if (faccessat(AT_FDCWD, DirFile().toSysStr().c_str(), W_OK, AT_EACCESS) != 0)
        Log(TMessages::SaveDir.NotOpened, kLevelWrite);
    else if (!locker->Relock(true, false))
        Log(TMessages::SaveDir.NotLocked, kLevelWrite);
    else
        SaveDir(locker);
}

TJournalReading TResStorage::ReadDirFile()
{
    TQvFileStream stream;
    Open(&stream, kQvOpenRead, kQvOpenRead, TMessages::DoLoadDir);
    if (!stream) {
        if (QvFileExists(DirFile()))
            Log(TMessages::DoLoadDir.NotOpened, kLevelRead);
        return {};
    }
    NoteDirFile(stream);
    const TJournalReading reading = ReadJournal(
        [&](char* buffer, std::size_t count) { return stream.Read(buffer, count); }, &m_dir);
    if (reading.State == TJournalState::Unreadable)
        Log(TMessages::DoLoadDir.NotOpened, kLevelRead);
    return reading;
}

bool TResStorage::RecreateDir(const TLocker& given)
{
    TLocker locker = given;
    if (!Lock(&locker, true, TMessages::RecreateDir))
        return false;
    return ListContent() && SaveDir(locker);
}

bool TResStorage::ListContent()
{
    const std::string content =
        QvIncludeTrailingBackslash(TQvPath(Folder)).toSysStr() + kStorageContentName;
    int error = QvCreateDirectory(content) ? 0 : errno;
    if (QvDirExists(content))
        error = 0;
    else if (error == EEXIST) // a link to a volume that is not there is no empty folder
        error = access(content.c_str(), F_OK) == 0 ? ENOTDIR : errno;
    m_dir.clear();
    try {
        if (error != 0)
            throw QvMsg_helper("Err_ReadFolder_name") << content << std::strerror(error);
        for (const std::string& path : QvFindFiles(content, "*.*", true, true))
            ListFound(path, content.size());
        return true;
    } catch (const TQvMessage& unreadable) {
        // Half a listing must not become the journal.
        QvLogWriteInfo(unreadable, kLevelWrite, 0);
        m_dir.clear();
        return false;
    }
}

void TResStorage::ListFound(const std::string& path, std::size_t contentLength)
{
    std::string id = path.substr(contentLength);
    if (HasMetaExtension(id))
        return;
    // Backslashes part the folders of a storage's names. Where paths have none, the name is the
    // whole relative part with its leading "/": readers of rebuilt journals know it so.
    std::string name = id.substr(id.rfind('\\') + 1);
    if (!IsStorable(id)) {
        QvLogWriteInfo(TQvMessage(TMessages::RecreateDir.Refused) << Name << id, kLevelWrite, 0);
        return;
    }
    if (QvDirExists(path))
        id += '/';
    std::replace(id.begin(), id.end(), '\\', '/');
    m_dir[QvNormalizeResId(id)] = std::move(name);
}

bool TResStorage::SaveDir(const TLocker& given)
{
    TLocker locker = given;
    if (!Lock(&locker, true, TMessages::SaveDir))
        return false;
    TQvFileStream stream;
    // The retry opens without truncating: what keeps the file busy is never cut away under it.
    Open(&stream, kQvOpenCreate, kQvOpenAppend, TMessages::SaveDir);
    if (!stream) {
        Log(TMessages::SaveDir.NotOpened, kLevelWrite);
        return false;
    }
    WriteDir(&stream);
    // After a retry the old content may reach further than what was written.
    if (stream.getSize() > stream.getPosition())
        stream.setSize(stream.getPosition());
    Finish(&stream, TMessages::SaveDir);
    return true;
}

/// A failed sync changes no answer, like all results of writes, but it leaves no other trace.
void TResStorage::Finish(TQvFileStream* stream, const TMessages& messages)
{
    NoteDirFile(*stream);
    const bool flushed = stream->Flush();
    if (!stream->Close() || !flushed)
        Log(messages.NotOpened, kLevelWrite);
}

void TResStorage::WriteDir(TQvStream* stream) const
{
    TBlockWriter block(stream);
    block.Add(Korvadel::ssprintf("%c%08X", kStampMark, QvGetTickCount()));
    block.Add(kLineEnd);
    block.Add(StorageSgn);
    for (const auto& [key, name] : m_dir)
        block.AddRecord(key, name);
    block.Seal();
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
    // Readers trim a line: without a blank at its end, or behind the mark of a removal, it would
    // name another resource. What cannot be removed is not added either.
    if (!QvIsAbsoluteResId(id) || !IsStorable(id) || id.compare(1, 1, " ") == 0 ||
        line.back() == ' ') {
        QvLogWriteInfo(TQvMessage(messages.Refused) << Name << id, kLevelWrite, 0);
        return false;
    }
    line += kLineEnd;
    line += Checkpoint(JournalChecksum(line));
    TLocker locker = given;
    if (!Lock(&locker, true, messages))
        return false;
    TQvFileStream stream;
    Open(&stream, kQvOpenAppend, kQvOpenAppend, messages);
    // The end is looked for under the lock, and one write takes both lines.
    if (!stream || !stream.setPosition(stream.getSize())) {
        Log(messages.NotOpened, kLevelWrite);
        return false;
    }
    stream.Write(line.data(), line.size());
    Finish(&stream, messages);
    return true;
}

bool TResStorage::DirChanged() const
{
    const TQvPath file = DirFile();
    return QvGetFileSize(file) != m_dirSize || GetUnixFileTime(file) != m_dirTime;
}

bool TResStorage::LoadDirUpdate(const TLocker& /*given*/)
{
    return false;
}

bool TResStorage::MergeDir(const TLocker& given)
{
    TLocker locker = given;
    if (!Lock(&locker, true, TMessages::MergeDir))
        return false;
    if (LoadDir(locker))
        SaveDir(locker);
    return true;
}

bool TResStorage::Lock(TLocker* locker, bool forWriting, const TMessages& messages) const
{
    if (!*locker)
        *locker = TStorageLocker::VCreate(*this, forWriting);
    else if (forWriting)
        (*locker)->Relock(true);
    // A refused change keeps the shared hold, which is no leave to write.
    if (**locker && (!forWriting || (*locker)->IsExclusive()))
        return true;
    Log(messages.NotLocked, kLevelWrite);
    return false;
}

void TResStorage::Log(const char* text, int level) const
{
    QvLogWriteInfo(TQvMessage(text) << Name, level, 0);
}

void TResStorage::Open(TQvFileStream* stream, qvOpenMode mode, qvOpenMode retryMode,
                       const TMessages& messages) const
{
    const std::string file = DirFile().toSysStr();
    if (stream->Open(file, mode, kQvShareAll) || stream->getError() != kBusy)
        return;
    // A reader waits for no journal that is not there or cannot even be seen. It is looked for only
    // now, because it nearly always is there.
    if (mode == kQvOpenRead && !QvFileExists(file))
        return;
    Log(messages.Busy, kLevelRead);
    const std::uint32_t firstFailure = QvGetTickCount();
    while (!*stream &&
           QvGetTickCount() - firstFailure < ResourceManager.Config().StDirLockTimeout) {
        if (!stream->Open(file, retryMode, kQvShareAll))
            QvSleep(kRetryPauseMs);
    }
}

void TResStorage::NoteDirFile(const TQvFileStream& stream)
{
    m_dirSize = stream.getSize();
    m_dirTime = GetUnixFileTime(DirFile());
}
