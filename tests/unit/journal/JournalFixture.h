// For the tests of the journal: a storage in a fresh folder, and journals made of text.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <zlib.h>

#include "QvStd/Strings.h"
#include "journal/ResStorage.h"
#include "support/LogCapture.h"
#include "support/TempFolder.h"

inline const std::string kJournalHead = ":0123ABCD\r\n;QV5Dir\r\n";

inline std::string Sealed(const std::string& block)
{
    const auto* bytes = reinterpret_cast<const Bytef*>(block.data());
    const auto size = static_cast<uInt>(block.size());
    return block + Korvadel::ssprintf("*%08lX\r\n", crc32(0, bytes, size));
}

using TEntries = std::map<std::string, std::string>;

inline TEntries Copied(const TJournalEntries& entries)
{
    return {entries.begin(), entries.end()};
}

class TStorageTest : public testing::Test
{
protected:
    TStorageTest()
    {
        Temp.MakeFolder("s");
        Storage = Another();
    }

    /// The same storage as another process sees it.
    TResStorage Another() const
    {
        TResStorage storage({10000, 256, "PC"});
        storage.Name = "S";
        storage.Folder = Temp / "s";
        return storage;
    }
    std::string File() const { return Temp / "s/$QvStorage.list"; }
    std::string Damaged() const { return File() + ".damaged"; }
    std::string Journal() const { return ReadFile(File()); }
    std::string Lock() const { return Temp / "s\\$QvStorage.lock"; }
    void WriteJournal(const std::string& text) const { Temp.Write("s/$QvStorage.list", text); }
    void WriteContent(const std::string& name) const { Temp.Write("s/content/" + name, "x"); }

    TTempFolder Temp;
    TResStorage Storage;
};
