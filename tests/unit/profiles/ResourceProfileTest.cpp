#include "profiles/ResourceProfile.h"

#include <gtest/gtest.h>

#include "QvStd/Message.h"
#include "support/LogCapture.h"
#include "support/TempFolder.h"
#include "support/TestProgress.h"

namespace
{
std::string Mount(const std::string& name, const std::string& path)
{
    return "[mount]\nnode=" + name + "\npath=" + path + "\n[/mount]\n";
}

class ResourceProfile : public testing::Test
{
protected:
    void Load(const std::string& text, TQvProgressHandler* handler = nullptr)
    {
        Profile.LoadE(GetXIniReader(TQvPath(Temp.Write("profile.x-ini", text))).get(), handler);
    }

    TTempFolder Temp;
    TQvResourceProfile Profile;
};

constexpr char kBegin[] = "[profile]\nremote=2\n";
constexpr char kEnd[] = "[/profile]\n";

TEST_F(ResourceProfile, SaveWritesWhatLoadKept)
{
    Load(kBegin + Mount("/Data", "/srv") + Mount("", "/unnamed") + Mount("/Bad", "\"/x\\n\"") +
         "[mount]\nnode=/Group\n[storagegroup]\n[/storagegroup]\n[/mount]\n" +
         "[mount]\nnode=/NoPath\n[/mount]\n" + Mount("/dATA", "\\srv\\later") + kEnd);
    EXPECT_TRUE(Profile.FreeSpaceIncomplete) << "a storage group cannot be counted";
    EXPECT_EQ(Profile.TotalFreeSpace, 0u) << "no map is attached";
    Profile.Nodes["/DATA"].Path = TQvPath("/srv/trailing ");
    const auto writer = GetXIniWriter(TQvPath(Temp / "saved"));
    Profile.SaveE(writer.get());
    writer->CommitE();
    EXPECT_EQ(ReadFile(Temp / "saved"),
              "[profile]\n  remote=1\n"
              "  [mount]\n    node=/dATA\n    path=\"/srv/trailing \"\n  [/mount]\n"
              "  [mount]\n    node=/Group\n    [storagegroup]\n    [/storagegroup]\n  [/mount]\n"
              "[/profile]\n");
    EXPECT_THROW(Profile.SaveE(writer.get()), TQvMessage) << "it takes nothing more";
}

TEST_F(ResourceProfile, MissingSectionOrKeyThrows)
{
    for (const char* text : {"remote=0\n", "[profile]\n[/profile]\n", "[profile]\nremote=x\n[/]"}) {
        Profile.Nodes["/OLD"];
        Profile.TotalFreeSpace = 5;
        EXPECT_THROW(Load(text), TQvMessage) << text;
        EXPECT_TRUE(Profile.Nodes.empty()) << text;
        EXPECT_EQ(Profile.TotalFreeSpace, 0u) << text;
    }
}

TEST_F(ResourceProfile, FreeSpaceCountsAVolumeOnce)
{
    Profile.FreeSpaceMap = TQvFreeSpaceMap::VCreate();
    const std::string one = Mount("/A", Temp.MakeFolder("a"));
    Load(kBegin + one + kEnd);
    const std::uint64_t free = Profile.TotalFreeSpace;
    EXPECT_FALSE(Profile.FreeSpaceIncomplete);
    TLogCapture log;
    TTestProgress progress;
    progress.Start();
    Load(kBegin + one + Mount("/B", Temp.Path()) + Mount("/C", "/no/such") + kEnd, &progress);
    EXPECT_LT(Profile.TotalFreeSpace, free + free / 2);
    EXPECT_TRUE(Profile.FreeSpaceIncomplete);
    EXPECT_EQ(progress.Positions, (std::vector<double>{0, 1.0 / 3, 1.0 / 3, 2.0 / 3, 2.0 / 3, 1}));
    EXPECT_EQ(log.Entries.at(2).Shown, "Reading the free space of \"/no/such\".");
}
} // namespace
