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
    const std::string resource = ResourceOnTheWay(tree, id);
    if (!resource.empty())
        throw TFailure(Quoted(resource) + " is a resource");
    if (!tree.IsInsideMountedNodes(id) && !tree.IsFolder(id, false))
        throw TFailure(Quoted(id) + " lies outside of the mounted folders");
    errno = 0;
    if (!tree.CreateFolder(id))
        ThrowFailed("the folder " + Quoted(id) + " cannot be created", errno);
}

/// Why a folder that was to be emptied is not empty: names the first thing that is left.
[[noreturn]] void ThrowNotCleared(const TResourceManager& tree, const std::string& id, int error)
{
    BreakSignal::ThrowIfWanted();
    const auto left = make_var<std::vector<TQvResFindItem>>();
    tree.Find(left, id, "*", kFindResources | kFindFolders | kFindRecursive, nullptr);
    if (left->empty())
        ThrowFailed("the folder " + Quoted(id) + " could not be cleared", error);
    const std::string& first = left->front().Id;
    if (tree.IsMountNode(first))
        throw TFailure(Quoted(first) + " is a mount point and stays");
    ThrowFailed(Quoted(first) + " could not be removed", error);
}

void ClearFolder(THost& host, const std::string& id)
{
    const TResourceManager& tree = host.Session.Tree();
    RequireRealFolder(tree, id);
    TQvProgress progress(&host.Progress);
    progress.SetMessage("Clearing " + id);
    progress.Start();
    errno = 0;
    if (!tree.ClearFolder(id, &host.Progress))
        ThrowNotCleared(tree, id, errno);
}

void RemoveFolder(THost& host, const std::string& givenId, bool clearFirst)
{
    const TResourceManager& tree = host.Session.Tree();
    const std::string id = QvExcludeTrailingSlash(givenId);
    RequireRealFolder(tree, id);
    // Refused before anything in it is deleted.
    if (tree.IsMountNode(id))
        throw TFailure(Quoted(id) + " is a mount point; \"qvres clear\" empties it, \"qvres "
                                    "unmount\" takes it out of the tree");
    if (clearFirst)
        ClearFolder(host, id);
    errno = 0;
    if (tree.DeleteFolder(id, false, nullptr))
        return;
    const int error = errno;
    if (!tree.IsFolderEmpty(id))
        throw TFailure("the folder " + Quoted(id) + " is not empty");
    if (error == ENOTEMPTY)
        throw TFailure("the folder " + Quoted(id) + " is not empty: it holds hidden files");
    ThrowFailed("the folder " + Quoted(id) + " cannot be removed", error);
}

void RenameFolder(THost& host, const std::string& givenId, const std::string& newName)
{
    const TResourceManager& tree = host.Session.Tree();
    const std::string id = QvExcludeTrailingSlash(givenId);
    if (!TResourceManager::IsValidResNamePart(newName, true) || newName == "." || newName == "..")
        throw TFailure(Quoted(newName) + " is not a valid name");
    CheckId(id);
    if (tree.IsResource(id))
        throw TFailure(Quoted(id) + " is a resource; \"qvres mv\" renames resources");
    RequireFolder(tree, id);
    const std::string newId = QvExtractResPath(id) + newName;
    if (tree.ResourceExists(newId) != kResNothing)
        throw TFailure(Quoted(newId) + " exists already");
    try {
        tree.RenameFolderE(id, newName);
    } catch (const TQvMessage& message) {
        ThrowNaming(id, message); // not each of them names the folder
    }
}
} // namespace

void AddFolderCommands(CLI::App& app, THost& host)
{
    const auto id = std::make_shared<std::string>();
    CLI::App* make = AddCommand(
        app, "mkdir", "Create a folder with its missing parents; one that is there already is fine",
        "  qvres mkdir /Data/2024/spring");
    make->add_option("ID", *id, "The folder")->required();
    make->callback([&host, id] { MakeFolder(host, *id); });

    const auto clearFirst = std::make_shared<bool>(false);
    CLI::App* remove = AddCommand(app, "rmdir", "Remove an empty folder",
                                  "  qvres rmdir /Data/old\n"
                                  "  qvres rmdir --clear /Data/old");
    remove->add_flag("--clear", *clearFirst, "Delete everything in it first");
    remove->add_option("ID", *id, "The folder; not a mount point")->required();
    remove->callback([&host, id, clearFirst] { RemoveFolder(host, *id, *clearFirst); });

    CLI::App* clear = AddCommand(
        app, "clear",
        "Delete everything in a folder; hidden files stay, and links to folders are not followed",
        "  qvres clear /Data/tmp");
    clear->add_option("ID", *id, "The folder")->required();
    clear->callback([&host, id] { ClearFolder(host, QvExcludeTrailingSlash(*id)); });

    const auto newName = std::make_shared<std::string>();
    CLI::App* rename =
        AddCommand(app, "rename", "Rename a folder where it is", "  qvres rename /Data/old new");
    rename->add_option("ID", *id, "The folder; neither a mount point nor above one")->required();
    rename->add_option("NEWNAME", *newName, "The new name, without a \"/\"")->required();
    rename->callback([&host, id, newName] { RenameFolder(host, *id, *newName); });
}
