#include "Machine.h"

namespace
{
using Folders = TMachine;

constexpr char kBad[] = "bad\x01";

TEST_F(Folders, SettingThenRegistry)
{
    // setting; registry: common, user's, user's under the other key; wanted scope; folder, scope
    constexpr const char* kRows[][6] = {
        // The setting of the configuration comes back as it is configured, ...
        {"/set/", "/c", "", "/w", "common", "/set/ user"},
        {"", "/c", "/u", "/w", "common", "/c common"},
        {"", "", "/u", "/w", "common", "/u user"},
        {"", "/c", "/u", "/w", "user", "/u user"},
        // ... a folder of the registry with a slash; each root has its own key.
        {kBad, "/c", "", "/w", "common", "/c/ common"},
        {kBad, "/c", "", "/w", "any", "/c/ user"},
        {kBad, "", "/u", "", "common", " user"},
        // Who wants no common folder gets none; what is no path is passed over.
        {"", "/c", "", "/w", "user", "/w/ user"},
        {kBad, kBad, "", "/w", "common", "/w/ user"},
    };
    const std::string home = Temp / "home/.config/velmor/KORVADELAirlane7.VAR user";
    for (const auto& [setting, common, user, userWow, scope, expected] : kRows) {
        SCOPED_TRACE(testing::Message() << setting << ", " << common << ", " << scope);
        setenv("QV_VAR_FOLDER", setting, 1);
        SetRegistry(TQvRegKey::Common, kPlainKey, common);
        SetRegistry(TQvRegKey::User, kPlainKey, user);
        SetRegistry(TQvRegKey::User, kWowKey, userWow);
        const auto find = [wanted = std::string(scope)](TQvPath (*function)(bool*)) {
            bool isCommon = wanted == "common";
            const TQvPath found = function(wanted == "any" ? nullptr : &isCommon);
            return found.toSysStr() + (isCommon ? " common" : " user");
        };
        EXPECT_EQ(find(TQvCPUtils::GetVARFolder), expected);
        EXPECT_EQ(find(TQvCPUtils::GetQvVARFolder), *expected == '/' ? expected : home);
    }
    Deinit_QvConfig(); // without a configuration nothing throws
    EXPECT_EQ(TQvCPUtils::GetVARFolder(nullptr), TQvPath());
    EXPECT_EQ(TQvCPUtils::GetRepositoryFolder(TQvPath(), false), TQvPath());
    EXPECT_TRUE(TQvCPUtils::IsWizardNecessary());
}

TEST_F(Folders, RepositoryIsReadFromThePolicyFile)
{
    const auto repository = [](const std::string& varFolder, bool switchedOff = false) {
        return TQvCPUtils::GetRepositoryFolder(TQvPath(varFolder), switchedOff).toSysStr();
    };
    EXPECT_EQ(repository(Var()), "") << "no policy file";
    constexpr const char* kRows[][3] = {
        {"; note\n-repository=\\old\\r/\nrepository=/r/\n", "/r/", "/old/r/"},
        {"[repository]\n[/repository]\n", "", ""},
        {"repository=/r\nbroken\n", "", ""},
        {"repository=/r\n", "/r/", ""},
    };
    for (const auto& [policy, used, switchedOff] : kRows) {
        WritePolicy(policy);
        EXPECT_EQ(repository(Var()), used) << policy;
        EXPECT_EQ(repository(Var(), true), switchedOff) << policy;
    }
    SetRegistry(TQvRegKey::User, kWowKey, Var());
    EXPECT_EQ(repository(""), "") << "the setting, and not what the registry has besides";
    Configure();
    EXPECT_EQ(repository(""), "/r/");
}

TEST_F(Folders, WizardIsNeededUnlessEverythingCanBeRead)
{
    const std::string here = "repository=\n", there = "repository=" + Temp / "repo\n";
    const std::string list = "[profiles]\nprofile=a\n[/profiles]\n", none = "none";
    // the policy file, the list of profiles, and that of the repository
    const std::tuple<const char*, bool, std::string, std::string, std::string> rows[] = {
        {"no policy file", true, none, list, none},
        {"no repository", false, here, list, none},
        {"a section is no name", true, here, "[profiles]\n[x]\n[/x]\n[/profiles]\n", none},
        {"the repository publishes no list", true, there, "[profiles]\n[/profiles]\n", none},
        {"nor does it with an empty file", true, there, list, ""},
        {"a repository", false, there, list, list}};
    Configure();
    for (const auto& [name, necessary, policy, own, published] : rows) {
        for (const auto& [file, text] : {std::pair("var/policy.x-ini", policy),
                                         {"var/Profiles/profiles.x-ini", own},
                                         {"repo/Profiles/profiles.x-ini", published}})
            if (text != none)
                Temp.Write(file, text);
        EXPECT_EQ(TQvCPUtils::IsWizardNecessary(), necessary) << name;
    }
    SetRegistry(TQvRegKey::User, kWowKey, Var());
    unsetenv("QV_VAR_FOLDER");
    EXPECT_TRUE(TQvCPUtils::IsWizardNecessary()) << "the registry's other key does not count";
}
} // namespace
