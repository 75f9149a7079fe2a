#include "Machine.h"

namespace
{
using Folders = TMachine;

constexpr char kBad[] = "bad\x01";

TEST_F(Folders, TheSettingCountsBeforeTheRegistry)
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
        // A query for the user's folder ignores the common one; an invalid path is skipped.
        {"", "/c", "", "/w", "user", "/w/", "user"},
        {kBad, kBad, "", "/w", "common", "/w/", "user"},
    };
    const std::string home = Temp / "home/.config/velmor/KORVADELAirlane7.VAR";
    for (const auto& [setting, common, user, userWow, scope, folder, foundScope] : kRows) {
        SCOPED_TRACE(testing::Message() << setting << ", " << common << ", " << scope);
        setenv("QV_VAR_FOLDER", setting, 1);
        SetRegistry(TQvRegKey::Common, kPlainKey, common);
        SetRegistry(TQvRegKey::User, kPlainKey, user);
        SetRegistry(TQvRegKey::User, kWowKey, userWow);
        bool isCommon = scope == std::string("common");
        bool* const wanted = scope == std::string("any") ? nullptr : &isCommon;
        const std::string found = TQvCPUtils::GetVARFolder(wanted).toSysStr();
        EXPECT_EQ(found, folder);
        EXPECT_EQ(isCommon, foundScope == std::string("common"));
        isCommon = scope == std::string("common");
        EXPECT_EQ(TQvCPUtils::GetQvVARFolder(wanted).toSysStr(), found.empty() ? home : found);
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
    const auto isNecessaryWith = [this](const std::string& file, const std::string& text) {
        Temp.Write(file, text);
        return TQvCPUtils::IsWizardNecessary();
    };
    const std::string own = "var/Profiles/profiles.x-ini",
                      published = "repo/Profiles/profiles.x-ini";
    const std::string list = "[profiles]\nprofile=a\n[/profiles]\n", policy = "var/policy.x-ini";
    Configure();
    EXPECT_TRUE(isNecessaryWith(own, list)) << "no policy file";
    EXPECT_FALSE(isNecessaryWith(policy, "repository=\n"));
    EXPECT_TRUE(isNecessaryWith(own, "[profiles]\n[x]\n[/x]\n[/profiles]\n")) << "no name";
    EXPECT_FALSE(isNecessaryWith(own, "[profiles]\n[/profiles]\n"));
    EXPECT_TRUE(isNecessaryWith(policy, "repository=" + Temp / "repo\n")) << "it publishes no list";
    EXPECT_TRUE(isNecessaryWith(published, "")) << "nor does it with an empty file";
    EXPECT_FALSE(isNecessaryWith(published, list));
    SetRegistry(TQvRegKey::User, kWowKey, Var());
    unsetenv("QV_VAR_FOLDER");
    EXPECT_TRUE(TQvCPUtils::IsWizardNecessary()) << "the registry's other key does not count";
}
} // namespace
