#include "JournalOperations.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <utility>

#include <unistd.h>

#include <nlohmann/json.hpp>

#include "QvStd/Files.h"
#include "QvStd/Log.h"
#include "manager/ResourceManager.h"
#include "resid/ResId.h"
#include "storage/JournalFormat.h"
#include "storage/ResStorage.h"

namespace
{
constexpr int kFailureLevel = 5; ///< at which a storage tells why it could not lock or write

[[noreturn]] void Fail(const std::string& why)
{
    throw std::runtime_error(why);
}

/// What a storage logged last: its operations answer only true or false.
std::string g_reason;
bool g_notRead = false;

void CatchReasons()
{
    QvSetLogSink([](TQvLogKind, const TQvMessage& message, int level) {
        // What a rebuild leaves out is no failure, but who called it has to know.
        if (message.text() == kResStorageLeftOut)
            PrintError(message.what());
        else if (message.text() == kResStorageNotRead)
            g_notRead = true;
        else if (level >= kFailureLevel)
            g_reason = message.what();
    });
}

void Require(bool done, const std::string& otherwise)
{
    if (!done)
        Fail(g_reason.empty() ? otherwise : g_reason);
}

/// One spelling for all, because the lock is named after the text of the folder. Links stay as they
/// are given: hosts that reach the folder through one lock it under that name.
std::string StorageFolder(const std::string& given)
{
    namespace fs = std::filesystem;
    fs::path path;
    for (const fs::path& part : fs::current_path() / given) {
        path /= part;
        if (part == "..") // which leads elsewhere than its text tells, behind a link
            path = fs::weakly_canonical(path);
    }
    std::string folder = path.lexically_normal().string();
    while (folder.size() > 1 && folder.back() == '/')
        folder.pop_back();
    if (folder == "/")
        Fail("\"/\" cannot be a storage folder");
    if (folder.find('\\') != std::string::npos)
        Fail("a storage folder's path cannot hold a backslash: " + folder);
    if (given.empty() || !QvDirExists(folder))
        Fail("no such folder: " + (given.empty() ? "\"\"" : folder));
    return folder;
}

/// A storage waits for a journal that is not to be opened as for a busy one, and does not tell why.
void RequireAccess(const TResStorage& storage, int access)
{
    const std::string journal = storage.DirFile().toSysStr();
    if (::access(journal.c_str(), access) == 0)
        return;
    if (errno != ENOENT)
        Fail("cannot open " + journal + ": " + std::strerror(errno));
    if ((access & W_OK) != 0 && ::access(storage.Folder.c_str(), W_OK) != 0)
        Fail("cannot create " + journal + ": " + std::strerror(errno));
}

std::string LockFile(const TResStorage& storage)
{
    return storage.Folder + kStorageLockSuffix;
}

void RequireHeld(const TQvLockFile& lock, const TResStorage& storage)
{
    if (!lock)
        Fail("cannot lock " + LockFile(storage) + ": " + std::strerror(-lock.getError()));
}

TResStorage::TLocker Lock(const TResStorage& storage, bool forWriting)
{
    const auto locker = TStorageLocker::VCreate(storage, forWriting);
    RequireHeld(*locker, storage);
    return locker;
}

/// Holds back what would end the process in the middle of a rewrite, after which a journal is
/// rebuilt without the records that have no content. Made when the lock is held already, so that
/// waiting for it can be broken off.
class TDeferredSignals
{
public:
    TDeferredSignals()
    {
        sigset_t deferred;
        sigemptyset(&deferred);
        for (const int signalNumber : {SIGHUP, SIGINT, SIGTERM})
            sigaddset(&deferred, signalNumber);
        sigprocmask(SIG_BLOCK, &deferred, &m_before);
    }
    ~TDeferredSignals() { sigprocmask(SIG_SETMASK, &m_before, nullptr); }
    TDeferredSignals(const TDeferredSignals&) = delete;
    TDeferredSignals& operator=(const TDeferredSignals&) = delete;

private:
    sigset_t m_before;
};

void Print(const std::string& text)
{
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
        Fail(std::string("cannot write to the standard output: ") + std::strerror(errno));
}

void PrintJson(const nlohmann::json& value)
{
    // Names are bytes: what is no UTF-8 is shown with U+FFFD in its place.
    Print(value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
}

struct TLook
{
    bool Missing = false;
    TJournalReading Reading;
    TJournalEntries Entries;

    bool IsWhole() const
    {
        return !Missing && Reading.State == TJournalState::Whole && Reading.UnreadBytes == 0;
    }
};

/// Reads the journal and leaves everything as it is: no lock, no repair.
TLook LookAtJournal(const TResStorage& storage)
{
    TLook look;
    std::string bytes;
    const std::string file = storage.DirFile().toSysStr();
    if (QvReadWholeFile(file, &bytes))
        look.Reading = ReadJournal(bytes, &look.Entries);
    else if (errno == ENOENT)
        look.Missing = true;
    else
        Fail("cannot read " + file + ": " + std::strerror(errno));
    return look;
}

std::string Finding(const TLook& look)
{
    if (look.Missing)
        return "missing";
    switch (look.Reading.State) {
    case TJournalState::Damaged:
        return "damage at byte " + std::to_string(look.Reading.SealedBytes);
    case TJournalState::BadSignature:
        return "bad signature";
    default:
        return look.IsWhole() ? "whole" : "torn tail";
    }
}

TLook LookTwice(const TResStorage& storage)
{
    TLook look = LookAtJournal(storage);
    // A writer may be in the middle of its work: what is not whole is looked at again with the
    // writers kept out, in a storage that anybody has ever locked.
    if (!look.IsWhole() && QvFileExists(LockFile(storage))) {
        // Without a name, so that the last holder's stays there.
        const TQvLockFile lock(LockFile(storage), false, "",
                               ResourceManager.Config().StDirLockTimeout);
        RequireHeld(lock, storage);
        look = LookAtJournal(storage);
    }
    return look;
}

int Verify(const TResStorage& storage, bool json)
{
    const TLook look = LookTwice(storage);
    if (json)
        PrintJson({{"state", Finding(look)}, {"records", look.Entries.size()}});
    else
        Print(Finding(look) + "\n");
    return look.IsWhole() ? 0 : 1;
}

/// The storage does not test its writes: this is where a full disk shows. Half a line behind the
/// last block is left to others.
void RequireSealed(const TLook& look, const TResStorage& storage)
{
    if (look.Missing || look.Reading.State != TJournalState::Whole)
        Fail("the journal was not written whole (" + Finding(look) +
             "): " + storage.DirFile().toSysStr());
}

std::pair<std::uint64_t, TQvDateTime> SizeAndTime(const TResStorage& storage)
{
    TQvFileInfo info;
    QvGetFileInfo(storage.DirFile().toSysStr(), &info);
    return {info.Size, info.UpdateTime};
}

/// Loads under a lock that is held; false when the journal is missing or broken. What loading wrote
/// anew has to be whole and on the disk. A journal that could not be read is never rebuilt: it may
/// be whole, and a rebuild loses the records without content.
bool LoadWhole(TResStorage& storage, const TResStorage::TLocker& locker)
{
    g_notRead = false;
    const auto before = SizeAndTime(storage);
    const bool loaded = storage.DoLoadDir(locker);
    if (SizeAndTime(storage) != before) {
        if (!g_reason.empty())
            Fail(g_reason);
        RequireSealed(LookAtJournal(storage), storage);
    }
    if (g_notRead)
        Fail("cannot open or read " + storage.DirFile().toSysStr() +
             " (another program may keep it for itself)");
    g_reason.clear(); // why it was not shortened
    return loaded;
}

void RequireWritten(bool done, const TResStorage& storage)
{
    Require(done && g_reason.empty(), "cannot write the journal of " + storage.Folder);
    RequireSealed(LookAtJournal(storage), storage);
}

void LoadOrRepair(TResStorage& storage, const TResStorage::TLocker& exclusive)
{
    if (LoadWhole(storage, exclusive))
        return;
    RequireWritten(storage.RecreateDir(exclusive), storage);
    if (!LoadWhole(storage, exclusive))
        Fail("cannot load the journal of " + storage.Folder);
}

void Load(TResStorage& storage)
{
    {
        const auto shared = Lock(storage, false);
        const TDeferredSignals deferred;
        if (LoadWhole(storage, shared))
            return;
    }
    RequireAccess(storage, W_OK);
    const auto exclusive = Lock(storage, true);
    const TDeferredSignals deferred;
    LoadOrRepair(storage, exclusive);
}

void LoadAndPrint(TResStorage& storage, bool json)
{
    Load(storage);
    if (json) {
        auto records = nlohmann::json::array();
        for (const auto& [id, name] : storage.Dir())
            records.push_back({{"id", id}, {"name", name}});
        PrintJson(records);
        return;
    }
    std::string text;
    for (const auto& [id, name] : storage.Dir())
        text.append(id).append(1, '\t').append(name).append(1, '\n');
    Print(text);
}

/// Leaves only the first bytes of the journal; needs no room on the disk.
bool CutTo(const TResStorage& storage, std::uint64_t size)
{
    TQvFileStream stream(storage.DirFile(), kQvOpenWrite, kQvShareAll);
    return stream && stream.setSize(size) && stream.Flush() && stream.Close();
}

/// Loads first, so that a broken journal is repaired before anything is put behind it, and cuts off
/// half a line at its end: loading does not see it, and it would make one line with what follows.
/// The size that the journal has then.
std::uint64_t LoadForChange(TResStorage& storage, const TResStorage::TLocker& exclusive)
{
    LoadOrRepair(storage, exclusive);
    const TLook look = LookAtJournal(storage);
    RequireSealed(look, storage);
    if (!look.IsWhole() && !CutTo(storage, look.Reading.SealedBytes))
        Fail("cannot cut half a line off " + storage.DirFile().toSysStr());
    return look.Reading.SealedBytes;
}

bool IsThere(const TLook& look, const std::string& key, const std::string& name)
{
    const auto record = look.Entries.find(key);
    return record != look.Entries.end() && record->second == name;
}

void Change(TResStorage& storage, const std::string& id, bool adding)
{
    if (id.empty() || id == "/" || !ResourceManager.IsValidResId(id, false))
        Fail("no valid id of a resource or folder: " + id);
    const bool isFolder = id.back() == '/';
    const std::string bare = isFolder ? id.substr(0, id.size() - 1) : id;
    const std::string key = QvNormalizeResId(id);
    const auto locker = Lock(storage, true);
    const TDeferredSignals deferred;
    const std::uint64_t size = LoadForChange(storage, locker);
    if (!adding && storage.Dir().count(key) == 0)
        Fail("the journal has no record of " + id);

    const bool done = adding ? storage.AddResourceRecord(bare, isFolder, locker)
                             : storage.DeleteResourceRecord(bare, isFolder, locker);
    Require(done, "cannot write the journal of " + storage.Folder);
    const bool synced = g_reason.empty();
    const TLook look = LookAtJournal(storage);
    const bool changed =
        adding ? IsThere(look, key, QvExtractResName(bare)) : look.Entries.count(key) == 0;
    if (synced && look.IsWhole() && changed)
        return;
    const bool asItWas = CutTo(storage, size);
    Fail("the change of " + id + " could not be written to " + storage.DirFile().toSysStr() +
         (asItWas ? ", which is as it was" : ""));
}

void Rewrite(TResStorage& storage, bool fromContent)
{
    const auto locker = Lock(storage, true);
    const TDeferredSignals deferred;
    // Not MergeDir, which does not tell what came of its two steps.
    if (!fromContent)
        LoadOrRepair(storage, locker);
    RequireWritten(fromContent ? storage.RecreateDir(locker) : storage.SaveDir(locker), storage);
}
} // namespace

void PrintError(std::string message)
{
    std::replace_if(
        message.begin(), message.end(), [](char c) { return c >= 0 && c < 0x20; }, ' ');
    std::fprintf(stderr, "qvres: %s\n", message.c_str());
}

int RunJournal(const TJournalCall& call)
{
    CatchReasons();
    TResStorage storage;
    storage.Folder = StorageFolder(call.Folder);
    storage.Name = storage.Folder;
    const bool reads = call.Operation == "load" || call.Operation == "verify";
    RequireAccess(storage, reads ? R_OK : R_OK | W_OK);
    if (call.Operation == "verify")
        return Verify(storage, call.Json);
    if (call.Operation == "load")
        LoadAndPrint(storage, call.Json);
    else if (call.HasId)
        Change(storage, call.Id, call.Operation == "add");
    else
        Rewrite(storage, call.Operation == "rebuild");
    return 0;
}
