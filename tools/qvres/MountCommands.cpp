// The mount table: mounts, mount, unmount.
#include <cerrno>
#include <memory>

#include <CLI/CLI.hpp>

#include "Checks.h"
#include "Commands.h"
#include "Failure.h"
#include "Json.h"

namespace
{
bool IsInProfile(const TResourceManager& tree, const std::string& mountPoint)
{
    return tree.Profile().Nodes.count(QvNormalizeResId(mountPoint)) != 0;
}

void PrintMounts(THost& host)
{
    const TResourceManager& tree = host.Session.Tree();
    auto records = nlohmann::ordered_json::array();
    for (const auto& node : tree.MountNodes()) {
        if (node->Type() != TResourceManager::kFileNode)
            continue;
        const std::string& id = node->MountPointId();
        const std::string folder = node->GetResourceFile(id);
        if (!host.Json) {
            host.Out.Line(id + "\t" + folder);
            continue;
        }
        nlohmann::ordered_json record = RecordOf(id);
        PutText(record, "folder", folder);
        record["persistent"] = IsInProfile(tree, id);
        records.push_back(std::move(record));
    }
    if (host.Json)
        host.Out.Line(ToJsonText(records));
}

std::string MountPoint(const std::string& givenId)
{
    const std::string id = QvExcludeTrailingSlash(givenId);
    const std::string problem = TSession::CheckMountPoint(id);
    if (!problem.empty())
        throw TFailure(problem, id, EINVAL);
    return id;
}

void Mount(THost& host, const std::string& givenId, const std::string& folder)
{
    const std::string id = MountPoint(givenId);
    host.Session.PersistentTree();
    TSession::Mount(id, folder, true);
}

void Unmount(THost& host, const std::string& givenId)
{
    const std::string id = MountPoint(givenId);
    TResourceManager& tree = host.Session.PersistentTree();
    if (!tree.IsMountNode(id))
        throw TFailure("nothing is mounted at " + Quoted(id), id, ENOENT);
    if (!IsInProfile(tree, id))
        throw TFailure(Quoted(id) + " is mounted for this call only", id, EINVAL);
    // A loaded profile has its nodes under their upper-cased ids.
    tree.UnmountNodeE(QvNormalizeResId(id), true);
}
} // namespace

void AddMountCommands(CLI::App& app, THost& host)
{
    CLI::App* mounts =
        AddCommand(app, "mounts", "List the mount points with their folders, a tab in between",
                   "  qvres mounts\n"
                   "  qvres --json mounts");
    mounts->callback([&host] { PrintMounts(host); });

    const auto id = std::make_shared<std::string>();
    const auto folder = std::make_shared<std::string>();
    CLI::App* mount = AddCommand(app, "mount", "Mount a folder permanently, in the current profile",
                                 "  qvres mount /Data /srv/data");
    AddIdOption(*mount, "ID", *id, "Where in the tree")->required();
    mount->add_option("DIR", *folder, "The folder on the disk")->required();
    mount->callback([&host, id, folder] { Mount(host, *id, *folder); });

    CLI::App* unmount = AddCommand(
        app, "unmount", "Remove a mount point from the current profile; its folder is not changed",
        "  qvres unmount /Data");
    AddIdOption(*unmount, "ID", *id, "The mount point")->required();
    unmount->callback([&host, id] { Unmount(host, *id); });
}
