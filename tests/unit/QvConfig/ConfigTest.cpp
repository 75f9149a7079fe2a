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

    void SetVarPath(TQvRegKey root, const std::string& folder) const
    {
        ASSERT_TRUE(
            TQvRegMan::writeString(root, QvGetStaticConfigString(11), "VarPath", folder, true));
    }

    TTempFolder m_folder;
    TEnvironmentVariable m_registry{"QV_REGISTRY_DIR", m_folder / "reg"};
    TEnvironmentVariable m_var{"QV_VAR_FOLDER", ""};
};

TEST_F(ConfigTest, NothingConfigured)
{
    EXPECT_EQ(QvGetConfigString(9, true), "");
    Init_QvConfig();
    ASSERT_NE(pQvConfigData, nullptr);
    EXPECT_FALSE(pQvConfigData->getLoaded());
    EXPECT_EQ(QvGetConfigString(9, true), "");
    EXPECT_NE(pQvConfigData->getComputerName(), "");
    bool isCommon = true;
    EXPECT_EQ(pQvConfigData->getVarFolderSetting(true, &isCommon), "");
    EXPECT_TRUE(isCommon) << "left alone";
    Deinit_QvConfig();
    EXPECT_EQ(pQvConfigData, nullptr);
}

TEST_F(ConfigTest, WhereTheVarFolderComesFrom)
{
    const TQvConfigData data;
    const auto setting = [&data](bool wantCommon) {
        bool isCommon = false;
        const std::string folder = data.getVarFolderSetting(wantCommon, &isCommon);
        return folder + (isCommon ? " common" : " user");
    };
    SetVarPath(TQvRegKey::Common, "/c");
    EXPECT_EQ(setting(true), "/c common");
    EXPECT_EQ(setting(false), " user") << "the common root is not asked";
    SetVarPath(TQvRegKey::User, "/u");
    EXPECT_EQ(setting(true), "/c common");
    EXPECT_EQ(setting(false), "/u user");
    EXPECT_TRUE(TQvRegMan::removeEntry(TQvRegKey::Common, QvGetStaticConfigString(11), "VarPath"));
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
    EXPECT_EQ(pQvConfigData->getCurProfileName(), "My Profile");
    EXPECT_EQ(QvGetConfigString(9, true), m_folder / "var/Config/");
    EXPECT_EQ(QvGetConfigString(12, true), m_folder / "var/Profiles/My Profile/profile.x-ini");
    EXPECT_EQ(QvGetConfigString(10, false), "");
    try {
        QvGetConfigString(10, true);
        ADD_FAILURE();
    } catch (const TQvMessage& message) {
        EXPECT_EQ(message.arguments(), std::vector<std::string>{"10"});
    }

    m_folder.Write("var/policy.x-ini", "profile=../../Two\n");
    Init_QvConfig();
    EXPECT_EQ(QvGetConfigString(12, true), m_folder / "var/Profiles/Two/profile.x-ini")
        << "read anew, and never outside the folder";
}

TEST_F(ConfigTest, MalformedPolicyIsLoggedAndCountsAsEmpty)
{
    const TEnvironmentVariable var("QV_VAR_FOLDER", m_folder / "var");
    const std::string path = m_folder.Write("var/policy.x-ini", "profile=P\nnonsense\n");
    TLogCapture log;
    Init_QvConfig();
    EXPECT_TRUE(pQvConfigData->getLoaded());
    EXPECT_EQ(pQvConfigData->getCurProfileName(), "");
    ASSERT_EQ(log.Entries.size(), 1u);
    EXPECT_NE(log.Entries[0].Shown.find(path), std::string::npos);
}
} // namespace
