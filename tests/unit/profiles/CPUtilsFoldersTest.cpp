#include <gtest/gtest.h>

#include "Machine.h"
#include "profiles/CPUtils.h"

namespace
{
constexpr char kBad[] = "bad\x01";

TEST(VarFolder, SettingThenRegistry)
{
    // setting; registry: common, user's, user's under the other key; wanted scope; folder, scope
    constexpr const char* kRows[][7] = {
        // The setting of the configuration comes back as it is configured, ...
        {"/set/", "/c", "", "/w", "common", "/set/", "user"},
        {"", "/c", "/u", "/w", "common", "/c", "common"},
        {"", "", "/u", "/w", "common", "/u", "user"},
        {"", "/c", "/u", "/w", "user", "/u", "user"},
        // ... a folder of the registry with a slash; each root has its own key.
        {kBad, "/c", "", "/w", "common", "/c/", "common"},
        {kBad, "/c", "", "/w", "any", "/c/", "user"},
        {kBad, "", "/u", "", "common", "", "user"},
        // Who wants no common folder gets none; what is no path is passed over.
        {"", "/c", "", "/w", "user", "/w/", "user"},
        {kBad, kBad, "", "/w", "common", "/w/", "user"},
    };
    for (const auto& [setting, common, user, userWow, wanted, folder, scope] : kRows) {
        SCOPED_TRACE(testing::Message() << setting << ", " << common << ", " << wanted);
        const TMachine machine;
        setenv("QV_VAR_FOLDER", setting, 1);
        TMachine::SetRegistry(TQvRegKey::Common, kPlainKey, common);
        TMachine::SetRegistry(TQvRegKey::User, kPlainKey, user);
        TMachine::SetRegistry(TQvRegKey::User, kWowKey, userWow);
        const auto find = [wanted = std::string(wanted)](TQvPath (*function)(bool*)) {
            bool isCommon = wanted == "common";
            const TQvPath found = function(wanted == "any" ? nullptr : &isCommon);
            return found.toSysStr() + (isCommon ? " common" : " user");
        };
        const std::string expected = folder + (' ' + std::string(scope));
        const std::string home = machine.Temp / "home/.config/velmor/KORVADELAirlane7.VAR user";
        EXPECT_EQ(find(TQvCPUtils::GetVARFolder), expected);
        EXPECT_EQ(find(TQvCPUtils::GetQvVARFolder), *folder ? expected : home);
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
    const auto repository = [](const std::string& varFolder, bool switchedOff = false) {
        return TQvCPUtils::GetRepositoryFolder(TQvPath(varFolder), switchedOff).toSysStr();
    };
    EXPECT_EQ(repository(machine.Var()), "") << "no policy file";
    for (const auto& row : kRows) {
        machine.WritePolicy(row[0]);
        EXPECT_EQ(repository(machine.Var()), row[1]) << row[0];
        EXPECT_EQ(repository(machine.Var(), true), row[2]) << row[0];
    }
    TMachine::SetRegistry(TQvRegKey::User, kWowKey, machine.Var());
    EXPECT_EQ(repository(""), "") << "the setting, and not what the registry has besides";
    machine.Configure();
    EXPECT_EQ(repository(""), "/r/");
}

TEST(Wizard, IsNeededUnlessEverythingCanBeRead)
{
    const TMachine machine;
    const auto writeList = [&machine](const char* folder, const char* text) {
        machine.Temp.Write(std::string(folder) + "/Profiles/profiles.x-ini", text);
    };
    machine.Configure();
    writeList("var", "[profiles]\nprofile=a\n[/profiles]\n");
    EXPECT_TRUE(TQvCPUtils::IsWizardNecessary()) << "no policy file";
    machine.WritePolicy("repository=\n");
    EXPECT_FALSE(TQvCPUtils::IsWizardNecessary());
    writeList("var", "[profiles]\n[x]\n[/x]\n[/profiles]\n");
    EXPECT_TRUE(TQvCPUtils::IsWizardNecessary()) << "a section is no name";
    writeList("var", "[profiles]\n[/profiles]\n");
    machine.WritePolicy("repository=" + machine.Temp / "repo\n");
    EXPECT_TRUE(TQvCPUtils::IsWizardNecessary()) << "the repository publishes no list";
    writeList("repo", "");
    EXPECT_TRUE(TQvCPUtils::IsWizardNecessary()) << "nor does it with an empty file";
    writeList("repo", "[profiles]\nprofile=a\n[/profiles]\n");
    EXPECT_FALSE(TQvCPUtils::IsWizardNecessary());
    TMachine::SetRegistry(TQvRegKey::User, kWowKey, machine.Var());
    unsetenv("QV_VAR_FOLDER");
    EXPECT_TRUE(TQvCPUtils::IsWizardNecessary()) << "the registry's other key does not count";
}
} // namespace
