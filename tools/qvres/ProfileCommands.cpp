// Profiles: profile list, show, create, add, select, remove.
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>

#include <CLI/CLI.hpp>
#include <QvStd/Files.h>

#include "Checks.h"
#include "Commands.h"
#include "Failure.h"
#include "HumanText.h"
#include "Json.h"
#include "LogWarnings.h"
#include "ProfileState.h"

namespace
{
using TCPState = TQvCPUtils::TCPState;

/// "12.3 GiB", with a ">" before it when some volume could not be counted.
std::string FreeSpaceText(const TQvResourceProfile& profile)
{
    return (profile.FreeSpaceIncomplete ? ">" : "") +
           HumanSize(static_cast<double>(profile.TotalFreeSpace));
}

bool IsCurrent(const TCPState& state, const TQvResourceProfile& profile)
{
    return state.FindProfile(state.CurrentProfile) == &profile;
}

nlohmann::ordered_json Record(const TCPState& state, const TQvResourceProfile& profile)
{
    nlohmann::ordered_json record;
    PutText(record, "name", profile.Name);
    record["current"] = IsCurrent(state, profile);
    record["remote"] = profile.Remote;
    record["mounts"] = profile.Nodes.size();
    record["free"] = profile.TotalFreeSpace;
    record["freeIsComplete"] = !profile.FreeSpaceIncomplete;
    return record;
}

std::string ListLine(const TCPState& state, const TQvResourceProfile& profile)
{
    std::array<char, 80> columns{};
    std::snprintf(columns.data(), columns.size(), "%s %-6s %6zu %11s ",
                  IsCurrent(state, profile) ? "*" : "-", profile.Remote ? "remote" : "local",
                  profile.Nodes.size(), FreeSpaceText(profile).c_str());
    return columns.data() + profile.Name;
}

void RequireVarFolder(THost& host)
{
    host.Session.StartConfiguration(true);
    host.Session.RequireSetUp();
}

void List(THost& host)
{
    RequireVarFolder(host);
    TCPState state;
    LoadProfiles(state, host.Progress);
    auto records = nlohmann::ordered_json::array();
    for (const TQvResourceProfile& profile : state.Profiles) {
        if (host.Json)
            records.push_back(Record(state, profile));
        else
            host.Out.Line(ListLine(state, profile));
    }
    if (host.Json)
        host.Out.Line(ToJsonText(records));
    // After the list, which has the profiles that could be read.
    if (!state.Loaded.Failure.empty())
        throw TFailure(state.Loaded.Failure);
}

std::string NodeTarget(const TQvResourceProfile::TNode& node)
{
    return node.Kind == kProfileNodePath ? node.Path.toSysStr() : "(storage group)";
}

void Show(THost& host, const std::string& name)
{
    RequireVarFolder(host);
    TCPState state;
    LoadProfiles(state, host.Progress);
    const TQvResourceProfile& profile = RequireProfile(state, name);
    if (host.Json) {
        nlohmann::ordered_json record = Record(state, profile);
        record["mounts"] = nlohmann::ordered_json::array();
        for (const auto& [key, node] : profile.Nodes) {
            PutText(record["mounts"].emplace_back(RecordOf(node.Name)), "folder", NodeTarget(node));
        }
        host.Out.Line(ToJsonText(record));
        return;
    }
    host.Out.Line("name:    " + profile.Name);
    host.Out.Line(std::string("current: ") + (IsCurrent(state, profile) ? "yes" : "no"));
    host.Out.Line(std::string("remote:  ") + (profile.Remote ? "yes" : "no"));
    host.Out.Line("free:    " + FreeSpaceText(profile));
    for (const auto& [key, node] : profile.Nodes)
        host.Out.Line(node.Name + "\t" + NodeTarget(node));
}

/// A profile is a folder of its name, in the folder of the list of profiles.
void CheckName(const std::string& name)
{
    std::string problem = NameProblem(name);
    if (name == "profiles.x-ini")
        problem = "the list of the profiles has it";
    else if (problem.empty() && !TQvPath(name).isPathValid())
        problem = "it is longer than 255 bytes";
    if (!problem.empty())
        throw TFailure(Quoted(name) + " is not a valid name of a profile: " + problem, "", EINVAL);
}

TQvResourceProfile& RequireOwn(const TCPState& state, const std::string& name)
{
    TQvResourceProfile& profile = RequireProfile(state, name);
    if (profile.Remote)
        throw TFailure("the profile " + Quoted(profile.Name) +
                           " comes from the repository and cannot be changed here",
                       "", EROFS);
    return profile;
}

void Create(THost& host, const std::string& name)
{
    CheckName(name);
    RequireVarFolder(host);
    TProfileChange change(host.Progress);
    TCPState& state = change.State;
    if (const TQvResourceProfile* profile = state.FindProfile(name))
        throw TFailure("there is a profile " + Quoted(profile->Name) + " already", "", EEXIST);
    CreateProfile(state, name);
    change.Save();
}

void Add(THost& host, const std::string& name, const std::string& givenFolder)
{
    const TQvPath folder = FolderToMount(givenFolder);
    RequireVarFolder(host);
    TProfileChange change(host.Progress);
    TCPState& state = change.State;
    AddFolder(state, RequireOwn(state, name), folder);
    change.Save();
    PrintValue(host, MountPointOf(folder));
}

void Select(THost& host, const std::string& name)
{
    RequireVarFolder(host);
    TProfileChange change(host.Progress);
    TCPState& state = change.State;
    state.CurrentProfile = RequireProfile(state, name).Name;
    change.Save();
}

void Remove(THost& host, const std::string& name)
{
    RequireVarFolder(host);
    TProfileChange change(host.Progress);
    TCPState& state = change.State;
    const TQvResourceProfile& profile = RequireOwn(state, name);
    if (IsCurrent(state, profile))
        throw TFailure("the profile " + Quoted(profile.Name) +
                           " is the current one; select another one first",
                       "", EBUSY);
    // Taken before the removal, after which `profile` refers to another one.
    const TQvPath folder = state.VarFolder / "Profiles" / profile.Name;
    state.Profiles.erase(state.Profiles.begin() + (&profile - state.Profiles.data()));
    state.BuildIndex();
    change.Save();
    // Saving only logs a folder that stays.
    if (QvFileDirExists(folder, nullptr))
        throw TFailure(LogWarnings::WithLast("the folder " + Quoted(folder.toSysStr()) +
                                             " could not be removed"));
}

using TOnProfile = void (*)(THost&, const std::string&);

void AddForName(CLI::App& app, THost& host, const std::string& command,
                const std::string& description, TOnProfile function)
{
    const auto name = std::make_shared<std::string>();
    CLI::App* onProfile =
        AddCommand(app, command, description, "  qvres profile " + command + " Work");
    onProfile->add_option("NAME", *name, "The profile; letter case does not count")->required();
    onProfile->callback([&host, name, function] { function(host, *name); });
}
} // namespace

void AddProfileCommands(CLI::App& app, THost& host)
{
    CLI::App* profile = AddCommand(app, "profile", "Profiles: which folders are mounted where", "");
    profile->require_subcommand(1);
    CLI::App* list = AddCommand(*profile, "list",
                                "List the profiles: \"*\" for the current one, local or remote "
                                "(from the repository),\nnumber of mounts, free space, name",
                                "  qvres profile list\n"
                                "  qvres --json profile list     # free space in bytes");
    list->callback([&host] { List(host); });
    AddForName(*profile, host, "show", "Show a profile with its mount points", &Show);
    AddForName(*profile, host, "create",
               "Make an empty profile; it is the current one when there is none", &Create);

    const auto name = std::make_shared<std::string>();
    const auto folder = std::make_shared<std::string>();
    CLI::App* add = AddCommand(*profile, "add",
                               "Mount a folder in a profile, at / and its name; that id is printed",
                               "  qvres profile add Work /srv/work     # /work");
    add->add_option("NAME", *name, "The profile; not one from the repository")->required();
    add->add_option("FOLDER", *folder, "The folder on the disk")->required();
    add->callback([&host, name, folder] { Add(host, *name, *folder); });

    AddForName(*profile, host, "select", "Make a profile the current one", &Select);
    AddForName(*profile, host, "remove",
               "Remove a profile, neither the current one (select another one first) nor one from\n"
               "the repository. The folders that it mounts stay as they are",
               &Remove);
}
