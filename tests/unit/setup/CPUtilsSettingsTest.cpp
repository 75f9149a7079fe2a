#include <stdexcept>
#include <unistd.h>

#include "Machine.h"

namespace
{
using Settings = TMachine;

/// The message of a refusal; "" for success.
std::string Apply(const std::string& folder, bool common = false, bool useRepository = false,
                  const std::string& repository = "")
{
    std::string error = "left over";
    const bool done =
        TQvCPUtils::PerformOK(TQvPath(folder), common, useRepository, TQvPath(repository), error);
    EXPECT_EQ(done, error.empty());
    return error;
}

constexpr char kNoRegistry[] = "The setting of the VAR folder cannot be written to the registry.";

TEST_F(Settings, RefusalsChangeNothing)
{
    const std::string file = Temp.Write("file", "");
    const std::string blocked = Temp / "blocked";
    Temp.MakeFolder("blocked/$cp.tmp");
    const std::string rows[][3] = {
        {"bad\x01", "", "A VAR folder must be set."},
        {file + "/x%1%", "", "The folder \"" + file + "/x%1%\" cannot be created."},
        {Var(), "", "The folder of the repository must be set."},
        {Var(), "/no/%d", "The folder of the repository does not exist: /no/%d"},
        {blocked, Temp.Path(), "The folder \"" + blocked + "\" cannot be written to."},
    };
    for (const auto& [folder, repository, refusal] : rows)
        EXPECT_EQ(Apply(folder, false, true, repository), refusal);
    EXPECT_FALSE(Exists(Temp / "registry"));
    EXPECT_EQ(TreeOf(Var()), "") << "it was created, and nothing was done in it";

    setenv("QV_REGISTRY_DIR", (file + "/registry").c_str(), 1);
    EXPECT_EQ(Apply(Var()), kNoRegistry);
    EXPECT_EQ(Policy(), "<missing>");
    Deinit_QvConfig();
    EXPECT_THROW(Apply(Var()), std::runtime_error);
}

TEST_F(Settings, RegistryKeepsOneScope)
{
    const auto valueOf = [](TQvRegKey root) {
        return TQvPath(TQvRegMan::readString(root, kPlainKey, "VarPath")).fileName();
    };
    const auto expect = [&](const char* folder, bool common, const char* refusal, const char* ofAll,
                            const char* own) {
        EXPECT_EQ(Apply(Temp / folder, common), refusal) << folder;
        EXPECT_EQ(valueOf(TQvRegKey::Common), ofAll) << folder;
        EXPECT_EQ(valueOf(TQvRegKey::User), own) << folder;
    };
    expect("one", true, "", "one", "");
    expect("one", false, "", "", "one"); // the common value would hide the user's own
    expect("two", true, "", "two", "one");

    unlink((Temp / "registry/common.x-ini.lock").c_str());
    Temp.MakeFolder("registry/common.x-ini.lock");
    expect("two", true, "", "two", "one"); // no change needs no registry
    expect("one", false, kNoRegistry, "two", "one");
    Temp.Write("registry/common.x-ini", "broken\n");
    expect("two", false, "", "", "two"); // an unreadable file hides nothing
    Configure();
    expect("var", false, "", "", "two"); // the environment variable is used
}

TEST_F(Settings, PolicyFileKeepsEverythingElse)
{
    const std::string head = "\xEF\xBB\xBF; by hand\r\n  profile = \"a b\"   \r\n\r\n";
    const std::string tail = "[other]\n\trepository=/not this\n[/]\nlast=1\n";
    WritePolicy(head + "repository=/r\nrepository=/second\n" + tail);
    EXPECT_EQ(Apply(Var(), false, false, "/gone"), "");
    EXPECT_EQ(Policy(), head + tail + "-repository=/gone/\n");
    EXPECT_EQ(Apply(Var(), false, true, Temp.Path()), "");
    EXPECT_EQ(Policy(), head + tail + "repository=" + Temp.Path() + "/\n");
}

TEST_F(Settings, AnUnreadablePolicyFileIsRenamed)
{
    TLogCapture log;
    Temp.Write("var/$cp.tmp", "old probe");
    for (const char* policy : {"first", "second"}) {
        WritePolicy(policy);
        EXPECT_EQ(Apply(Var()), "");
    }
    unlink(Var("/policy.x-ini").c_str());
    Temp.Write("var/policy.x-ini/unreadable", "third");
    EXPECT_EQ(Apply(Var(), false, false, "/r"), "");
    unlink(Var("/.lock").c_str());
    EXPECT_EQ(TreeOf(Var()),
              "Config/ Logs/ Profiles/ Tmp/ UserData/ policy.x-ini=-repository=/r/\n "
              "policy.x-ini.damaged=first policy.x-ini.damaged.2=second "
              "policy.x-ini.damaged.3/unreadable=third");
    ASSERT_EQ(log.Entries.size(), 3u);
    EXPECT_NE(log.Entries[0].Shown.find(Var("/policy.x-ini")), std::string::npos);
}
} // namespace
