// The first run, the VAR folder, the mount table, the repository and the profiles.
#include "cli/QvresTest.h"
#include "support/EnvironmentVariable.h"

using TSetupTest = TQvresTest;

TEST_F(TSetupTest, AFreshHomeGoesFromNothingToWrittenWithThreeCommands)
{
    const std::string var = "$T/home/.config/velmor/KORVADELAirlane7.VAR";
    const std::string hint =
        "the VAR folder \"" + var + "\" is not set up; run \"qvres setup FOLDER\" first";
    Expect({{"qvres ls", "", hint},
            {"q mount /C a", "", hint},
            {"qvres setup $T/a/; echo content | qvres put /a/x; qvres cat /a/x", "/a\ncontent\n"},
            {"qvres setup a; cd registry; ls *.x-ini; grep -ho 'VarPath.*' *",
             "/a\nuser.x-ini\nVarPath=" + var + "\n"},
            {"qvres setup b", "",
             R"(there are profiles already; "qvres profile add NAME FOLDER" adds a folder to one )"
             "of them"},
            {"cd registry; rm user.x-ini; mkdir user.x-ini; qvres ls", "",
             R"(the registry "$T/registry/user.x-ini" cannot be read: Is a directory)"},
            {"qvres --mount /B=b exists /B", "2\n",
             R"(warning: "$T/registry/user.x-ini" cannot be read: Is a directory)", 0},
            {"qvres --mount /B=b mount /C a", "",
             R"(the registry "$T/registry/user.x-ini" cannot be read: Is a directory)"}});
}

TEST_F(TSetupTest, WithVarTheRegistryStaysAsItIs)
{
    Expect({{"q --var var ls", "",
             R"(the VAR folder "$T/var" is not set up; run "qvres --var var setup FOLDER" first)"},
            {"qvres --var var setup a; qvres --var var ls; ls -A registry home",
             "/a\n/a/\nhome:\n\nregistry:\n"},
            // What is common stays common.
            {"(export QV_VAR_FOLDER=$T/var; qvres setup --common); qvres setup; qvres ls", "/a/\n"},
            {"cd registry; ls *.x-ini; grep -ho 'VarPath.*' *", "common.x-ini\nVarPath=$T/var\n"}});
}

TEST_F(TSetupTest, MountsLastForACallOrForGood)
{
    const TEnvironmentVariable var("QV_VAR_FOLDER", m_temp / "var");
    const std::string record = R"({"id":"/My Data","folder":"$T/a","persistent":true})";
    Expect({{"qvres setup; qvres profile create P; touch a/x", ""},
            {"cd b; qvres mount '/My Data/' ../a; qvres --json mounts", "[" + record + "]\n"},
            {"qvres --mount /B/=b mounts", "/My Data\t$T/a\n/B\t$T/b\n"},
            {"qvres ls '/my data'", "/my data/x\n"},
            {"qvres --mount '/MY DATA=.' ls", "", R"("/MY DATA" is already a mount point)"},
            {"qvres mount /C no", "", R"(the folder "no" does not exist)"},
            {"qvres mount /C a/x", "", R"("a/x" is not a folder)"},
            {"qvres setup ''", "", R"("" is no usable path of a folder: Invalid argument)"},
            {"qvres mount / b", "", "a mount point needs a name: the root of the tree is not one"},
            {"qvres unmount /C", "", R"(nothing is mounted at "/C")"},
            {"q unmount /B", "", R"("/B" is mounted for this call only)"},
            {"qvres unmount '/my data/'; qvres mounts; qvres ls", ""}});
}

TEST_F(TSetupTest, PublishedProfilesArePickedUpAndMarked)
{
    const std::string missing = R"(the repository "$T/repo" does not exist)";
    const std::string refusal =
        R"(the profile "Alpha" comes from the repository and cannot be changed here)";
    Expect(
        {// Nothing is set up by halves.
         {"qvres setup --repository repo; ls -A home", "", missing},
         {"mkdir repo; qvres --var var setup --repository repo; cat repo/*/*",
          "[profiles]\n[/profiles]\n"},
         {"rm -r repo/*; qvres --var var ls", "",
          R"(the repository "$T/repo" publishes no profiles: "$T/repo/Profiles/profiles.x-ini" )"
          "cannot be opened for reading; \"qvres --var var setup --repository DIR\" names another "
          "one, \"\" none"},
         {"qvres --var repo setup; qvres --var repo profile create Alpha", ""},
         {"qvres --var repo profile add Alpha a; qvres setup --repository repo b", "/a\n/b\n"},
         {"qvres profile list | mask", "- remote      1 FREE Alpha\n"
                                       "- remote      0         0 B LocalProfile\n"
                                       "* local       1 FREE LocalProfile2\n"},
         {"qvres profile remove LocalProfile2", "",
          R"(the profile "LocalProfile2" is the current one; select another one first)"},
         {"qvres --var repo profile select Alpha; qvres --var repo profile remove LocalProfile; "
          "rm -r home; qvres setup b; qvres setup --repository repo",
          "/b\n"},
         {"qvres profile list | mask",
          "- remote      1 FREE Alpha\n* local       1 FREE LocalProfile\n"},
         {"qvres profile remove Alpha", "", refusal},
         {"qvres profile select ALPHA; qvres ls", "/a/\n"},
         {"qvres mount /C b", "", refusal},
         {"mv repo gone; qvres ls", "",
          missing + R"(; "qvres setup --repository DIR" names another one, "" none)"},
         {"qvres setup --repository ''; qvres ls", "/a/\n"},
         {"qvres profile list | mask",
          "* local       1 FREE Alpha\n- local       1 FREE LocalProfile\n"}});
}

TEST_F(TSetupTest, ProfilesAreMadeShownAndRemoved)
{
    const std::string invalid = " is not a valid name of a profile: ";
    const std::string empty = "* local       0         0 B LocalProfile\n";
    const std::string record = R"({"name":"Work","current":true,"remote":false,"mounts":)";
    const std::string free = R"(,"free":FREE,"freeIsComplete":true})";
    Expect({{"qvres setup; qvres ls; qvres profile list", empty},
            {"cd home/.config/velmor/*; rm -r Profiles/L*; qvres ls", "",
             R"("$T/home/.config/velmor/KORVADELAirlane7.VAR/Profiles/LocalProfile/profile.x-ini" )"
             "cannot be opened for reading."},
            {"qvres profile create First; qvres profile create Work; qvres ls", ""},
            {"qvres profile add work b", "/b\n"},
            {"qvres profile create work", "", R"(there is a profile "Work" already)"},
            {"qvres profile create ..", "", R"("..")" + invalid + "it stands for a folder"},
            {"qvres profile create profiles.x-ini", "",
             R"("profiles.x-ini")" + invalid + "the list of the profiles has it"},
            {"mkdir c c/B; qvres profile add Work c/B", "",
             R"("/b" is already a mount point of the profile "Work")"},
            {"qvres profile add No b", "", R"(there is no profile "No")"},
            {"qvres profile remove first", "",
             R"(the profile "First" is the current one; select another one first)"},
            {"qvres profile select Work; qvres ls; qvres profile remove First", "/b/\n"},
            {"ls -A home/.config/velmor/*/Profiles", "Work\nprofiles.x-ini\n"},
            {"qvres --json profile list | mask", "[" + record + "1" + free + "]\n"},
            {"qvres --json profile show work | mask",
             record + R"([{"id":"/b","folder":"$T/b"}])" + free + "\n"}});
}

TEST_F(TSetupTest, ErrorsNameTheFileAndTheCauseOnce)
{
    const std::string var = "$T/home/.config/velmor/KORVADELAirlane7.VAR/";
    const auto breaks = [&](const std::string& file, const std::string& call) {
        const std::string damage = "line 2: expected name=value, [section] or a comment.";
        Expect({{"cp " + file + " kept; printf 'k=1\\nbad\\n' >" + file + "; " + call, "",
                 "\"" + file + "\" is not well formed: " + damage},
                {"cp kept " + file}});
    };
    Expect({{"qvres setup a", "/a\n"}});
    for (const char* file :
         {"policy.x-ini", "Profiles/profiles.x-ini", "Profiles/LocalProfile/profile.x-ini"})
        breaks(var + file, "qvres ls");
    // It could name another VAR folder than the default one.
    for (const char* call : {"qvres ls", "qvres setup"})
        breaks("$T/registry/user.x-ini", call);
    for (const std::string file : {"policy.x-ini", "Profiles/profiles.x-ini"})
        Expect({{"mv " + var + file + " kept; qvres ls; mv kept " + var + file, "",
                 "\"" + var + file + "\" is missing; \"qvres setup\" creates it again"}});
    Expect(
        {{"touch f; export QV_REGISTRY_DIR=$T/f/no; qvres --json setup", "",
          R"({"error":"The setting of the VAR folder cannot be written to the registry: )"
          R"(\"$T/f/no/user.x-ini\" cannot be written: Not a directory","id":null,"errno":20})"}});
}

TEST_F(TSetupTest, AProfileThatCannotBeReadIsNeverRemoved)
{
    const std::string damage = R"("$T/var/Profiles/Bad/profile.x-ini" is not well formed: line 1: )"
                               "expected name=value, [section] or a comment.";
    const std::string refusal = R"("$T/var/Profiles/Bad/profile.x-ini" cannot be read, and saving )"
                                "would remove it; repair it or move it away first: " +
                                damage;
    Expect({{"qvres --var var setup a", "/a\n"}});
    m_temp.Write("var/Profiles/Bad/profile.x-ini", "half a line");
    Expect({{"qvres --var var setup", "", refusal},
            {"qvres --var var profile select LocalProfile", "", refusal},
            {"qvres --var var ls; cat var/Profiles/Bad/*", "/a/\nhalf a line"},
            {"qvres --var var profile list | mask", "* local       1 FREE LocalProfile\n", damage},
            {"qvres --var var profile show bad", "", damage}});
}
