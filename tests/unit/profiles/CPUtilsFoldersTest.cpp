#include <gtest/gtest.h>

#include <regex>

#include "Machine.h"
#include "profiles/CPUtils.h"

namespace
{
constexpr char kBad[] = "bad\x01";
constexpr char kList[] = "[profiles]\nprofile=a\n[/profiles]\n";

enum TFlag
{
    No,
    Yes,
    None
};

TEST(VarFolder, SettingThenRegistry)
{
    struct TRow
    {
        const char *Setting, *Common, *User, *UserWow;
        TFlag Flag;
        const char* Folder;
        bool FlagAfter;
    };
    constexpr TRow kRows[] = {
        // The setting of the configuration comes back as it is configured, ...
        {"/set/", "/c", "", "/w", Yes, "/set/", false},
        {"", "/c", "/u", "/w", Yes, "/c", true},
        // ... a folder of the registry with a slash; each root has its own key.
        {kBad, "/c", "", "/w", Yes, "/c/", true},
        {kBad, "/c", "", "/w", None, "/c/", false},
        {kBad, "", "/u", "", Yes, "", false},
        // Who wants no common folder gets none.
        {"", "/c", "", "/w", No, "/w/", false},
        {"", "/c", "", "", No, "", false},
        // What is no path is passed over.
        {kBad, kBad, "", "/w", Yes, "/w/", false},
    };
    for (const TRow& row : kRows) {
        SCOPED_TRACE(&row - kRows);
        const TMachine machine;
        setenv("QV_VAR_FOLDER", row.Setting, 1);
        TMachine::SetRegistry(TQvRegKey::Common, kPlainKey, row.Common);
        TMachine::SetRegistry(TQvRegKey::User, kPlainKey, row.User);
        TMachine::SetRegistry(TQvRegKey::User, kWowKey, row.UserWow);
        bool common = row.Flag == Yes;
        bool* const flag = row.Flag == None ? nullptr : &common;
        EXPECT_EQ(TQvCPUtils::GetVARFolder(flag).toSysStr(), row.Folder);
        EXPECT_EQ(common, row.FlagAfter);
        const std::string home = machine.Temp / "home/.config/velmor/KORVADELAirlane7.VAR";
        common = row.Flag == Yes;
        EXPECT_EQ(TQvCPUtils::GetQvVARFolder(flag).toSysStr(), *row.Folder ? row.Folder : home);
    }
}

TEST(VarFolder, NothingThrowsWithoutAConfiguration)
{
    const TMachine machine;
    TMachine::SetRegistry(TQvRegKey::Common, kPlainKey, "/c");
    Deinit_QvConfig();
    EXPECT_EQ(TQvCPUtils::GetVARFolder(nullptr), TQvPath());
    EXPECT_NE(TQvCPUtils::GetQvVARFolder(nullptr), TQvPath());
    EXPECT_EQ(TQvCPUtils::GetRepositoryFolder(TQvPath(), false), TQvPath());
    EXPECT_TRUE(TQvCPUtils::IsWizardNecessary());
}

TEST(Repository, IsReadFromThePolicyFile)
{
    constexpr const char* kRows[][3] = {
        {"repository=/r\n", "/r/", ""},
        {"; note\n-repository=\\old\\r/\nrepository=/r/\n", "/r/", "/old/r/"},
        {"repository=\n", "", ""},
        {"[repository]\n[/repository]\n", "", ""},
        {"repository=/r\nbroken\n", "", ""},
    };
    const TMachine machine;
    const TQvPath var(machine.Var());
    TMachine::SetRegistry(TQvRegKey::User, kWowKey, machine.Var());
    EXPECT_EQ(TQvCPUtils::GetRepositoryFolder(var, false), TQvPath()) << "no policy file";
    for (const auto& row : kRows) {
        machine.Temp.Write("var/policy.x-ini", row[0]);
        EXPECT_EQ(TQvCPUtils::GetRepositoryFolder(var, false).toSysStr(), row[1]) << row[0];
        EXPECT_EQ(TQvCPUtils::GetRepositoryFolder(var, true).toSysStr(), row[2]) << row[0];
    }
    machine.Temp.Write("var/policy.x-ini", "repository=/r\n");
    EXPECT_EQ(TQvCPUtils::GetRepositoryFolder(TQvPath(), false), TQvPath())
        << "an empty folder stands for the setting, and not for what the registry has besides";
    machine.Configure();
    EXPECT_EQ(TQvCPUtils::GetRepositoryFolder(TQvPath(), false), TQvPath("/r/"));
    EXPECT_EQ(TQvCPUtils::GetRepositoryFolder(TQvPath(kBad), false), TQvPath());
}

TEST(Wizard, IsNeededUnlessEverythingCanBeRead)
{
    struct TRow
    {
        const char *Policy, *List, *RepositoryList; ///< null: missing
        bool Needed;
    };
    constexpr TRow kRows[] = {
        {"", kList, nullptr, false},
        {"repository=\n", "[profiles]\n[/profiles]\n", nullptr, false},
        {"repository=REPO\n", kList, kList, false},
        {nullptr, kList, nullptr, true},
        {"broken\n", kList, nullptr, true},
        {"", nullptr, nullptr, true},
        {"", "", nullptr, true},
        {"", "[profiles]\n[x]\n[/x]\n[/profiles]\n", nullptr, true},
        {"repository=REPO\n", kList, nullptr, true},
        {"repository=REPO\n", kList, "", true},
    };
    for (const TRow& row : kRows) {
        SCOPED_TRACE(&row - kRows);
        const TMachine machine;
        const auto write = [&machine](const char* name, const char* text) {
            if (text != nullptr)
                machine.Temp.Write(
                    name, std::regex_replace(text, std::regex("REPO"), machine.Temp / "repo"));
        };
        machine.Temp.MakeFolder("var");
        write("var/policy.x-ini", row.Policy);
        write("var/Profiles/profiles.x-ini", row.List);
        write("repo/Profiles/profiles.x-ini", row.RepositoryList);
        TMachine::SetRegistry(TQvRegKey::User, kWowKey, machine.Var());
        EXPECT_TRUE(TQvCPUtils::IsWizardNecessary()) << "the registry's other key does not count";
        machine.Configure();
        EXPECT_EQ(TQvCPUtils::IsWizardNecessary(), row.Needed);
        setenv("QV_VAR_FOLDER", machine.Temp.Write("file", "").c_str(), 1);
        EXPECT_TRUE(TQvCPUtils::IsWizardNecessary());
    }
}
} // namespace
