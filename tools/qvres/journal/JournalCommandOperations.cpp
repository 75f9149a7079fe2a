#include "JournalCommandOperations.h"

#include <cerrno>
#include <filesystem>

#include <QvStd/Files.h>
#include <QvStd/Log.h>

#include "BreakSignal.h"
#include "Checks.h"
#include "Failure.h"
#include "Json.h"
#include "journal/JournalFormat.h"
#include "journal/ResStorage.h"

namespace
{
/// One spelling for all, because the lock is named after the text of the folder. Links stay as they
/// are given: hosts that reach the folder through one lock it under that name.
std::string StorageFolder(const std::string& given)
{
    namespace fs = std::filesystem;
    fs::path path;
    for (const fs::path& part : fs::current_path() / given) {
        path /= part;
        if (part == "..") // after a link its text is misleading
            path = fs::weakly_canonical(path);
    }
    std::string folder = path.lexically_normal().string();
    while (folder.size() > 1 && folder.back() == '/')
        folder.pop_back();
    if (folder == "/")
        throw TFailure("\"/\" cannot be a storage folder");
    if (folder.find('\\') != std::string::npos)
        throw TFailure("a storage folder's path must not contain a backslash: " + folder);
    bool isFolder = false;
    const TQvResult there = QvFileDirExists(folder, &isFolder);
    if (there.HasFailed())
        throw TFailure(folder + ": " + QvErrorText(there.Error()));
    if (given.empty() || !isFolder)
        throw TFailure("no such folder: " + (given.empty() ? "\"\"" : folder));
    return folder;
}

/// Only a rebuild may make a storage of any folder.
void RequireStorage(const TResStorage& storage)
{
    const auto isMissing = [](const std::string& path) {
        return !QvIsSymLink(path) && !QvFileDirExists(path, nullptr) && errno == ENOENT;
    };
    if (isMissing(storage.DirFile().toSysStr()) &&
        isMissing(storage.Folder + "/" + kStorageContentName))
        throw TFailure(storage.Folder + " is no storage: it contains neither " + kJournalFileName +
                       " nor " + kStorageContentName);
}

void RequireHeld(const TQvLockFile& lock, const TResStorage& storage)
{
    if (!lock)
        throw TFailure("cannot lock " + storage.Folder + kStorageLockSuffix + ": " +
                       (lock.getHolder().empty() ? CauseText(-lock.getError())
                                                 : "it is locked by " + lock.getHolder()));
}

TResStorage::TLocker Lock(const TResStorage& storage, bool forWriting)
{
    // A wait for the lock is cancelled at once; work under the lock is finished.
    BreakSignal::Remove();
    auto locker = TStorageLocker::VCreate(storage, forWriting);
    RequireHeld(*locker, storage);
    BreakSignal::Install();
    return locker;
}

void Require(bool done, const TResStorage& storage)
{
    const TQvResult& why = storage.Failure();
    if (!done)
        throw TFailure(why.Name() + ": " + CauseText(why.Error() == EBUSY ? EAGAIN : why.Error()),
                       "", why.Error());
}

struct TLook
{
    TJournalReading Reading;
    TJournalEntries Entries;

    bool IsWhole() const
    {
        return Reading.State == TJournalState::Whole && Reading.UnreadBytes == 0;
    }
};

/// Reads the journal and leaves everything as it is: no lock, no repair.
TQvResult LookAtJournal(const TResStorage& storage, TLook* look)
{
    look->Entries.Clear();
    look->Reading = {};
    const std::string path = storage.DirFile().toSysStr();
    TJournalFile file;
    TQvResult result = file.Open(path, TJournalAccess::Look);
    if (result) {
        const auto read = [&](char* buffer, std::size_t count) {
            const std::size_t got = file.Read(buffer, count);
            if (got == TQvStream::invalid_value)
                result = TQvResult::Failed(errno, path);
            return got;
        };
        look->Reading = ReadJournal(read, &look->Entries);
    } else if (result.IsNothing()) {
        look->Reading.State = TJournalState::Missing;
        return TQvResult::Done();
    }
    return result;
}

void Verify(THost& host, const TResStorage& storage)
{
    TLook look;
    TQvResult looked = LookAtJournal(storage, &look);
    const std::string lockFile = storage.Folder + kStorageLockSuffix;
    // A writer may be in the middle of its work: a journal that is not whole is read again with
    // writers excluded, if the storage was ever locked. Without a name, so that the note stays.
    if (!(looked && look.IsWhole()) && QvFileExists(lockFile)) {
        const TQvLockFile lock(lockFile, false, "", storage.Settings.LockTimeout);
        RequireHeld(lock, storage);
        looked = LookAtJournal(storage, &look);
    }
    if (!looked)
        throw TFailure("cannot read " + looked.Name() + ": " + QvErrorText(looked.Error()));
    const std::string finding = JournalFinding(look.Reading);
    host.Out.Line(host.Json ? ToJsonText({{"records", look.Entries.size()}, {"state", finding}})
                            : finding);
    host.Status = look.IsWhole() ? 0 : 1;
}

/// False when the journal is missing or broken. Throws when it could not be read: then it may be
/// whole, and is not repaired.
bool LoadWhole(TResStorage& storage, const TResStorage::TLocker& locker)
{
    const bool loaded = storage.DoLoadDir(locker);
    Require(loaded || storage.Failure(), storage);
    return loaded;
}

/// Loads; a torn tail is cut off, since a rebuild would lose the names and the records that have no
/// content.
void LoadKeepingSealed(TResStorage& storage, const TResStorage::TLocker& exclusive)
{
    if (LoadWhole(storage, exclusive))
        return;
    if (storage.Reading().State == TJournalState::TornTail)
        Require(storage.CutTornTail(exclusive), storage);
    Require(storage.LoadDir(exclusive), storage);
}

void Load(THost& host, TResStorage& storage)
{
    if (!LoadWhole(storage, Lock(storage, false)))
        LoadKeepingSealed(storage, Lock(storage, true));
    if (host.Json) {
        auto records = nlohmann::ordered_json::array();
        for (const auto& [id, name] : storage.Dir())
            PutText(records.emplace_back(RecordOf(std::string(id))), "name", std::string(name));
        host.Out.Line(ToJsonText(records));
        return;
    }
    for (const auto& [id, name] : storage.Dir())
        host.Out.Line(std::string(id).append(1, '\t').append(name));
}

void Change(TResStorage& storage, const std::string& id, bool adding)
{
    if (id.empty() || !TResourceManager::IsValidResId(id, false))
        throw TFailure(Quoted(id) + " is not a valid resource id: " + IdProblem(id), id, EINVAL);
    if (id == "/")
        throw TFailure("a journal has no record of \"/\" itself", id, EINVAL);
    const bool isFolder = id.back() == '/';
    const std::string bare = isFolder ? id.substr(0, id.size() - 1) : id;
    const auto locker = Lock(storage, true);
    LoadKeepingSealed(storage, locker);
    if (!adding && storage.Dir().count(QvNormalizeResId(id)) == 0)
        throw TFailure("the journal has no record of " + Quoted(id), id, ENOENT);
    const bool done = adding ? storage.AddResourceRecord(bare, isFolder, locker)
                             : storage.DeleteResourceRecord(bare, isFolder, locker);
    if (storage.Failure().Error() == EINVAL)
        throw TFailure("a journal cannot contain the id " + Quoted(id), id, EINVAL);
    Require(done, storage);
}
} // namespace

void RunJournal(THost& host, const TJournalCall& call, TStorageSettings settings)
{
    TResStorage storage(std::move(settings));
    storage.Folder = StorageFolder(call.Folder);
    storage.Name = storage.Folder;
    if (call.Operation != "rebuild")
        RequireStorage(storage);
    // Failures are reported by exceptions. Warnings report what a repair has lost or left out.
    QvSetLogSink([](TQvLogKind kind, const TQvMessage& message, int) {
        if (kind == TQvLogKind::Warning)
            PrintError(message.what());
    });
    if (call.Operation == "verify") {
        Verify(host, storage);
    } else if (call.Operation == "load") {
        Load(host, storage);
    } else if (call.Operation == "add" || call.Operation == "remove") {
        Change(storage, call.Id, call.Operation == "add");
    } else {
        const auto locker = Lock(storage, true);
        storage.Settings.ChangeCount2Merge = UINT32_MAX; // loading need not rewrite it, too
        if (call.Operation == "merge")
            LoadKeepingSealed(storage, locker);
        Require(call.Operation == "merge" ? storage.SaveDir(locker) : storage.RecreateDir(locker),
                storage);
    }
}
