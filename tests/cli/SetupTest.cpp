// The first run, the repository and the profiles.
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "cli/QvresProcess.h"

using nlohmann::json;

class TSetupTest : public TQvresTest
{
protected:
    /// Calls without mounts of their own.
    std::string Done(const TArgs& args, const std::string& input = {}) const
    {
        const TResult result = RunPlain(args, input);
        EXPECT_EQ(result.Status, 0) << args.front();
        EXPECT_EQ(result.Err, "") << args.front();
        return result.Out;
    }
    std::string Failed(const TArgs& args) const
    {
        const TResult result = RunPlain(args);
        EXPECT_EQ(result.Status, 1) << args.front() << result.Out;
        return result.Err;
    }
    json Profiles() const { return json::parse(Done({"--json", "profile", "list"})); }
    /// A repository that publishes the profiles Alpha and Beta, which mount the folder a.
    std::string MakeRepository() const
    {
        m_temp.Write("repo/Profiles/profiles.x-ini",
                     "[profiles]\nprofile=Alpha\nprofile=Beta\n[/profiles]\n");
        for (const char* name : {"Alpha", "Beta"})
            m_temp.Write(std::string("repo/Profiles/") + name + "/profile.x-ini",
                         "[profile]\nremote=0\n[mount]\nnode=/Data\npath=" + (m_temp / "a") +
                             "\n[/mount]\n[/profile]\n");
        return m_temp / "repo";
    }

    const std::string m_var = m_temp / "home/.config/velmor/KORVADELAirlane7.VAR";
};

TEST_F(TSetupTest, AFreshHomeGoesFromNothingToWrittenWithThreeCommands)
{
    EXPECT_EQ(Done({"setup", m_temp / "a/"}), "/a\n");
    EXPECT_EQ(Done({"put", "/a/x"}, "content"), "");
    EXPECT_EQ(Done({"cat", "/a/x"}), "content");
    EXPECT_EQ(Done({"ls", "/a"}), "/a/x\n");
    EXPECT_NE(ReadFile(m_temp / "registry/user.x-ini").find("VarPath=" + m_var), std::string::npos);
    EXPECT_FALSE(Exists(m_temp / "registry/common.x-ini"));
    EXPECT_EQ(Done({"setup", m_temp / "a"}), "/a\n") << "may be run again";
    EXPECT_NE(Failed({"setup", m_temp / "b"}).find("\"qvres profile add NAME FOLDER\""),
              std::string::npos);
}

TEST_F(TSetupTest, WithVarTheRegistryStaysAsItIs)
{
    const std::string var = m_temp / "other";
    EXPECT_EQ(Done({"--var", var, "setup", m_temp / "a"}), "/a\n");
    EXPECT_EQ(Done({"--var", var, "ls"}), "/a/\n");
    EXPECT_EQ(NamesIn(m_temp / "registry"), std::vector<std::string>{});
    EXPECT_FALSE(Exists(m_temp / "home/.config"));
    EXPECT_EQ(RunPlain({"--var", var, "setup", "--common"}).Status, 2);
    setenv("QV_VAR_FOLDER", var.c_str(), 1);
    Done({"setup", "--common"});
    unsetenv("QV_VAR_FOLDER");
    EXPECT_NE(ReadFile(m_temp / "registry/common.x-ini").find("VarPath=" + var), std::string::npos);
    EXPECT_EQ(Done({"setup"}) + Done({"ls"}), "/a/\n") << "what is common stays common";
    EXPECT_FALSE(Exists(m_temp / "registry/user.x-ini"));
}

TEST_F(TSetupTest, WithoutAFolderAProfileIsMadeLater)
{
    EXPECT_EQ(Done({"setup"}), "");
    EXPECT_NE(ReadFile(m_var + "/Profiles/profiles.x-ini").find("[profiles]"), std::string::npos);
    EXPECT_EQ(Failed({"ls"}), "qvres: no profile is selected; run \"qvres profile select NAME\"\n");
    Done({"profile", "create", "Work"});
    EXPECT_EQ(Done({"profile", "add", "work", m_temp / "b"}), "/b\n");
    EXPECT_EQ(Done({"ls"}), "/b/\n");
}

TEST_F(TSetupTest, PublishedProfilesArePickedUpAndMarked)
{
    m_temp.Write("a/x", "");
    EXPECT_EQ(Failed({"setup", "--repository", m_temp / "b"}),
              "qvres: the repository \"" + m_temp.Path() + "/b\" publishes no profiles: \"" +
                  m_temp.Path() + "/b/Profiles/profiles.x-ini\" cannot be opened for reading\n");
    EXPECT_FALSE(Exists(m_var)) << "nothing is set up by halves";
    Done({"setup", "--repository", MakeRepository(), m_temp / "b"});
    const json list = Profiles();
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(list[0]["name"], "Alpha");
    EXPECT_EQ(list[0]["remote"], true);
    EXPECT_EQ(list[1]["remote"], true);
    EXPECT_EQ(list[2]["name"], "LocalProfile");
    EXPECT_EQ(list[2]["current"], true);
    EXPECT_GT(list[2]["free"], 0);
    EXPECT_EQ(Done({"profile", "list"}).substr(0, 10), "- remote  ");
    Done({"profile", "select", "ALPHA"});
    EXPECT_EQ(Done({"ls", "-R"}), "/Data/\n/Data/x\n");
    const std::string refusal = "comes from the repository and cannot be changed here";
    for (const TArgs& args :
         {TArgs{"profile", "add", "Alpha", m_temp / "b"}, TArgs{"profile", "remove", "Beta"},
          TArgs{"mount", "/C", m_temp / "b"}})
        EXPECT_NE(Failed(args).find(refusal), std::string::npos);

    ASSERT_EQ(rename((m_temp / "repo").c_str(), (m_temp / "gone").c_str()), 0);
    EXPECT_NE(Failed({"ls"}).find("publishes no profiles"), std::string::npos);
    Done({"setup", "--repository", ""});
    EXPECT_EQ(Done({"ls"}), "/Data/\n");
    EXPECT_EQ(Profiles()[0]["remote"], false);
}

TEST_F(TSetupTest, ProfilesAreMadeShownAndRemoved)
{
    Done({"setup", m_temp / "a"});
    Done({"profile", "create", "Work"});
    Done({"profile", "add", "Work", m_temp / "b"});
    m_temp.MakeFolder("c/B");
    const std::vector<std::pair<TArgs, std::string>> failures = {
        {{"create", "work"}, "there is a profile \"Work\" already"},
        {{"create", ".."}, "\"..\" is not a valid name of a profile"},
        {{"create", "a/b"}, "\"a/b\" is not a valid name of a profile"},
        {{"create", "profiles.x-ini"}, "\"profiles.x-ini\" is not a valid name of a profile"},
        {{"add", "Work", m_temp / "c/B"},
         "\"/b\" is already a mount point of the profile \"Work\""},
        {{"add", "Work", "/"}, "a mount point needs a name: the root of the tree is not one"},
        {{"add", "Work", m_temp / "no"}, "the folder \"" + m_temp.Path() + "/no\" does not exist"},
        {{"add", "No", m_temp / "b"}, "there is no profile \"No\""},
        {{"select", "No"}, "there is no profile \"No\""},
        {{"remove", "localprofile"},
         "the profile \"LocalProfile\" is the current one; select another one first"}};
    for (auto [args, message] : failures) {
        args.insert(args.begin(), "profile");
        EXPECT_EQ(Failed(args), "qvres: " + message + "\n");
    }
    const json work = json::parse(Done({"--json", "profile", "show", "work"}));
    EXPECT_EQ(work["mounts"], json::parse("[{\"id\":\"/b\",\"folder\":\"" + (m_temp / "b\"}]")));
    Done({"profile", "select", "Work"});
    EXPECT_EQ(Done({"ls"}), "/b/\n");
    Done({"profile", "remove", "LocalProfile"});
    EXPECT_EQ(NamesIn(m_var + "/Profiles"), (std::vector<std::string>{"Work", "profiles.x-ini"}));
    EXPECT_EQ(Profiles().size(), 1u);
}

TEST_F(TSetupTest, AProfileThatCannotBeReadIsNeverRemoved)
{
    Done({"setup", m_temp / "a"});
    const std::string file = m_temp.Write("home/.config/velmor/KORVADELAirlane7.VAR/Profiles/Bad/"
                                          "profile.x-ini",
                                          "half a line");
    const std::string refusal =
        "qvres: \"" + file + "\" cannot be read, and saving would remove it";
    for (const TArgs& args : {TArgs{"setup"}, TArgs{"profile", "create", "Work"},
                              TArgs{"profile", "select", "LocalProfile"},
                              TArgs{"profile", "add", "LocalProfile", m_temp / "b"}})
        EXPECT_EQ(Failed(args).substr(0, refusal.size()), refusal);
    EXPECT_EQ(ReadFile(file), "half a line");
    EXPECT_EQ(Profiles().size(), 1u);
    EXPECT_EQ(Done({"ls"}), "/a/\n");
}
