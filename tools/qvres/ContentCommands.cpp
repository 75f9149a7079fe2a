// One resource: cat, cp, mv, rm, meta.
#include <cerrno>
#include <memory>
#include <vector>

#include <CLI/CLI.hpp>

#include "Checks.h"
#include "Commands.h"
#include "Failure.h"

namespace
{
constexpr std::size_t kBlockSize = 256 * 1024;

void WriteContent(THost& host, TQvStream& stream, const std::string& id)
{
    TQvProgress progress(&host.Progress);
    progress.SetMessage("Reading " + id);
    // The bar and the content would mix on one terminal.
    if (!host.Out.IsTerminal())
        progress.Start();
    const auto size = static_cast<double>(stream.getSize());
    std::vector<char> block(kBlockSize);
    for (double done = 0;;) {
        BreakSignal::ThrowIfWanted();
        const std::size_t count = stream.Read(block.data(), block.size());
        if (count == TQvStream::invalid_value)
            ThrowFailed(Quoted(id) + " cannot be read", -stream.getError());
        if (count == 0)
            return;
        host.Out.Write({block.data(), count});
        done += static_cast<double>(count);
        progress.Report(done / size);
    }
}

void Cat(THost& host, const std::vector<std::string>& ids)
{
    const TResourceManager& tree = host.Session.Tree();
    for (const std::string& id : ids) {
        RequireResource(tree, id);
        WriteContent(host, *tree.OpenResourceE(id, kQvOpenRead, kQvShareAll, 0), id);
    }
}

void Meta(THost& host, const std::string& id)
{
    const TResourceManager& tree = host.Session.Tree();
    RequireResource(tree, id);
    const var_a<TQvStream*> stream = tree.OpenResourceMeta(id, kQvOpenRead, kQvShareAll);
    if (!stream)
        throw TFailure(tree.ResourceMetaExists(id)
                           ? "the metadata of " + Quoted(id) + " cannot be read"
                           : Quoted(id) + " has no metadata");
    WriteContent(host, *stream, id);
}

struct TSourceTarget
{
    std::string Source;
    std::string Target;
};

void Copy(THost& host, const TSourceTarget& ids)
{
    const TResourceManager& tree = host.Session.Tree();
    RequireResource(tree, ids.Source, "\"qvres copy\" copies folders");
    RequireTarget(tree, ids.Target);
    TQvProgress progress(&host.Progress);
    progress.SetMessage("Copying " + ids.Source);
    progress.Start();
    errno = 0;
    if (!tree.CopyResource(ids.Source, ids.Target, &host.Progress))
        ThrowFailed(Quoted(ids.Source) + " cannot be copied to " + Quoted(ids.Target), errno);
}

void Move(THost& host, const TSourceTarget& ids)
{
    const TResourceManager& tree = host.Session.Tree();
    RequireResource(tree, ids.Source, "\"qvres rename\" renames folders");
    RequireTarget(tree, ids.Target);
    TQvProgress progress(&host.Progress);
    progress.SetMessage("Moving " + ids.Source);
    progress.Start();
    errno = 0;
    if (!tree.RenMovResource(ids.Source, ids.Target, &host.Progress))
        ThrowFailed(Quoted(ids.Source) + " cannot be moved to " + Quoted(ids.Target), errno);
}

void Remove(THost& host, const std::string& id)
{
    const TResourceManager& tree = host.Session.Tree();
    RequireResource(tree, id, "\"qvres rmdir\" removes folders");
    errno = 0;
    if (!tree.DeleteResource(id))
        ThrowFailed(Quoted(id) + " cannot be removed", errno);
}

using TSourceTargetAction = void (*)(THost&, const TSourceTarget&);

void AddSourceTarget(CLI::App* command, THost& host, TSourceTargetAction action)
{
    const auto ids = std::make_shared<TSourceTarget>();
    command->add_option("SRC", ids->Source, "The resource")->required();
    command->add_option("DST", ids->Target, "The id to write it to")->required();
    command->callback([&host, ids, action] { action(host, *ids); });
}
} // namespace

void AddContentCommands(CLI::App& app, THost& host)
{
    const auto ids = std::make_shared<std::vector<std::string>>();
    CLI::App* cat = AddCommand(app, "cat", "Write the content of resources to standard output",
                               "  qvres cat /Data/a /Data/b > both");
    cat->add_option("ID", *ids, "Resources")->required();
    cat->callback([&host, ids] { Cat(host, *ids); });

    AddSourceTarget(
        AddCommand(app, "cp", "Copy one resource with its metadata; an existing target is replaced",
                   "  qvres cp /Data/a /Backup/a"),
        host, &Copy);
    AddSourceTarget(AddCommand(app, "mv",
                               "Move or rename one resource with its metadata; an existing target "
                               "is replaced",
                               "  qvres mv /Data/a /Data/b"),
                    host, &Move);

    const auto id = std::make_shared<std::string>();
    CLI::App* remove =
        AddCommand(app, "rm", "Remove one resource with its metadata", "  qvres rm /Data/a");
    remove->add_option("ID", *id, "A resource")->required();
    remove->callback([&host, id] { Remove(host, *id); });

    CLI::App* meta = AddCommand(app, "meta", "Write the metadata of a resource to standard output",
                                "  qvres meta /Data/a");
    meta->add_option("ID", *id, "A resource")->required();
    meta->callback([&host, id] { Meta(host, *id); });
}
