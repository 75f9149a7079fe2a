#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <sys/stat.h>
#include <unistd.h>

#include "Machine.h"
#include "QvStd/Message.h"
#include "profiles/CPUtils.h"
#include "support/LogCapture.h"
#include "support/TestProgress.h"

namespace
{
using TState = TQvCPUtils::TCPState;
using TNames = std::vector<std::string>;

class State : public testing::Test
{
protected:
    State() { Machine.Configure(); }

    /// A profile file in the VAR folder or, with `folder`, elsewhere.
    std::string WriteProfile(const std::string& name, const std::string& remote = "0",
                             const std::string& mounts = "", const std::string& folder = "var")
    {
        return Machine.Temp.Write(folder + "/Profiles/" + name + "/profile.x-ini",
                                  "[profile]\n  remote=" + remote + "\n" + mounts + "[/profile]\n");
    }
    void Publish(const TNames& names)
    {
        std::string list = "[profiles]\n";
        for (const std::string& name : names)
            list += "profile=" + name + "\n";
        Machine.Temp.Write("repo/Profiles/profiles.x-ini", list + "[/profiles]\n");
        Machine.Temp.Write("var/policy.x-ini", "repository=" + Machine.Temp / "repo" + "\n");
    }
    std::string Var(const std::string& name) const { return Machine.Var() + "/" + name; }
    TNames ProfilesFolder() const { return NamesIn(Var("Profiles")); }

    /// Name by name, remote ones with a "*".
    static TNames Names(const TState& state)
    {
        TNames names;
        for (const TQvResourceProfile& profile : state.Profiles)
            names.push_back(profile.Name + (profile.Remote ? "*" : ""));
        return names;
    }
    static std::string SaveError(TState& state)
    {
        try {
            TQvCPUtils::SaveState(state);
        } catch (const TQvMessage& message) {
            return message.what();
        }
        return "";
    }

    TMachine Machine;
};

TEST_F(State, LoadLeavesOutWhatCannotBeRead)
{
    Machine.Temp.Write("var/policy.x-ini", "profile=gOOd\n");
    WriteProfile("Also", "1");
    WriteProfile("Good", "0", "[mount]\nnode=/D\npath=/\n[/mount]\n");
    WriteProfile("a\\b");
    Machine.Temp.Write("var/Profiles/Malformed/profile.x-ini", "broken\n");
    Machine.Temp.Write("var/Profiles/NoSection/profile.x-ini", "");
    Machine.Temp.Write("var/Profiles/Nothing/x", "");
    Machine.Temp.Write("var/Profiles/profile.x-ini", "[profile]\nremote=0\n[/profile]\n");
    TState state;
    TTestProgress progress;
    TQvCPUtils::ReloadState(state, &progress);
    EXPECT_EQ(Names(state), (TNames{"Also", "Good"}))
        << "what a file says about remote is replaced";
    EXPECT_EQ(state.ProfileIndex.at("GOOD"), &state.Profiles[1]);
    EXPECT_EQ(state.Profiles[1].FreeSpaceMap, state.FreeSpaceMap);
    EXPECT_GT(state.Profiles[1].TotalFreeSpace, 0u);
    EXPECT_EQ(state.CurrentProfile, "gOOd");
    EXPECT_EQ(state.SelectedProfile, "gOOd");
    EXPECT_EQ(progress.Messages.at(1), "Reading profile \"Good\"");
    EXPECT_TRUE(std::is_sorted(progress.Positions.begin(), progress.Positions.end()));
    EXPECT_FALSE(progress.Started());

    state.ProfilesById[1] = &state.Profiles[0];
    Machine.Temp.Write("var/policy.x-ini", "profile=Absent\n");
    TQvCPUtils::ReloadState(state, nullptr);
    EXPECT_EQ(state.CurrentProfile, "");
    EXPECT_EQ(state.SelectedProfile, "Also");
    EXPECT_TRUE(state.ProfilesById.empty());

    state.Remote = true;
    Machine.Temp.Write("var/policy.x-ini", "profile=Good\n");
    TQvCPUtils::ReloadState(state, nullptr);
    EXPECT_EQ(Names(state), (TNames{"Also*", "Good*"}));
    EXPECT_EQ(state.CurrentProfile, "") << "a repository has no current profile";
}

TEST_F(State, WithoutAVarFolderNothingIsRead)
{
    unsetenv("QV_VAR_FOLDER");
    Machine.Temp.Write("Profiles/Here/profile.x-ini", "[profile]\nremote=0\n[/profile]\n");
    ASSERT_EQ(chdir(Machine.Temp.Path().c_str()), 0);
    TState state;
    TQvCPUtils::ReloadState(state, nullptr);
    EXPECT_TRUE(state.Profiles.empty()) << "the working directory is no VAR folder";
    EXPECT_EQ(SaveError(state), "A VAR folder must be set.");
    ASSERT_EQ(chdir("/"), 0);
}

TEST_F(State, BreakAnywhereLeavesAnEmptyState)
{
    WriteProfile("A", "0", "[mount]\nnode=/D\npath=/\n[/mount]\n");
    WriteProfile("B");
    WriteProfile("C", "0", "", "repo");
    Publish({"C"});
    int broken = 0;
    for (bool whole = false; !whole; ++broken) {
        TState state;
        TTestProgress progress;
        progress.BreakAfter = broken;
        whole = true;
        try {
            TQvCPUtils::ReloadState(state, &progress);
            EXPECT_EQ(Names(state), (TNames{"A", "B", "C*"}));
        } catch (const TQvUserBreak&) {
            whole = false;
            EXPECT_TRUE(state.Profiles.empty() && state.ProfileIndex.empty());
            EXPECT_EQ(state.CurrentProfile + state.SelectedProfile, "");
        }
        EXPECT_FALSE(progress.Started());
    }
    EXPECT_GT(broken, 5);
}

TEST_F(State, PublishedProfilesAreTakenOver)
{
    const std::string mount = "; kept\n[mount]\nnode=/D\npath=/\n[/mount]\n";
    WriteProfile("New", "0", mount, "repo");
    WriteProfile("Both", "0", mount, "repo");
    Machine.Temp.Write("repo/Profiles/Bare/profile.x-ini", "");
    Machine.Temp.Write("repo/Profiles/Broken/profile.x-ini", "broken\n");
    Machine.Temp.MakeFolder("repo/Profiles/Empty");
    WriteProfile("Unlisted", "0", "", "repo");
    Machine.Temp.Write("repo/Profiles/profile.x-ini", "[profile]\nremote=0\n[/profile]\n");
    Machine.Temp.Write("repo/Profiles/Sub/Deep/profile.x-ini", "[profile]\n[/profile]\n");
    Publish(
        {"", "..", ".", "Sub/Deep", "Absent", "Empty", "Broken", "bOTH", "Both", "Bare", "New"});
    WriteProfile("Both");
    const std::string own = WriteProfile("Broken");
    const std::string ownText = ReadFile(own);

    TState state;
    TTestProgress progress;
    TQvCPUtils::ReloadState(state, &progress);
    EXPECT_EQ(Names(state), (TNames{"Bare*", "Both*", "Broken", "New*"}));
    EXPECT_EQ(ProfilesFolder(), (TNames{"Bare", "Both", "Broken", "New"}));
    EXPECT_EQ(ReadFile(own), ownText) << "a broken published profile replaces nothing";
    EXPECT_EQ(progress.Messages.at(0), "Copying profiles from the repository");
    const std::string copy = Var("Profiles/New/profile.x-ini");
    const std::string marked = "[profile]\n  remote=1\n" + mount + "[/profile]\n";
    EXPECT_EQ(ReadFile(copy), marked);

    struct stat before = {};
    struct stat after = {};
    stat(copy.c_str(), &before);
    TQvCPUtils::ReloadState(state, nullptr);
    stat(copy.c_str(), &after);
    EXPECT_EQ(before.st_ino, after.st_ino) << "a copy that is up to date is not written again";

    TQvCPUtils::AddNodeState(TQvPath("/usr"), "New", state);
    EXPECT_EQ(SaveError(state), "");
    EXPECT_EQ(ReadFile(copy), marked) << "never written back";
    EXPECT_EQ(ReadFile(Var("Profiles/profiles.x-ini")),
              "[profiles]\n  profile=Bare\n  profile=Both\n  profile=Broken\n  profile=New\n"
              "[/profiles]\n");

    Machine.Temp.Write("repo/Profiles/profiles.x-ini", "broken\n");
    TQvCPUtils::ReloadState(state, nullptr);
    EXPECT_EQ(Names(state), (TNames{"Bare", "Both", "Broken", "New"}));
}

TEST_F(State, SaveRemovesWhatIsDroppedAndNothingElse)
{
    const std::string policy = "; by hand\r\nprofile = Old \r\n[profile]\n[/]\nx=\"1\"\n";
    Machine.Temp.Write("var/policy.x-ini", policy);
    WriteProfile("Keep", "1");
    WriteProfile("Drop");
    Machine.Temp.Write("var/Profiles/Drop/deep/file", "");
    Machine.Temp.Write("var/Profiles/Nothing/x", "");
    Machine.Temp.Write("var/Profiles/note.txt", "mine");
    const std::string outside = Machine.Temp.Write("outside/file", "precious");
    ASSERT_EQ(symlink((Machine.Temp / "outside").c_str(), Var("Profiles/Link").c_str()), 0);
    ASSERT_EQ(symlink((Machine.Temp / "outside").c_str(), Var("Profiles/Drop/Link").c_str()), 0);
    TState state;
    TQvCPUtils::ReloadState(state, nullptr);
    state.Profiles.erase(state.Profiles.begin());
    TQvCPUtils::CreateProfileState("Fresh", state);
    TQvCPUtils::RefreshProfilesState(state);
    state.CurrentProfile = "Fresh";
    EXPECT_EQ(SaveError(state), "");
    EXPECT_EQ(ProfilesFolder(), (TNames{"Fresh", "Keep", "note.txt", "profiles.x-ini"}));
    EXPECT_EQ(ReadFile(outside), "precious");
    EXPECT_EQ(ReadFile(Var("Profiles/Fresh/profile.x-ini")), "[profile]\n  remote=0\n[/profile]\n");
    EXPECT_EQ(Machine.Policy(), "; by hand\r\nprofile = Fresh\r\n[profile]\n[/]\nx=\"1\"\n");

    state.Remote = true;
    state.CurrentProfile = "Keep";
    const std::string before = Machine.Policy();
    EXPECT_EQ(SaveError(state), "");
    EXPECT_EQ(Machine.Policy(), before) << "a repository has no policy file";
}

TEST_F(State, SaveRefusesBeforeItWrites)
{
    WriteProfile("Drop");
    const TNames before = ProfilesFolder();
    for (const std::string& name : {std::string(), std::string("."), std::string(".."),
                                    std::string("a/b"), std::string("..\\x"), std::string("a\nb"),
                                    std::string(256, 'x'), std::string("profiles.x-ini")}) {
        TState state;
        state.VarFolder = TQvPath(Machine.Var());
        TQvCPUtils::CreateProfileState("Fine", state);
        TQvCPUtils::CreateProfileState(name, state);
        state.BuildIndex();
        EXPECT_EQ(SaveError(state), "static void TQvCPUtils::SaveState(TQvCPUtils::TCPState &): "
                                    "Invalid profile name " +
                                        name);
        EXPECT_EQ(ProfilesFolder(), before);
        EXPECT_EQ(Machine.Policy(), "<missing>");
    }
    TState state;
    state.VarFolder = TQvPath(Machine.Var());
    Machine.Temp.Write("var/policy.x-ini", "x=1\nbroken\n");
    EXPECT_NE(SaveError(state).find(Var("policy.x-ini")), std::string::npos);
    EXPECT_EQ(Machine.Policy(), "x=1\nbroken\n");
    EXPECT_EQ(ProfilesFolder(), before);
    unlink(Var("policy.x-ini").c_str());

    Machine.Temp.Write("var/Profiles/File", "");
    TQvCPUtils::CreateProfileState("File", state);
    state.BuildIndex();
    EXPECT_EQ(SaveError(state), "The folder \"" + Var("Profiles/File") + "\" cannot be created.");
    Machine.Temp.MakeFolder("var/Profiles/Blocked/profile.x-ini");
    state.Profiles[0].Name = "Blocked";
    state.BuildIndex();
    EXPECT_NE(SaveError(state).find(Var("Profiles/Blocked/profile.x-ini")), std::string::npos);
}

TEST_F(State, NodesAndFreeSpace)
{
    TState state;
    TQvCPUtils::AddNodeState(TQvPath("/usr"), "Absent", state);
    state.ProfileIndex["EMPTY"] = nullptr;
    TQvCPUtils::AddNodeState(TQvPath("/usr"), "Empty", state);
    EXPECT_FALSE(TQvCPUtils::RefreshProfileFreeSpaceState("Empty", state));
    TQvCPUtils::CreateProfileState("P", state);
    state.BuildIndex();
    TQvResourceProfile& profile = state.Profiles[0];
    TQvCPUtils::AddNodeState(TQvPath(Machine.Temp.MakeFolder("one/Data")), "p", state);
    const std::uint64_t free = profile.TotalFreeSpace;
    EXPECT_GT(free, 0u);
    TQvCPUtils::AddNodeState(TQvPath(Machine.Temp.MakeFolder("two/dATA") + "/"), "P", state);
    ASSERT_EQ(profile.Nodes.size(), 1u) << "names that differ only in case are one";
    EXPECT_EQ(profile.Nodes.at("/DATA").Name, "/dATA");
    TQvCPUtils::AddNodeState(TQvPath(Machine.Temp.Path()), "P", state);
    profile.Nodes["/GROUP"].Name = "/Group";
    profile.Nodes["/GROUP"].Kind = kProfileNodeStorageGroup;
    TLogCapture log;
    EXPECT_TRUE(TQvCPUtils::RefreshProfileFreeSpaceState("P", state));
    EXPECT_LT(profile.TotalFreeSpace, free + free / 2) << "a volume counts once";
    EXPECT_FALSE(profile.FreeSpaceIncomplete) << "not touched";
    ASSERT_EQ(log.Entries.size(), 1u);
    EXPECT_EQ(log.Entries[0].Level, 3);
    EXPECT_NE(log.Entries[0].Shown.find("\"/Group\""), std::string::npos);
}

TEST_F(State, FirstProfileNeverChangesAnExistingConfiguration)
{
    TTestProgress progress;
    TQvCPUtils::CreateProfileNode(TQvPath("/usr/share/"), &progress);
    EXPECT_EQ(progress.Messages.at(0), "Reading the configuration");
    const std::string file = Var("Profiles/LocalProfile/profile.x-ini");
    EXPECT_EQ(ReadFile(file), "[profile]\n  remote=0\n  [mount]\n    node=/share\n"
                              "    path=/usr/share/\n  [/mount]\n[/profile]\n");
    EXPECT_EQ(ReadFile(Var("Profiles/profiles.x-ini")),
              "[profiles]\n  profile=LocalProfile\n[/profiles]\n");
    EXPECT_EQ(Machine.Policy(), "profile=LocalProfile\n");
    EXPECT_FALSE(TQvCPUtils::IsWizardNecessary());

    for (const char* text : {"[profile]\n  remote=0\n[/profile]\n", "broken\n"}) {
        Machine.Temp.Write("var/Profiles/LocalProfile/profile.x-ini", text);
        TQvCPUtils::CreateProfileNode(TQvPath("/usr"), nullptr);
        EXPECT_EQ(ReadFile(file), text) << "one that cannot be read is there, too";
    }
    unlink(file.c_str());
    progress.BreakAfter = 0;
    WriteProfile("Other");
    TQvCPUtils::CreateProfileNode(TQvPath("/usr"), &progress);
    EXPECT_FALSE(Exists(file)) << "whoever breaks off gets nothing";
}

/// Milliseconds to load and save a VAR folder of that many profiles with 20 nodes each.
double LoadAndSave(int profiles)
{
    const TMachine machine;
    machine.Configure();
    std::string nodes;
    for (int i = 0; i < 20; ++i)
        nodes += "[mount]\nnode=/N" + std::to_string(i) + "\npath=/usr\n[/mount]\n";
    // Every tenth one fails to load.
    for (int i = 0; i < profiles; ++i)
        machine.Temp.Write("var/Profiles/P" + std::to_string(i) + "/profile.x-ini",
                           i % 10 == 0 ? "" : "[profile]\nremote=0\n" + nodes + "[/profile]\n");
    TState state;
    const auto start = std::chrono::steady_clock::now();
    TQvCPUtils::ReloadState(state, nullptr);
    EXPECT_EQ(state.Profiles.size(), static_cast<std::size_t>(profiles) / 10 * 9);
    TQvCPUtils::SaveState(state);
    const auto time = std::chrono::steady_clock::now() - start;
    return std::chrono::duration<double, std::milli>(time).count();
}

TEST(StateSpeed, GrowsWithTheNumberOfProfiles)
{
    // In memory: the time that a disk takes to sync says nothing about the code.
    if (access("/dev/shm", W_OK) == 0)
        setenv("TMPDIR", "/dev/shm", 1);
    double few = LoadAndSave(100);
    double many = LoadAndSave(1000);
    for (int i = 0; i < 10 && many > 12 * few; ++i) {
        few = std::min(few, LoadAndSave(100));
        many = std::min(many, LoadAndSave(1000));
    }
    unsetenv("TMPDIR");
    EXPECT_LE(many, 12 * few);
}
} // namespace
