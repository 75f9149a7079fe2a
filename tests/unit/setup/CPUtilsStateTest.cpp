#include <thread>
#include <unistd.h>

#include "Machine.h"
#include "profiles/VarFolderLock.h"

namespace
{
using TNames = std::vector<std::string>;

constexpr char kRoot[] = "; kept\n[mount]\nnode=/D\npath=/\n[/mount]\n";

class State : public TMachine
{
protected:
    State() { Configure(); }

    /// Profile files in the VAR folder or, with `folder`, elsewhere.
    void WriteProfiles(const TNames& names, const std::string& mounts = "",
                       const std::string& folder = "var") const
    {
        for (const std::string& name : names)
            Temp.Write(folder + "/Profiles/" + name + "/profile.x-ini",
                       "[profile]\n  remote=0\n" + mounts + "[/profile]\n");
    }
    void Publish(const TNames& names) const
    {
        std::string list = "[profiles]\n";
        for (const std::string& name : names)
            list += "profile=" + name + "\n";
        Temp.Write("repo/Profiles/profiles.x-ini", list + "[/profiles]\n");
        WritePolicy("repository=" + Temp / "repo" + "\n");
    }
    std::string Profiles(const std::string& name = "") const { return Var("/Profiles" + name); }
    TNames Folders() const { return NamesIn(Profiles()); }

    /// Loads the state; the names of its profiles, remote ones with a "*".
    TNames Reload(TQvProgressHandler* progress = nullptr)
    {
        TQvCPUtils::ReloadState(state, progress);
        TNames names;
        for (const TQvResourceProfile& profile : state.Profiles)
            names.push_back(profile.Name + (profile.Remote ? "*" : ""));
        return names;
    }
    void Create(const std::string& name)
    {
        TQvCPUtils::CreateProfileState(name, state);
        TQvCPUtils::RefreshProfilesState(state);
    }
    std::string SaveError()
    {
        return Thrown([this] { TQvCPUtils::SaveState(state); }).what();
    }

    std::string Unread() const
    {
        return "The profiles in the folder \"" + Profiles() +
               "\" have not been read: they cannot be saved.";
    }

    TQvCPUtils::TCPState state;
};

TEST_F(State, LoadLeavesOutUnreadableProfiles)
{
    WritePolicy("profile=gOOd\n");
    WriteProfiles({"Also", "a\\b"});
    WriteProfiles({"Good"}, kRoot);
    Temp.Write("var/Profiles/Malformed/profile.x-ini", "broken\n");
    Temp.Write("var/Profiles/Nothing/x", "");
    EXPECT_EQ(Reload(), (TNames{"Also", "Good"}));
    EXPECT_EQ(state.ProfileIndex.at("GOOD"), &state.Profiles[1]);
    EXPECT_EQ(state.CurrentProfile, "gOOd");
    EXPECT_EQ(state.SelectedProfile, "gOOd");
    WritePolicy("profile=Absent\n");
    Reload();
    EXPECT_EQ(state.CurrentProfile, "");
    EXPECT_EQ(state.SelectedProfile, "Also");
    state.Remote = true;
    WritePolicy("profile=Good\n");
    EXPECT_EQ(Reload(), (TNames{"Also*", "Good*"}));
    EXPECT_EQ(state.CurrentProfile, "") << "a repository has no current profile";
}

TEST_F(State, SaveDoesNotRemoveProfilesThatWereNotLoaded)
{
    WriteProfiles({"A", "B"}, kRoot);
    WriteProfiles({"C"}, "", "repo");
    Publish({"C"});
    int breaks = 0;
    for (TTestProgress progress; progress.Positions.empty() || progress.UserBreak(); ++breaks) {
        progress = TTestProgress();
        progress.BreakAfter = breaks;
        if (Thrown([&] { Reload(&progress); }).text().empty())
            continue;
        EXPECT_TRUE(state.Profiles.empty());
        EXPECT_TRUE(state.ProfileIndex.empty());
        EXPECT_EQ(SaveError(), Unread());
    }
    EXPECT_GT(breaks, 5);

    setenv("QV_VAR_FOLDER", "", 1);
    ASSERT_EQ(chdir(Var().c_str()), 0);
    EXPECT_EQ(Reload(), TNames()) << "the working directory is no VAR folder";
    EXPECT_EQ(SaveError(), "A VAR folder must be set.");
    ASSERT_EQ(chdir("/"), 0);
}

TEST_F(State, PublishedProfilesAreTakenOver)
{
    WriteProfiles({"New", "Both", "Unlisted", "Sub/Deep", ""}, kRoot, "repo");
    Temp.Write("repo/Profiles/Bare/profile.x-ini", "");
    Temp.Write("repo/Profiles/Broken/profile.x-ini", "broken\n");
    Publish({"", "..", ".", "Sub/Deep", "Absent", "Broken", "bOTH", "Both", "Bare", "New"});
    WriteProfiles({"Both", "Broken"}); // a broken published profile replaces nothing

    TTestProgress progress;
    EXPECT_EQ(Reload(&progress), (TNames{"Bare*", "Both*", "Broken", "New*"}));
    EXPECT_EQ(Folders(), (TNames{"Bare", "Both", "Broken", "New"}));
    EXPECT_EQ(progress.Messages.at(0), "Copying profiles from the repository");
    EXPECT_EQ(progress.Messages.at(1), "Reading profile \"Bare\"");
    const std::string marked = std::string("[profile]\n  remote=1\n") + kRoot + "[/profile]\n";
    EXPECT_EQ(ReadFile(Profiles("/New/profile.x-ini")), marked);
    TQvCPUtils::AddNodeState(TQvPath("/usr"), "New", state);
    EXPECT_EQ(SaveError(), "");
    EXPECT_EQ(ReadFile(Profiles("/New/profile.x-ini")), marked) << "never written back";
}

TEST_F(State, SaveRemovesDroppedProfilesAndNothingElse)
{
    WritePolicy("; by hand\r\nprofile = Old \r\n[profile]\n[/]\nx=\"1\"\n");
    WriteProfiles({"Keep", "Drop", "Drop/deep", "a\\b"});
    Temp.Write("var/Profiles/Nothing/x", "");
    Temp.Write("var/Profiles/note.txt", "mine");
    const std::string outside = Temp.Write("outside/file", "precious");
    for (const char* link : {"/Link", "/Drop/Link"})
        ASSERT_EQ(symlink((Temp / "outside").c_str(), Profiles(link).c_str()), 0);
    Reload();
    state.Profiles.erase(state.Profiles.begin());
    Create("Fresh");
    state.CurrentProfile = "Fresh";
    EXPECT_EQ(SaveError(), "");
    EXPECT_EQ(Folders(), (TNames{"Fresh", "Keep", "a\\b", "note.txt", "profiles.x-ini"}));
    EXPECT_EQ(ReadFile(outside), "precious");
    EXPECT_EQ(ReadFile(Profiles("/profiles.x-ini")),
              "[profiles]\n  profile=Keep\n  profile=Fresh\n[/profiles]\n");
    const std::string policy = "; by hand\r\nprofile = Fresh\r\n[profile]\n[/]\nx=\"1\"\n";
    EXPECT_EQ(Policy(), policy);

    state.Remote = true;
    state.CurrentProfile = "Keep";
    EXPECT_EQ(SaveError(), "");
    EXPECT_EQ(Policy(), policy) << "a repository has no policy file";
}

TEST_F(State, SaveKeepsWhatOthersHaveChangedMeanwhile)
{
    WritePolicy("profile=Both\n");
    WriteProfiles({"Both", "Kept", "Theirs"}, kRoot);
    Temp.MakeFolder("var/Profiles/Unfinished");
    Reload();
    TQvCPUtils::TCPState others;
    TQvCPUtils::ReloadState(others, nullptr);
    TQvCPUtils::AddNodeState(TQvPath("/usr"), "Both", others);
    TQvCPUtils::CreateProfileState("Unfinished", others);
    others.Profiles.erase(others.Profiles.begin() + 2);
    others.CurrentProfile = "Kept";
    TQvCPUtils::RefreshProfilesState(others);
    TQvCPUtils::SaveState(others);
    Temp.MakeFolder("var/Profiles/NotYet");
    const std::string untouched = Profiles("/Kept/profile.x-ini");
    std::filesystem::create_hard_link(untouched, untouched + "~");

    state.Profiles[0].Nodes.erase("/D");
    TQvCPUtils::AddNodeState(TQvPath("/srv"), "Both", state);
    EXPECT_EQ(SaveError(), "");
    EXPECT_EQ(SaveError(), "") << "nor does the next saving take it for removed";
    EXPECT_EQ(ReadFile(Profiles("/Both/profile.x-ini")),
              "[profile]\n  remote=0\n  [mount]\n    node=/srv\n    path=/srv\n  [/mount]\n"
              "  [mount]\n    node=/usr\n    path=/usr\n  [/mount]\n; kept\n[/profile]\n");
    EXPECT_EQ(Folders(), (TNames{"Both", "Kept", "NotYet", "Unfinished", "profiles.x-ini"}));
    EXPECT_EQ(ReadFile(Profiles("/profiles.x-ini")),
              "[profiles]\n  profile=Both\n  profile=Kept\n  profile=Unfinished\n[/profiles]\n");
    EXPECT_EQ(Policy(), "profile=Kept\n");
    EXPECT_TRUE(std::filesystem::equivalent(untouched, untouched + "~"))
        << "what did not change is not written";
    state.CurrentProfile = "Theirs"; // chosen here, though it is gone
    EXPECT_EQ(SaveError(), "");
    EXPECT_EQ(Policy(), "profile=Theirs\n");
}

TEST_F(State, AThreadMayTakeTheLockTwiceAndARefusalNamesTheFile)
{
    Temp.MakeFolder("var/Profiles");
    const TQvVarFolderLock lock(TQvPath(Var("/Profiles/..")), 0);
    EXPECT_NO_THROW(TQvVarFolderLock(TQvPath(Var()), 0));
    TQvMessage refused("");
    std::thread([&] { refused = Thrown([this] { TQvVarFolderLock(TQvPath(Var()), 50); }); }).join();
    EXPECT_EQ(refused.text(), "Err_Locked_name");
    EXPECT_EQ(refused.arguments().at(0), Var("/.lock"));
}

TEST_F(State, SaveRefusesBeforeItWrites)
{
    WriteProfiles({"Drop"});
    state.VarFolder = TQvPath(Var());
    EXPECT_EQ(SaveError(), Unread()) << "a state that was never loaded";
    EXPECT_EQ(TreeOf(Var()), "Profiles/Drop/profile.x-ini=[profile]\n  remote=0\n[/profile]\n");
    Reload();
    state.Profiles.clear();
    Create("Fine");
    Create("");
    const std::string badName =
        "static void TQvCPUtils::SaveState(TQvCPUtils::TCPState &): Invalid profile name ";
    for (const std::string name : {"", ".", "a/b", "..\\x", "a\nb", "profiles.x-ini"}) {
        state.Profiles[1].Name = name;
        EXPECT_EQ(SaveError(), badName + name);
    }
    EXPECT_EQ(Policy(), "<missing>");
    state.Profiles[1].Name = "Other";
    WritePolicy("broken\n");
    EXPECT_NE(SaveError().find(Var("/policy.x-ini")), std::string::npos);
    EXPECT_EQ(Policy(), "broken\n");
    EXPECT_EQ(Folders(), TNames{"Drop"});
    Reload();
    WritePolicy("profile=Drop\n"); // repaired: but what it chooses was not seen
    state.CurrentProfile = "Other";
    EXPECT_NE(SaveError().find(Var("/policy.x-ini")), std::string::npos);
    EXPECT_EQ(Policy(), "profile=Drop\n");
}

TEST_F(State, AddedNodesReplaceOthersOfTheirNameAndCountTheirSpace)
{
    TQvCPUtils::AddNodeState(TQvPath("/usr"), "Absent", state);
    EXPECT_FALSE(TQvCPUtils::RefreshProfileFreeSpaceState("Absent", state));
    Create("P");
    TQvResourceProfile& profile = state.Profiles[0];
    profile.Nodes["/GROUP"].Kind = kProfileNodeStorageGroup;
    TLogCapture log;
    TQvCPUtils::AddNodeState(TQvPath(Temp.MakeFolder("one/Data")), "p", state);
    EXPECT_GT(profile.TotalFreeSpace, 0u);
    EXPECT_EQ(log.Entries.size(), 1u) << "a storage group is reported and not counted";
    TQvCPUtils::AddNodeState(TQvPath(Temp.MakeFolder("two/dATA") + "/"), "P", state);
    EXPECT_EQ(profile.Nodes.at("/DATA").Name, "/dATA") << "replaces what differs only in case";
    EXPECT_EQ(profile.Nodes.at("/DATA").Path.toSysStr(), Temp / "two/dATA/") << "as given";
}

TEST_F(State, FirstProfileNeverChangesAnExistingConfiguration)
{
    const TQvPath data("/usr/share/");
    TTestProgress progress;
    progress.BreakAfter = 0;
    progress.Polls = 1;
    TQvCPUtils::CreateProfileNode(data, &progress);
    EXPECT_FALSE(Exists(Profiles())) << "the user cancelled it";
    WriteProfiles({"a\\b"});
    TQvCPUtils::CreateProfileNode(data, nullptr);
    EXPECT_EQ(Folders(), TNames{"a\\b"}) << "its name is no profile name, but it exists";
    std::filesystem::remove_all(Profiles());
    for (const char* text : {"[profile]\n  remote=0\n[/profile]\n", "broken\n"}) {
        const std::string file = Temp.Write("var/Profiles/LocalProfile/profile.x-ini", text);
        TQvCPUtils::CreateProfileNode(data, nullptr);
        EXPECT_EQ(ReadFile(file), text) << "it may be unreadable, but it exists";
    }
}
} // namespace
