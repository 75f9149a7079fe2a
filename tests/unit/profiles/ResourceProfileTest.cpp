#include "profiles/ResourceProfile.h"

#include <gtest/gtest.h>

#include "QvStd/Message.h"
#include "support/LogCapture.h"
#include "support/TempFolder.h"
#include "support/TestProgress.h"

namespace
{
TQvResourceProfile Load(const std::string& text, bool countSpace = false,
                        TQvProgressHandler* handler = nullptr)
{
    TTempFolder temp;
    TQvResourceProfile profile;
    if (countSpace)
        profile.FreeSpaceMap = TQvFreeSpaceMap::VCreate();
    profile.LoadE(GetXIniReader(TQvPath(temp.Write("profile.x-ini", text))).get(), handler);
    return profile;
}

TEST(ResourceProfile, LoadKeepsWhatIsAMount)
{
    const TQvResourceProfile profile =
        Load("[profile]\nremote=2\n"
             "[mount]\nnode=/Data\npath=/srv\n[/mount]\n"
             "[mount]\nnode=/Group\n[storagegroup]\n[/storagegroup]\n[/mount]\n"
             "[mount]\nnode=\npath=/unnamed\n[/mount]\n"
             "[mount]\nnode=/NoPath\n[/mount]\n"
             "[mount]\nnode=/Bad\npath=\"/x\\n\"\n[/mount]\n"
             "[mount]\nnode=/DATA\npath=\\srv\\later\n[/mount]\n"
             "[/profile]\n");
    EXPECT_TRUE(profile.Remote);
    ASSERT_EQ(profile.Nodes.size(), 2u);
    const TQvResourceProfile::TNode& data = profile.Nodes.at("/DATA");
    EXPECT_EQ(data.Kind, kProfileNodePath);
    EXPECT_EQ(data.Name, "/DATA") << "a later section replaces one whose name differs only in case";
    EXPECT_EQ(data.Path.toSysStr(), "/srv/later");
    EXPECT_EQ(data.VolumeSerial, TQvFreeSpaceMap::InvalidVolSerial);
    EXPECT_EQ(profile.Nodes.at("/GROUP").Kind, kProfileNodeStorageGroup);
    EXPECT_TRUE(profile.FreeSpaceIncomplete) << "a storage group cannot be counted";
    EXPECT_EQ(profile.TotalFreeSpace, 0u) << "no map is attached";
}

TEST(ResourceProfile, MissingSectionOrKeyThrows)
{
    for (const char* text :
         {"", "remote=0\n", "[profile]\n[/profile]\n", "[profile]\nremote=x\n[/profile]\n"})
        EXPECT_THROW(Load(text), TQvMessage) << text;
    TQvResourceProfile profile;
    profile.Name = "kept";
    profile.Nodes["/OLD"];
    profile.TotalFreeSpace = 5;
    TTempFolder temp;
    const auto reader = GetXIniReader(TQvPath(temp.Write("p", "[profile]\n[/profile]\n")));
    EXPECT_THROW(profile.LoadE(reader.get(), nullptr), TQvMessage);
    EXPECT_TRUE(profile.Nodes.empty());
    EXPECT_EQ(profile.TotalFreeSpace, 0u);
    EXPECT_EQ(profile.Name, "kept");
}

TEST(ResourceProfile, FreeSpaceCountsAVolumeOnce)
{
    TTempFolder temp;
    const auto mount = [](const std::string& name, const std::string& path) {
        return "[mount]\nnode=" + name + "\npath=" + path + "\n[/mount]\n";
    };
    const std::string one = mount("/A", temp.MakeFolder("a"));
    const std::string two = one + mount("/B", temp.MakeFolder("b"));
    const TQvResourceProfile single = Load("[profile]\nremote=0\n" + one + "[/profile]\n", true);
    EXPECT_GT(single.TotalFreeSpace, 0u);
    EXPECT_FALSE(single.FreeSpaceIncomplete);
    EXPECT_NE(single.Nodes.at("/A").VolumeSerial, TQvFreeSpaceMap::InvalidVolSerial);

    TLogCapture log;
    TTestProgress progress;
    progress.Start();
    const TQvResourceProfile both = Load(
        "[profile]\nremote=0\n" + two + mount("/C", "/no/such") + "[/profile]\n", true, &progress);
    EXPECT_LT(both.TotalFreeSpace, single.TotalFreeSpace + single.TotalFreeSpace / 2);
    EXPECT_TRUE(both.FreeSpaceIncomplete);
    EXPECT_EQ(progress.Positions, (std::vector<double>{0, 1.0 / 3, 1.0 / 3, 2.0 / 3, 2.0 / 3, 1}));
    ASSERT_EQ(log.Entries.size(), 3u);
    EXPECT_EQ(log.Entries[2].Shown, "Reading the free space of \"/no/such\".");
    EXPECT_EQ(log.Entries[2].Level, 3);
}

TEST(ResourceProfile, SaveWritesWhatLoadReads)
{
    TQvResourceProfile profile =
        Load("[profile]\nremote=1\n"
             "[mount]\nnode=/b\npath=/srv/with blank \n[/mount]\n"
             "[mount]\nnode=/A\n[storagegroup]\n[/storagegroup]\n[/mount]\n[/profile]\n");
    profile.Nodes["/B"].Path = TQvPath("/srv/trailing ");
    TTempFolder temp;
    const std::string file = temp / "profile.x-ini";
    const auto writer = GetXIniWriter(TQvPath(file));
    profile.SaveE(writer.get());
    writer->CommitE();
    EXPECT_EQ(ReadFile(file),
              "[profile]\n  remote=1\n"
              "  [mount]\n    node=/A\n    [storagegroup]\n    [/storagegroup]\n  [/mount]\n"
              "  [mount]\n    node=/b\n    path=\"/srv/trailing \"\n  [/mount]\n[/profile]\n");
    EXPECT_EQ(Load(ReadFile(file)).Nodes.at("/B").Path, profile.Nodes.at("/B").Path);
    EXPECT_THROW(profile.SaveE(writer.get()), TQvMessage)
        << "a committed writer takes nothing more";
}
} // namespace
