// One resource: cat, cp, mv, rm, meta.
#include <cerrno>
#include <filesystem>
#include <memory>
#include <vector>

#include <CLI/CLI.hpp>
#include <QvStd/Files.h>

#include "Checks.h"
#include "Commands.h"
#include "Failure.h"

namespace
{
void Cat(THost& host, const std::vector<std::string>& ids)
{
    const TResourceManager& tree = host.Session.Tree();
    for (const std::string& id : ids) {
        RequireResource(tree, id);
        WriteContent(host, *OpenForReading(tree, id), id);
    }
}

void Meta(THost& host, const std::string& id)
{
    const TResourceManager& tree = host.Session.Tree();
    RequireResource(tree, id);
    const var_a<TQvStream*> stream = tree.OpenResourceMeta(id, kQvOpenRead, kQvShareAll);
    if (!stream) {
        // No metadata is the normal case and has its own sentence.
        if (TResourceManager::LastFailure().Error == ENOENT)
            throw TFailure(Quoted(id) + " has no metadata", id, ENOENT);
        ThrowFailed("the metadata of " + Quoted(id) + " cannot be read");
    }
    WriteContent(host, *stream, id);
}

/// What cp and mv differ in.
struct TTransfer
{
    bool (TResourceManager::*Operation)(const std::string&, const std::string&,
                                        TQvProgressHandler*) const;
    const char* Doing;
    const char* Done;
    const char* FolderAdvice;
};

constexpr TTransfer kCopy = {&TResourceManager::CopyResource, "Copying ", "copied",
                             "\"qvres copy\" copies folders"};
constexpr TTransfer kMove = {&TResourceManager::RenMovResource, "Moving ", "moved",
                             "\"qvres rename\" renames folders"};

/// Inside a mount a move renames the link itself, whose text may name another target from its new
/// folder.
void RefuseMoveThatBreaksLink(const TResourceManager& tree, const std::string& source,
                              const std::string& target)
{
    const TResourceManager::TMountNode* const node = tree.GetNode4Id(source, true, true, false);
    if (node != tree.GetNode4Id(target, true, true, false) || !node->IsLink(source))
        return;
    const std::string from = node->GetResourceFile(source);
    std::string to = node->GetResourceFile(target);
    std::error_code error;
    const std::filesystem::path text = std::filesystem::read_symlink(from, error);
    if (error || !QvFollowLinks(&to))
        return; // the move finds out why
    const std::string leadsTo = (std::filesystem::path(to).parent_path() / text).string();
    // A relative link in another folder is harmless when both places resolve to one file.
    if (QvCompareFiles(from, leadsTo) == TQvSameness::Different)
        throw TFailure(Quoted(source) + " is a symbolic link to " + Quoted(text.string()) +
                           ", which would point to another file from " + Quoted(target) +
                           "; \"qvres cp\" copies the target of the link",
                       source, ENOTSUP);
}

void Transfer(THost& host, const TTransfer& transfer, const std::string& source,
              const std::string& target)
{
    const TResourceManager& tree = host.Session.Tree();
    RequireResource(tree, source, transfer.FolderAdvice);
    RequireTarget(tree, target);
    if (&transfer == &kMove)
        RefuseMoveThatBreaksLink(tree, source, target);
    TQvResAttrib attrib;
    tree.GetResourceAttr(source, &attrib);
    host.Progress.CountBytesOf(attrib.Size);
    TQvProgress progress(&host.Progress);
    progress.SetMessage(transfer.Doing + source);
    progress.Start();
    const bool isDone = (tree.*transfer.Operation)(source, target, &host.Progress);
    const TQvFailure failure = TResourceManager::LastFailure();
    if (failure.OfMetadata) {
        // Between two file systems a move is a copy, and deletes nothing before all is copied.
        const bool isKept = &transfer == &kMove && tree.IsResource(source);
        throw WithCause("the content of " + Quoted(source) + " was " +
                            (isKept ? kCopy.Done : transfer.Done) + " to " + Quoted(target) +
                            ", but not its metadata" + (isKept ? ", and the source was kept" : ""),
                        failure, source);
    }
    if (!isDone && failure.Error == EINVAL && failure.Id == target) {
        std::error_code error;
        if (std::filesystem::is_other(tree.GetResourceFile(target, false), error))
            throw TFailure(Quoted(target) + " is not a regular file", target, EINVAL);
        throw TFailure(Quoted(source) + " and " + Quoted(target) +
                           " are one file, or one is the metadata of the other",
                       source, EINVAL);
    }
    if (!isDone)
        ThrowFailed(Quoted(source) + " cannot be " + transfer.Done + " to " + Quoted(target));
}

void Remove(THost& host, const std::string& id)
{
    const TResourceManager& tree = host.Session.Tree();
    RequireResource(tree, id, "\"qvres rmdir\" removes folders");
    if (!tree.DeleteResource(id))
        ThrowFailed(Quoted(id) + " cannot be removed");
}

void AddTransfer(CLI::App* command, THost& host, const TTransfer& transfer)
{
    const auto ids = std::make_shared<std::pair<std::string, std::string>>();
    AddIdOption(*command, "SRC", ids->first, "The resource")->required();
    AddIdOption(*command, "DST", ids->second, "The id to write it to")->required();
    command->callback(
        [&host, ids, &transfer] { Transfer(host, transfer, ids->first, ids->second); });
}
} // namespace

void AddContentCommands(CLI::App& app, THost& host)
{
    const auto ids = std::make_shared<std::vector<std::string>>();
    CLI::App* cat = AddCommand(app, "cat", "Write the content of resources to standard output",
                               "  qvres cat /Data/a /Data/b > both");
    AddIdsOption(*cat, "ID", *ids, "Resources")->required();
    cat->callback([&host, ids] { Cat(host, *ids); });

    AddTransfer(AddCommand(app, "cp",
                           "Copy one resource with its metadata; an existing target is replaced",
                           "  qvres cp /Data/a /Backup/a"),
                host, kCopy);
    AddTransfer(AddCommand(app, "mv",
                           "Move or rename one resource with its metadata; an existing target "
                           "is replaced",
                           "  qvres mv /Data/a /Data/b"),
                host, kMove);

    const auto id = std::make_shared<std::string>();
    CLI::App* remove =
        AddCommand(app, "rm", "Remove one resource with its metadata", "  qvres rm /Data/a");
    AddIdOption(*remove, "ID", *id, "A resource")->required();
    remove->callback([&host, id] { Remove(host, *id); });

    CLI::App* meta = AddCommand(app, "meta", "Write the metadata of a resource to standard output",
                                "  qvres meta /Data/a");
    AddIdOption(*meta, "ID", *id, "A resource")->required();
    meta->callback([&host, id] { Meta(host, *id); });
}
