#include "QvConfig/Config.h"

#include <gtest/gtest.h>

#include "QvStd/Message.h"
#include "support/LogCapture.h"
#include "support/VarFolder.h"

namespace
{
TEST(Config, StringsFollowTheProfile)
{
    const TVarFolder var;
    const auto start = [&var](const std::string& policy) {
        var.Write("policy.x-ini", policy);
        Init_QvConfig();
        EXPECT_TRUE(pQvConfigData->getLoaded());
    };
    EXPECT_EQ(QvGetConfigString(9, true), "") << "nothing is started";
    start("repository=/r\nprofile=My Profile\n");
    EXPECT_EQ(QvGetConfigString(9, true), var.Path() + "/Config/");
    EXPECT_EQ(QvGetConfigString(12, true), var.Path() + "/Profiles/My Profile/profile.x-ini");
    EXPECT_EQ(QvGetConfigString(10, false), "");
    EXPECT_THROW(QvGetConfigString(10, true), TQvMessage);
    start("profile=../../Two\n");
    EXPECT_EQ(QvGetConfigString(12, true), var.Path() + "/Profiles/Two/profile.x-ini")
        << "read anew, and never outside the folder";
    TLogCapture log;
    start("profile=P\nnonsense\n");
    EXPECT_EQ(pQvConfigData->getCurProfileName(), "") << "malformed: it counts as empty";
    EXPECT_NE(log.Entries.at(0).Shown.find(var.Path() + "/policy.x-ini"), std::string::npos);
    for (int i = 0; i < 3; ++i)
        Deinit_QvConfig();
    EXPECT_EQ(pQvConfigData, nullptr);
}
} // namespace
