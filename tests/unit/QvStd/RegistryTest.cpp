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

TEST_F(RegistryTest, NamesIgnoreLetterCase)
{
    const std::string value = " two\nlines \\ \"quoted\" ";
    ASSERT_TRUE(TQvRegMan::writeString(kUser, kKey, "V", value, true));
    EXPECT_EQ(TQvRegMan::readString(kUser, "SOFTWARE\\velmor\\x", "v"), value);
    EXPECT_EQ(TQvRegMan::readString(kUser, "Software\\Velmor", "V"), "");
    EXPECT_EQ(TQvRegMan::readString(TQvRegKey::Common, kKey, "V"), "") << "the roots are apart";
    ASSERT_TRUE(TQvRegMan::writeString(kUser, "software\\VELMOR\\x", "v", "2", false));
    EXPECT_EQ(TQvRegMan::readString(kUser, kKey, "V"), "2");
    EXPECT_EQ(ReadFile(m_file).find("VELMOR"), std::string::npos) << "no second section";
    const TEnvironmentVariable unset("QV_REGISTRY_DIR", "");
    const TEnvironmentVariable relative("HOME", "home");
    EXPECT_NE(TQvPath::homeDir().toSysStr(), "home") << "not in the current folder";
    const TEnvironmentVariable home("HOME", "/h");
    EXPECT_EQ(TQvRegMan::filePath(TQvRegKey::Common).toSysStr(), "/etc/velmor/registry.x-ini");
    EXPECT_EQ(TQvRegMan::filePath(kUser).toSysStr(), "/h/.config/velmor/registry.x-ini");
}

TEST_F(RegistryTest, ChangesOnlyTheNamedValue)
{
    EXPECT_TRUE(TQvRegMan::removeEntry(kUser, kKey, "V"));
    EXPECT_FALSE(TQvRegMan::writeString(kUser, kKey, "V", "1", false)) << "without create";
    EXPECT_FALSE(Exists(m_folder / "reg"));
    const std::string rest = "[/]\n[Software\\Velmor\\X]\nv=3\n[/]\n";
    const std::string kept = "; mine\nother = 1\n[Software\\Velmor\\X]\n  a=1 \n";
    m_folder.Write("reg/user.x-ini", kept + "  v=1\n  V=2\n" + rest);
    EXPECT_FALSE(TQvRegMan::writeString(kUser, "Other", "V", "1", false));
    EXPECT_FALSE(TQvRegMan::writeString(kUser, "bad]key", "V", "1", true));
    EXPECT_FALSE(TQvRegMan::writeString(kUser, kKey, "bad=name", "1", true));
    EXPECT_TRUE(TQvRegMan::removeEntry(kUser, kKey, "V"));
    EXPECT_EQ(TQvRegMan::readString(kUser, kKey, "v"), "");
    EXPECT_EQ(ReadFile(m_file), kept + rest);

    const std::string malformed = "[Software\\Velmor\\X]\nV=1\n";
    m_folder.Write("reg/user.x-ini", malformed);
    TLogCapture log;
    std::string value = "kept";
    EXPECT_EQ(TQvRegMan::readString(kUser, kKey, "V", &value).Error(), EBADMSG);
    EXPECT_EQ(value, "kept");
    EXPECT_NE(log.Entries.at(0).Shown.find(m_file), std::string::npos);
    EXPECT_FALSE(TQvRegMan::writeString(kUser, kKey, "V", "2", true));
    EXPECT_FALSE(TQvRegMan::removeEntry(kUser, kKey, "V"));
    EXPECT_EQ(ReadFile(m_file), malformed);
}

TEST_F(RegistryTest, WritersOfTwoProcessesLoseNothing)
{
    const auto write = [](const std::string& prefix) {
        for (int i = 0; i < 50; ++i)
            if (!TQvRegMan::writeString(kUser, kKey, prefix + std::to_string(i), "1", true))
                return 1;
        return 0;
    };
    TChildProcess other([&] { return write("a"); });
    EXPECT_EQ(write("b"), 0);
    EXPECT_EQ(other.Wait(), 0);
    for (int i = 0; i < 100; ++i) {
        const std::string name = (i < 50 ? "a" : "b") + std::to_string(i % 50);
        EXPECT_EQ(TQvRegMan::readString(kUser, kKey, name), "1") << name;
    }
}
} // namespace
