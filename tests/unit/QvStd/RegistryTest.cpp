#include "QvStd/Registry.h"

#include <gtest/gtest.h>

#include "support/ChildProcess.h"
#include "support/EnvironmentVariable.h"
#include "support/LogCapture.h"
#include "support/TempFolder.h"

namespace
{
constexpr TQvRegKey kUser = TQvRegKey::User;
const std::string kKey = "Software\\Velmor\\X";

class RegistryTest : public testing::Test
{
protected:
    TTempFolder m_folder;
    TEnvironmentVariable m_setting{"QV_REGISTRY_DIR", m_folder / "reg"};
    std::string m_file = m_folder / "reg/user.x-ini";
};

TEST_F(RegistryTest, FilesOfTheRoots)
{
    EXPECT_EQ(TQvRegMan::filePath(TQvRegKey::Common).toSysStr(), m_folder / "reg/common.x-ini");
    EXPECT_EQ(TQvRegMan::filePath(kUser).toSysStr(), m_file);
    const TEnvironmentVariable unset("QV_REGISTRY_DIR", "");
    const TEnvironmentVariable home("HOME", "/home/somebody");
    EXPECT_EQ(TQvRegMan::filePath(TQvRegKey::Common).toSysStr(), "/etc/velmor/registry.x-ini");
    EXPECT_EQ(TQvRegMan::filePath(kUser).toSysStr(),
              "/home/somebody/.config/velmor/registry.x-ini");
}

TEST_F(RegistryTest, ValuesComeBackWhateverTheCaseOfTheirNames)
{
    const std::string value = " two\nlines \\ \"quoted\" ";
    EXPECT_EQ(TQvRegMan::readString(kUser, kKey, "V"), "");
    ASSERT_TRUE(TQvRegMan::writeString(kUser, kKey, "V", value, true));
    EXPECT_EQ(TQvRegMan::readString(kUser, "SOFTWARE\\velmor\\x", "v"), value);
    EXPECT_EQ(TQvRegMan::readString(kUser, "Software\\Velmor", "V"), "");
    EXPECT_EQ(TQvRegMan::readString(TQvRegKey::Common, kKey, "V"), "") << "the roots are apart";
    ASSERT_TRUE(TQvRegMan::writeString(kUser, "software\\VELMOR\\x", "v", "2", false));
    EXPECT_EQ(TQvRegMan::readString(kUser, kKey, "V"), "2");
    EXPECT_EQ(ReadFile(m_file).find("VELMOR"), std::string::npos) << "no second section";
}

TEST_F(RegistryTest, WithoutCreateNothingIsMade)
{
    EXPECT_FALSE(TQvRegMan::writeString(kUser, kKey, "V", "1", false));
    EXPECT_FALSE(Exists(m_folder / "reg"));
    m_folder.Write("reg/user.x-ini", "; mine\n");
    EXPECT_FALSE(TQvRegMan::writeString(kUser, kKey, "V", "1", false));
    EXPECT_EQ(ReadFile(m_file), "; mine\n");
    EXPECT_FALSE(TQvRegMan::writeString(kUser, "bad]key", "V", "1", true));
    EXPECT_FALSE(TQvRegMan::writeString(kUser, kKey, "bad=name", "1", true));
    EXPECT_EQ(ReadFile(m_file), "; mine\n");
}

TEST_F(RegistryTest, WhatNobodyAskedToChangeStays)
{
    const std::string before = "; mine\nother = 1\n[Software\\Velmor\\X]\n  a=1 \n  v=1\n  V=2\n"
                               "[/]\n[Software\\Velmor\\X]\nv=3\n[/]\n";
    m_folder.Write("reg/user.x-ini", before);
    EXPECT_TRUE(TQvRegMan::removeEntry(kUser, kKey, "V"));
    EXPECT_EQ(TQvRegMan::readString(kUser, kKey, "v"), "");
    EXPECT_EQ(ReadFile(m_file), "; mine\nother = 1\n[Software\\Velmor\\X]\n  a=1 \n"
                                "[/]\n[Software\\Velmor\\X]\nv=3\n[/]\n");
}

TEST_F(RegistryTest, RemovingNothingTouchesNothing)
{
    EXPECT_TRUE(TQvRegMan::removeEntry(kUser, kKey, "V"));
    EXPECT_FALSE(Exists(m_folder / "reg"));
    m_folder.Write("reg/user.x-ini", "[s]\n[/]\n");
    EXPECT_TRUE(TQvRegMan::removeEntry(kUser, kKey, "V"));
    EXPECT_EQ(NamesIn(m_folder / "reg"), std::vector<std::string>{"user.x-ini"}) << "no lock file";
}

TEST_F(RegistryTest, MalformedFileIsLoggedAndNeverOverwritten)
{
    m_folder.Write("reg/user.x-ini", "[Software\\Velmor\\X]\nV=1\n");
    TLogCapture log;
    EXPECT_EQ(TQvRegMan::readString(kUser, kKey, "V"), "");
    ASSERT_EQ(log.Entries.size(), 1u);
    EXPECT_NE(log.Entries[0].Shown.find(m_file), std::string::npos);
    EXPECT_FALSE(TQvRegMan::writeString(kUser, kKey, "V", "2", true));
    EXPECT_FALSE(TQvRegMan::removeEntry(kUser, kKey, "V"));
    EXPECT_EQ(ReadFile(m_file), "[Software\\Velmor\\X]\nV=1\n");
}

TEST_F(RegistryTest, WritersOfTwoProcessesLoseNothing)
{
    constexpr int kValues = 50;
    const auto write = [](const std::string& prefix) {
        for (int i = 0; i < kValues; ++i) {
            const std::string name = prefix + std::to_string(i);
            if (!TQvRegMan::writeString(kUser, kKey, name, name, true))
                return 1;
        }
        return 0;
    };
    TChildProcess first([&] { return write("a"); });
    TChildProcess second([&] { return write("b"); });
    EXPECT_EQ(first.Wait(), 0);
    EXPECT_EQ(second.Wait(), 0);
    for (int i = 0; i < kValues; ++i) {
        for (const std::string prefix : {"a", "b"}) {
            const std::string name = prefix + std::to_string(i);
            EXPECT_EQ(TQvRegMan::readString(kUser, kKey, name), name);
        }
    }
}
} // namespace
