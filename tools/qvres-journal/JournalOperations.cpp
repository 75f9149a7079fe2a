#include "JournalOperations.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "QvStd/Files.h"
#include "QvStd/Log.h"
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

/// The reason that a storage last logged: its operations answer only true or false.
std::string& LastReason()
{
    static std::string reason;
    return reason;
}

void CatchReasons()
{
    QvSetLogSink([](TQvLogKind, const TQvMessage& message, int level) {
        if (level >= kFailureLevel)
            LastReason() = message.what();
    });
}

void Require(bool done, const std::string& otherwise)
{
    if (!done)
        Fail(LastReason().empty() ? otherwise : LastReason());
}

/// One spelling for all, because the lock is named after the text of the folder.
std::string StorageFolder(const std::string& given)
{
    std::string folder = std::filesystem::absolute(given).lexically_normal().string();
    while (folder.size() > 1 && folder.back() == '/')
        folder.pop_back();
    if (folder == "/")
        Fail("\"/\" cannot be a storage folder");
    if (folder.find('\\') != std::string::npos)
        Fail("a storage folder's path cannot hold a backslash: " + folder);
    if (!QvDirExists(folder))
        Fail("no such folder: " + folder);
    return folder;
}

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

int Verify(const TResStorage& storage, bool json)
{
    TLook look = LookAtJournal(storage);
    // A writer may be in the middle of its work: what is not whole is looked at again with the
    // writers kept out, in a storage that anybody has ever locked.
    if (!look.IsWhole() && QvFileExists(storage.Folder + kStorageLockSuffix)) {
        const auto locker = TStorageLocker::VCreate(storage, false);
        if (!*locker)
            Fail("the storage is locked: " + storage.Folder);
        look = LookAtJournal(storage);
    }
    if (json)
        PrintJson({{"state", Finding(look)}, {"records", look.Entries.size()}});
    else
        Print(Finding(look) + "\n");
    return look.IsWhole() ? 0 : 1;
}

/// Writes are not tested by the storage: this is where a full disk shows.
TLook RequireWhole(const TResStorage& storage)
{
    TLook look = LookAtJournal(storage);
    if (!look.IsWhole())
        Fail("the journal was not written whole (" + Finding(look) +
             "): " + storage.DirFile().toSysStr());
    return look;
}

void LoadAndPrint(TResStorage& storage, bool json)
{
    Require(storage.LoadDir(), "cannot load the journal of " + storage.Folder);
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

void Change(TResStorage& storage, const std::string& id, bool adding)
{
    const auto locker = TStorageLocker::VCreate(storage, true);
    // Loading first, so that a broken journal is repaired before anything is put behind it.
    Require(storage.LoadDir(locker), "cannot load the journal of " + storage.Folder);
    const bool isFolder = !id.empty() && id.back() == '/';
    const std::string bare = isFolder ? id.substr(0, id.size() - 1) : id;
    const std::string key = QvNormalizeResId(id);
    if (!adding && storage.Dir().count(key) == 0)
        Fail("the journal has no record of " + id);

    const bool done = adding ? storage.AddResourceRecord(bare, isFolder, locker)
                             : storage.DeleteResourceRecord(bare, isFolder, locker);
    Require(done, "cannot write the journal of " + storage.Folder);
    const TLook look = RequireWhole(storage);
    const auto record = look.Entries.find(key);
    const bool there = record != look.Entries.end() && record->second == QvExtractResName(bare);
    if (adding != there)
        Fail("the change of " + id + " is not in the journal");
}
} // namespace

int RunJournal(const TJournalCall& call)
{
    CatchReasons();
    TResStorage storage;
    storage.Folder = StorageFolder(call.Folder);
    storage.Name = storage.Folder;
    if (call.Operation == "verify")
        return Verify(storage, call.Json);
    if (call.Operation == "load") {
        LoadAndPrint(storage, call.Json);
    } else if (call.Operation == "add" || call.Operation == "remove") {
        Change(storage, call.Id, call.Operation == "add");
    } else {
        const auto locker = TStorageLocker::VCreate(storage, true);
        const bool done =
            call.Operation == "rebuild" ? storage.RecreateDir(locker) : storage.MergeDir(locker);
        Require(done, "cannot write the journal of " + storage.Folder);
        RequireWhole(storage);
    }
    return 0;
}
