// What the tests of the storage share: a storage in a fresh folder, settings, and journals by hand.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <zlib.h>

#include "QvStd/Strings.h"
#include "manager/QvServicesModule.h"
#include "manager/ResourceManager.h"
#include "storage/ResStorage.h"
#include "support/LogCapture.h"
#include "support/TempFolder.h"
#include "support/VarFolder.h"

inline const std::string kJournalHead = ":0123ABCD\r\n;QV5Dir\r\n";

inline std::string Sealed(const std::string& block)
{
    const auto* bytes = reinterpret_cast<const Bytef*>(block.data());
    const auto size = static_cast<uInt>(block.size());
    return block + Korvadel::ssprintf("*%08lX\r\n", crc32(0, bytes, size));
}

class TStorageTest : public testing::Test
{
protected:
    TStorageTest()
    {
        Init_QvServices();
        Configure("");
        Temp.MakeFolder("s");
        Storage = Another();
    }
    ~TStorageTest() override { Deinit_QvServices(); }

    /// Settings that differ from the defaults, as lines of "ResourceManager.x-ini".
    void Configure(const std::string& lines)
    {
        Var.Write("Config/ResourceManager.x-ini", lines);
        ResourceManager.Init();
    }
    /// The same storage as somebody else sees it.
    TResStorage Another() const
    {
        TResStorage storage;
        storage.Name = "S";
        storage.Folder = Temp / "s";
        return storage;
    }
    std::string File() const { return Temp / "s/$QvStorage.list"; }
    std::string Journal() const { return ReadFile(File()); }
    std::string Lock() const { return Temp / "s\\$QvStorage.lock"; }
    void WriteJournal(const std::string& text) const { Temp.Write("s/$QvStorage.list", text); }
    void WriteContent(const std::string& name) const { Temp.Write("s/content/" + name, "x"); }

    TVarFolder Var;
    TTempFolder Temp;
    TResStorage Storage;
};
