// A resource storage: a folder whose resources lie under "content", and a journal that lists them.
//
// The journal ("$QvStorage.list") is appended to by every change and sealed block by block by
// checksums; loading replays it into a map; a journal of too many blocks is rewritten while it is
// loaded; a broken one is rebuilt from the content folder. Processes and computers share it under
// a lock file. docs/formats.md describes its bytes.
//
// Operations answer success; every failure is logged, nothing is thrown except by the locker's
// construction (no configuration). What a write brought to the disk is not tested, and success is
// answered all the same: a short write shows as a bad checkpoint at the next load. A failed sync is
// logged.
//
// Each operation takes a lock as its last argument, so that one lock can serve a sequence; without
// one it takes its own and releases it at its end. Reading operations take a shared lock and leave
// the kind of a given one alone. Writing operations, a rewrite or a repair while loading too, turn
// a given shared lock into an exclusive one, which it stays; when that is refused, they fail as if
// there were no lock.
//
// Thread-safety: one object belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <string>

#include "QvStd/FileStream.h"
#include "QvStd/Path.h"
#include "QvStd/Var.h"
#include "storage/JournalReader.h"
#include "storage/StorageLocker.h"

/// What a rebuild logs for each id that it leaves out: the storage's name and the id.
inline constexpr char kResStorageLeftOut[] =
    "TResStorage::RecreateDir(): Storage (%1%) cannot hold the id (%2%)";

/// What loading logs, after the time-out, of a journal that is there but does not open or cannot be
/// read to its end: nothing is known about whether it is whole.
inline constexpr char kResStorageNotRead[] =
    "TResStorage::DoLoadDir(): Storage (%1%) dir open failure";

class TResStorage
{
public:
    using TLocker = var_a<TStorageLocker*>;

    std::string Name;   ///< shown in messages
    std::string Folder; ///< on disk; all users of a storage must spell it alike (see the locker)

    TQvPath DirFile() const;
    TQvPath XIniFile() const;

    /// What the journal held when it was last loaded; stale as soon as anybody appends.
    const TJournalEntries& Dir() const { return m_dir; }
    /// Size in bytes and Unix time of the journal when this object last read, wrote or extended it.
    std::uint64_t DirSize() const { return m_dirSize; }
    std::uint32_t DirTime() const { return m_dirTime; }

    /// Loads the journal; a broken or missing one is rebuilt from the content folder first.
    bool LoadDir(const TLocker& given = {});
    /// One load. False when the journal is missing, does not open or is not whole; Dir() then holds
    /// what was read until the fault. A journal of more than StDirChangeCount2Merge blocks is
    /// rewritten, unless others share the lock just then.
    bool DoLoadDir(const TLocker& given = {});
    /// Makes the map anew from what lies in the content folder (which is created when missing) and
    /// writes it. A content folder that cannot be read whole fails and leaves the journal alone.
    bool RecreateDir(const TLocker& given = {});
    /// Writes the whole journal from the map.
    bool SaveDir(const TLocker& given = {});
    /// Append one change. The map is left alone: it changes only by loading. `id` is absolute and
    /// has no "/" at its end, for a folder neither. Refused are ids that a journal cannot give
    /// back: not absolute, with a byte below 0x20 or a "?", with a blank behind the first "/", or
    /// with one at the end (which only the removal of a folder may have).
    bool AddResourceRecord(const std::string& id, bool isFolder, const TLocker& given = {});
    bool DeleteResourceRecord(const std::string& id, bool isFolder, const TLocker& given = {});
    /// Whether the journal's size or time differ from DirSize() and DirTime(). Takes no lock.
    bool DirChanged() const;
    /// Reserved for loading only what was appended: does nothing and answers false.
    bool LoadDirUpdate(const TLocker& given = {});
    /// Loads and rewrites. True also when either failed; false only without the lock. A journal
    /// that could not be loaded is not overwritten.
    bool MergeDir(const TLocker& given = {});

private:
    struct TMessages;

    bool Lock(TLocker* locker, bool forWriting, const TMessages& messages) const;
    void Log(const char* text, int level) const;
    void Open(TQvFileStream* stream, qvOpenMode mode, qvOpenMode retryMode,
              const TMessages& messages) const;
    TJournalReading ReadDirFile();
    void Shorten(const TLocker& locker);
    bool ListContent();
    void ListFound(const std::string& path, std::size_t contentLength);
    void WriteDir(TQvStream* stream) const;
    bool Append(const std::string& id, std::string line, const TLocker& given,
                const TMessages& messages);
    void Finish(TQvFileStream* stream, const TMessages& messages);
    void NoteDirFile(const TQvFileStream& stream);

    TJournalEntries m_dir;
    std::uint64_t m_dirSize = 0;
    std::uint32_t m_dirTime = 0;
};
