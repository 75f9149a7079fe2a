// A resource storage: a folder with the resources under "content" and a journal that lists them.
//
// The journal ("$QvStorage.list") is appended to by every change and sealed block by block by
// checksums; loading replays it into a map; a journal of too many blocks is rewritten while it is
// loaded; a broken one is rebuilt from the content folder. Processes and computers share it under
// a lock file. docs/formats.md describes its bytes.
//
// Operations answer true when they are done; what they changed is on the disk then. Every failure
// is logged, Failure() says why, and the journal is as it was. Nothing is thrown except by the
// locker's construction (no owner).
//
// Each operation takes a lock as its last argument, so that one lock can serve a sequence; without
// one it takes its own and releases it at its end. Reading operations take a shared lock and leave
// the kind of a given one alone. Writing operations, a rewrite or a repair while loading too, turn
// a given shared lock into an exclusive one, which it stays; when that is refused, they fail as
// without a lock. When the lock file was replaced meanwhile, an append is repeated under the new
// lock; a rewrite fails.
//
// Thread-safety: one object belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "QvStd/Path.h"
#include "QvStd/Result.h"
#include "QvStd/Var.h"
#include "journal/JournalFile.h"
#include "journal/JournalReader.h"
#include "journal/StorageLocker.h"

struct TStorageMessages;

class TResStorage : public TStorageHome
{
public:
    using TLocker = var_a<TStorageLocker*>;

    TResStorage() = default;
    explicit TResStorage(TStorageSettings settings) { Settings = std::move(settings); }

    TQvPath DirFile() const;
    TQvPath XIniFile() const;

    /// The entries of the journal when it was last loaded; stale after an append of any process.
    const TJournalEntries& Dir() const { return *m_dir; }
    /// Size in bytes and Unix time of the journal when this object last read, wrote or extended it.
    std::uint64_t DirSize() const { return m_dirSize; }
    std::uint32_t DirTime() const { return m_dirTime; }
    /// What the last load found, before any repair.
    const TJournalReading& Reading() const { return m_reading; }
    /// Why the last operation failed: an errno and a path; done when it did not fail.
    const TQvResult& Failure() const { return m_failure; }

    /// Loads the journal. A missing, torn or damaged one is rebuilt from the content folder first;
    /// the replaced journal is kept as "$QvStorage.list.damaged", and a warning is logged. A
    /// journal that could not be opened or read is not broken: false, and nothing has changed.
    bool LoadDir(const TLocker& given = {});
    /// One load. False when the journal is missing, does not open or is not whole; Dir() then has
    /// what was read before the fault. A journal of more than ChangeCount2Merge blocks is
    /// rewritten, unless others share the lock just then. A rewrite that failed leaves the load
    /// done, except when only the folder could not be synced.
    bool DoLoadDir(const TLocker& given = {});
    /// Makes a new map from the files in the content folder (which is created when missing) and
    /// writes it. A content folder that cannot be read whole fails and leaves the journal alone.
    bool RecreateDir(const TLocker& given = {});
    /// Writes the whole journal from the map: appends by others since the load are lost unless one
    /// lock was held all the time.
    bool SaveDir(const TLocker& given = {});
    /// Append one change. The map is left alone: it changes only by loading. `id` is absolute and
    /// has no "/" at its end, for a folder neither. Refused (EINVAL) are ids that a journal cannot
    /// represent: not absolute, with a byte below 0x20 or a "?", with a blank after the first "/",
    /// or with one at the end (which only the removal of a folder may have); and "/" and an id that
    /// ends in "/".
    bool AddResourceRecord(const std::string& id, bool isFolder, const TLocker& given = {});
    bool DeleteResourceRecord(const std::string& id, bool isFolder, const TLocker& given = {});
    /// Truncates the journal after the last checkpoint, where a writer was killed: everything that
    /// was reported as done stays. A missing journal, and one without any checkpoint, stay as they
    /// are.
    bool CutTornTail(const TLocker& given = {});
    /// Whether others have changed the journal: its size or time differ from DirSize() and
    /// DirTime(), or the size before an append of this object was not DirSize(). Takes no lock.
    bool DirChanged() const;
    /// Reserved for loading only what was appended: does nothing and answers false.
    bool LoadDirUpdate(const TLocker& given = {});
    /// Loads and rewrites, with one write. A journal that could not be loaded is not overwritten.
    bool MergeDir(const TLocker& given = {});

private:
    using TMessages = TStorageMessages;
    enum class TLoaded
    {
        Failed,
        AsItIs,
        Rewritten
    };

    TLocker Begin(const TLocker& given, bool forWriting, const TMessages& messages);
    bool Lock(TLocker* locker, bool forWriting, const TMessages& messages);
    void Log(const char* text, int level) const;
    bool Fail(const char* text, int level, const TQvResult& why);
    TQvResult Open(TJournalFile* file, TJournalAccess access, const TMessages& messages) const;
    // `read` receives the journal that was read, open and without locks: a rewrite of what it gave
    // replaces only this file.
    bool Load(const TLocker& locker, TJournalFile* read, bool shortens);
    TLoaded LoadOrRepair(const TLocker& locker, TJournalFile* read, bool shortens);
    TJournalReading ReadDirFile(TJournalFile* read);
    bool Shorten(const TLocker& locker, const TJournalFile& read);
    bool Repair(const TLocker& locker, const TJournalFile& read);
    bool ListContent();
    TQvResult TakeContent(const std::string& content);
    TQvResult TakeFound(const std::string& path, std::size_t contentLength);
    bool Save(const TLocker& locker, const TJournalFile* read, bool keepsOld);
    TQvResult WriteDir(TJournalRewrite* rewrite) const;
    bool Append(const std::string& id, std::string line, const TLocker& given,
                const TMessages& messages);
    bool AppendBlock(const std::string& block, const TMessages& messages);
    void NoteDirFile(const TJournalFile& file);

    std::unique_ptr<TJournalEntries> m_dir = std::make_unique<TJournalEntries>();
    TJournalReading m_reading;
    TQvResult m_failure;
    std::uint64_t m_dirSize = 0;
    std::uint32_t m_dirTime = 0;
    TJournalIdentity m_syncedFile; ///< the journal whose name is known to be on the disk
    bool m_hasReplaced = false;    ///< whether the last rewrite has done its rename
    bool m_isStale = false; ///< others have made changes that m_dirSize and m_dirTime do not show
};

/// "whole", "missing", "bad signature", "torn tail" or "damage at byte N".
std::string JournalFinding(const TJournalReading& reading);
