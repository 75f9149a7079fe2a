// Folders: mkdir, rmdir, clear, rename.
#include <cerrno>
#include <memory>

#include <CLI/CLI.hpp>

#include "Checks.h"
#include "Commands.h"
#include "Failure.h"

namespace
{
/// The folder `id` or the first one above it that is there as a resource; "" when there is none.
std::string ResourceOnTheWay(const TResourceManager& tree, std::string id)
{
    while (id.size() > 1 && !tree.IsResource(id))
        id = QvExcludeTrailingSlash(QvExtractResPath(id));
    return id.size() > 1 ? id : std::string();
}

void MakeFolder(THost& host, const std::string& givenId)
{
    const TResourceManager& tree = host.Session.Tree();
    const std::string id = QvExcludeTrailingSlash(givenId);
    CheckId(id);
    // Found here, since the system reports only that some part of the path is no folder.
    const std::string resource = ResourceOnTheWay(tree, id);
    if (!resource.empty())
        throw TFailure(Quoted(resource) + " is a resource", resource, ENOTDIR);
    // A folder above the mount points that exists already is done, as any other.
    if (!tree.IsInsideMountedNodes(id) && !tree.IsFolder(id, false))
        throw TFailure(Quoted(id) + " is outside the mounted folders", id, EROFS);
    if (!tree.CreateFolder(id))
        ThrowFailed("the folder " + Quoted(id) + " cannot be created");
}

/// Why a folder was not cleared or removed.
[[noreturn]] void ThrowNotEmptied(const TResourceManager& tree, const std::string& id,
                                  const char* notDone)
{
    const TQvFailure failure = TResourceManager::LastFailure();
    BreakSignal::ThrowIfWanted();
    if (failure.Error == EBUSY && tree.IsMountNode(failure.Id))
        throw TFailure(Quoted(failure.Id) + " is a mount point and is not removed", failure.Id,
                       EBUSY);
    if (failure.Error == ENOTDIR && failure.Id == id)
        throw TFailure(Quoted(id) + " is a link to a folder; its target is not cleared", id,
                       ENOTDIR);
    if (failure.Error == ENOTEMPTY && failure.Id == id)
        throw TFailure("the folder " + Quoted(id) +
                           // The user sees an empty folder in a listing: then hidden names are the
                           // reason.
                           (tree.IsFolderEmpty(id)
                                ? " is not empty: it contains entries that are not listed, such "
                                  "as hidden files"
                                : " is not empty"),
                       id, ENOTEMPTY);
    throw WithCause("the folder " + Quoted(id) + notDone, failure);
}

void ClearFolder(THost& host, const std::string& id)
{
    const TResourceManager& tree = host.Session.Tree();
    RequireRealFolder(tree, id);
    TQvProgress progress(&host.Progress);
    progress.SetMessage("Clearing " + id);
    progress.Start();
    if (!tree.ClearFolder(id, &host.Progress))
        ThrowNotEmptied(tree, id, " could not be cleared");
}

void RemoveFolder(THost& host, const std::string& givenId, bool clearFirst)
{
    const TResourceManager& tree = host.Session.Tree();
    const std::string id = QvExcludeTrailingSlash(givenId);
    RequireRealFolder(tree, id);
    // Checked before anything in it is deleted.
    if (tree.IsMountNode(id))
        throw TFailure(Quoted(id) + " is a mount point; \"qvres clear\" empties it, \"qvres "
                                    "unmount\" removes it from the tree",
                       id, EBUSY);
    TQvProgress progress(&host.Progress);
    progress.SetMessage("Removing " + id);
    progress.Start();
    if (!tree.DeleteFolder(id, clearFirst, &host.Progress))
        ThrowNotEmptied(tree, id, " could not be removed");
}

void RenameFolder(THost& host, const std::string& givenId, const std::string& newName)
{
    const TResourceManager& tree = host.Session.Tree();
    const std::string id = QvExcludeTrailingSlash(givenId);
    const std::string problem = NameProblem(newName);
    if (!problem.empty())
        throw TFailure(Quoted(newName) + " is not a valid name: " + problem, id, EINVAL);
    CheckId(id);
    if (tree.IsResource(id))
        throw TFailure(Quoted(id) + " is a resource; \"qvres mv\" renames resources", id, ENOTDIR);
    RequireFolder(tree, id);
    const std::string newId = QvExtractResPath(id) + newName;
    // For a clear sentence; the rename itself refuses a target that appears meanwhile.
    if (tree.ResourceExists(newId) != kResNothing)
        throw TFailure(Quoted(newId) + " exists already", newId, EEXIST);
    try {
        tree.RenameFolderE(id, newName);
    } catch (const TQvMessage& message) {
        const int error = TResourceManager::LastFailure().Error;
        if (error != EBUSY && error != EEXIST)
            ThrowFailed("the folder " + Quoted(id) + " cannot be renamed");
        ThrowNaming(id, message); // not each of them names the folder
    }
}
} // namespace

void AddFolderCommands(CLI::App& app, THost& host)
{
    const auto id = std::make_shared<std::string>();
    CLI::App* make =
        AddCommand(app, "mkdir",
                   "Create a folder with its missing parents; an existing folder is not an error",
                   "  qvres mkdir /Data/2024/spring");
    AddIdOption(*make, "ID", *id, "The folder")->required();
    make->callback([&host, id] { MakeFolder(host, *id); });

    const auto clearFirst = std::make_shared<bool>(false);
    CLI::App* remove = AddCommand(app, "rmdir", "Remove an empty folder",
                                  "  qvres rmdir /Data/old\n"
                                  "  qvres rmdir --clear /Data/old");
    remove->add_flag("--clear", *clearFirst,
                     "First delete everything in it, as \"qvres clear\" does");
    AddIdOption(*remove, "ID", *id, "The folder; not a mount point")->required();
    remove->callback([&host, id, clearFirst] { RemoveFolder(host, *id, *clearFirst); });

    CLI::App* clear = AddCommand(
        app, "clear",
        "Delete everything in a folder; hidden files stay, and links to folders are not followed",
        "  qvres clear /Data/tmp");
    AddIdOption(*clear, "ID", *id, "The folder")->required();
    clear->callback([&host, id] { ClearFolder(host, QvExcludeTrailingSlash(*id)); });

    const auto newName = std::make_shared<std::string>();
    CLI::App* rename = AddCommand(app, "rename", "Rename a folder; it stays in its parent folder",
                                  "  qvres rename /Data/old new");
    AddIdOption(*rename, "ID", *id, "The folder; neither a mount point nor above one")->required();
    rename->add_option("NEWNAME", *newName, "The new name, without a \"/\"")->required();
    rename->callback([&host, id, newName] { RenameFolder(host, *id, *newName); });
}
