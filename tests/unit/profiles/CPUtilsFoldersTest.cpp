#include <gtest/gtest.h>

#include <regex>

#include "Machine.h"
#include "profiles/CPUtils.h"

namespace
{
constexpr char kBad[] = "bad\x01";
constexpr char kList[] = "[profiles]\nprofile=a\n[/profiles]\n";

TEST(VarFolder, SettingThenRegistry)
{
    constexpr struct
    {
        const char *Setting, *Common, *User, *UserWow;
        const char *Wanted, *Folder; ///< what the flag is, null for none
        bool FlagAfter;
    } kRows[] = {
        // The setting of the configuration comes back as it is configured, ...
        {"/set/", "/c", "", "/w", "common", "/set/", false},
        {"", "/c", "/u", "/w", "common", "/c", true},
        // ... a folder of the registry with a slash; each root has its own key.
        {kBad, "/c", "", "/w", "common", "/c/", true},
        {kBad, "/c", "", "/w", nullptr, "/c/", false},
        {kBad, "", "/u", "", "common", "", false},
        // Who wants no common folder gets none; what is no path is passed over.
        {"", "/c", "", "/w", "", "/w/", false},
        {kBad, kBad, "", "/w", "common", "/w/", false},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(&row - kRows);
        const TMachine machine;
        setenv("QV_VAR_FOLDER", row.Setting, 1);
        TMachine::SetRegistry(TQvRegKey::Common, kPlainKey, row.Common);
        TMachine::SetRegistry(TQvRegKey::User, kPlainKey, row.User);
        TMachine::SetRegistry(TQvRegKey::User, kWowKey, row.UserWow);
        bool common = row.Wanted != nullptr && *row.Wanted;
        bool* const flag = row.Wanted == nullptr ? nullptr : &common;
        EXPECT_EQ(TQvCPUtils::GetVARFolder(flag).toSysStr(), row.Folder);
        EXPECT_EQ(common, row.FlagAfter);
        const std::string home = machine.Temp / "home/.config/velmor/KORVADELAirlane7.VAR";
        common = row.Wanted != nullptr && *row.Wanted;
        EXPECT_EQ(TQvCPUtils::GetQvVARFolder(flag).toSysStr(), *row.Folder ? row.Folder : home);
    }
    Deinit_QvConfig(); // without a configuration nothing throws
    EXPECT_EQ(TQvCPUtils::GetVARFolder(nullptr), TQvPath());
    EXPECT_EQ(TQvCPUtils::GetRepositoryFolder(TQvPath(), false), TQvPath());
    EXPECT_TRUE(TQvCPUtils::IsWizardNecessary());
}

TEST(Repository, IsReadFromThePolicyFile)
{
    constexpr const char* kRows[][3] = {
        {"; note\n-repository=\\old\\r/\nrepository=/r/\n", "/r/", "/old/r/"},
        {"[repository]\n[/repository]\n", "", ""},
        {"repository=/r\nbroken\n", "", ""},
        {"repository=/r\n", "/r/", ""},
    };
    const TMachine machine;
    const TQvPath var(machine.Var());
    TMachine::SetRegistry(TQvRegKey::User, kWowKey, machine.Var());
    EXPECT_EQ(TQvCPUtils::GetRepositoryFolder(var, false), TQvPath()) << "no policy file";
    for (const auto& row : kRows) {
        machine.WritePolicy(row[0]);
        EXPECT_EQ(TQvCPUtils::GetRepositoryFolder(var, false).toSysStr(), row[1]) << row[0];
        EXPECT_EQ(TQvCPUtils::GetRepositoryFolder(var, true).toSysStr(), row[2]) << row[0];
    }
    EXPECT_EQ(TQvCPUtils::GetRepositoryFolder(TQvPath(), false), TQvPath())
        << "an empty folder stands for the setting, and not for what the registry has besides";
    machine.Configure();
    EXPECT_EQ(TQvCPUtils::GetRepositoryFolder(TQvPath(), false), TQvPath("/r/"));
}

TEST(Wizard, IsNeededUnlessEverythingCanBeRead)
{
    constexpr struct
    {
        const char *Policy, *List, *RepositoryList; ///< null: missing
        bool Needed;
    } kRows[] = {
        {"repository=\n", "[profiles]\n[/profiles]\n", nullptr, false},
        {"repository=REPO\n", kList, kList, false},
        {nullptr, kList, nullptr, true},
        {"", "[profiles]\n[x]\n[/x]\n[/profiles]\n", nullptr, true},
        {"repository=REPO\n", kList, nullptr, true},
        {"repository=REPO\n", kList, "", true},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(&row - kRows);
        const TMachine machine;
        const auto write = [&machine](const char* name, const char* text) {
            if (text != nullptr)
                machine.Temp.Write(
                    name, std::regex_replace(text, std::regex("REPO"), machine.Temp / "repo"));
        };
        write("var/policy.x-ini", row.Policy);
        write("var/Profiles/profiles.x-ini", row.List);
        write("repo/Profiles/profiles.x-ini", row.RepositoryList);
        TMachine::SetRegistry(TQvRegKey::User, kWowKey, machine.Var());
        EXPECT_TRUE(TQvCPUtils::IsWizardNecessary()) << "the registry's other key does not count";
        machine.Configure();
        EXPECT_EQ(TQvCPUtils::IsWizardNecessary(), row.Needed);
    }
}
} // namespace
