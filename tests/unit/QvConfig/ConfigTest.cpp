#include "QvConfig/Config.h"

#include <gtest/gtest.h>

#include "QvStd/Message.h"
#include "QvStd/Registry.h"
#include "support/EnvironmentVariable.h"
#include "support/LogCapture.h"
#include "support/TempFolder.h"

namespace
{
class ConfigTest : public testing::Test
{
protected:
    ~ConfigTest() override { Deinit_QvConfig(); }

    TTempFolder m_folder;
    TEnvironmentVariable m_registry{"QV_REGISTRY_DIR", m_folder / "reg"};
    TEnvironmentVariable m_var{"QV_VAR_FOLDER", ""};
};

TEST_F(ConfigTest, WhereTheVarFolderComesFrom)
{
    Init_QvConfig();
    EXPECT_FALSE(pQvConfigData->getLoaded());
    EXPECT_EQ(QvGetConfigString(9, true), "");
    const auto setting = [](bool wantCommon) {
        bool isCommon = false;
        const std::string folder = pQvConfigData->getVarFolderSetting(wantCommon, &isCommon);
        return folder + (isCommon ? " common" : " user");
    };
    const std::string key = QvGetStaticConfigString(11);
    TQvRegMan::writeString(TQvRegKey::Common, key, "VarPath", "/c", true);
    EXPECT_EQ(setting(true), "/c common");
    EXPECT_EQ(setting(false), " user") << "the common root is not asked";
    TQvRegMan::writeString(TQvRegKey::User, key, "VarPath", "/u", true);
    EXPECT_EQ(setting(true), "/c common");
    EXPECT_EQ(setting(false), "/u user");
    TQvRegMan::removeEntry(TQvRegKey::Common, key, "VarPath");
    EXPECT_EQ(setting(true), "/u user");
    const TEnvironmentVariable var("QV_VAR_FOLDER", "/e");
    EXPECT_EQ(setting(true), "/e user");
}

TEST_F(ConfigTest, StringsFollowTheProfile)
{
    const TEnvironmentVariable var("QV_VAR_FOLDER", m_folder / "var");
    m_folder.Write("var/policy.x-ini", "repository=/r\nprofile=My Profile\n");
    Init_QvConfig();
    EXPECT_TRUE(pQvConfigData->getLoaded());
    EXPECT_EQ(QvGetConfigString(9, true), m_folder / "var/Config/");
    EXPECT_EQ(QvGetConfigString(12, true), m_folder / "var/Profiles/My Profile/profile.x-ini");
    EXPECT_EQ(QvGetConfigString(10, false), "");
    EXPECT_THROW(QvGetConfigString(10, true), TQvMessage);

    m_folder.Write("var/policy.x-ini", "profile=../../Two\n");
    Init_QvConfig();
    EXPECT_EQ(QvGetConfigString(12, true), m_folder / "var/Profiles/Two/profile.x-ini")
        << "read anew, and never outside the folder";

    const std::string path = m_folder.Write("var/policy.x-ini", "profile=P\nnonsense\n");
    TLogCapture log;
    Init_QvConfig();
    EXPECT_TRUE(pQvConfigData->getLoaded());
    EXPECT_EQ(pQvConfigData->getCurProfileName(), "") << "malformed: it counts as empty";
    ASSERT_EQ(log.Entries.size(), 1u);
    EXPECT_NE(log.Entries[0].Shown.find(path), std::string::npos);
}
} // namespace
