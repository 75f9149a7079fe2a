// What is there: ls, stat, exists, file.
#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>

#include <CLI/CLI.hpp>

#include "Checks.h"
#include "Commands.h"
#include "Failure.h"
#include "IsoTime.h"
#include "Json.h"

namespace
{
struct TListOptions
{
    bool Long = false;
    bool Recursive = false;
    std::string Mask = "*";
    std::string Kind;
    std::string Id = "/";
};

const char* KindName(const TQvResAttrib& attrib)
{
    return attrib.Kind == kResFolder ? "folder" : "resource";
}

nlohmann::ordered_json Record(const TQvResFindItem& item)
{
    return {{"id", item.Id},
            {"kind", KindName(item.Attrib)},
            {"size", item.Attrib.Size},
            {"updated", IsoTimeValue(item.Attrib.UpdateTime)},
            {"created", IsoTimeValue(item.Attrib.CreationTime)}};
}

std::string LongLine(const TQvResFindItem& item)
{
    const std::string size =
        item.Attrib.Kind == kResFolder ? "-" : std::to_string(item.Attrib.Size);
    std::array<char, 64> columns{};
    std::snprintf(columns.data(), columns.size(), "%-8s %14s %-25s ", KindName(item.Attrib),
                  size.c_str(), IsoTimeOrDash(item.Attrib.UpdateTime).c_str());
    return columns.data();
}

void PrintLines(TOutput& out, const std::vector<TQvResFindItem>& items, bool withColumns)
{
    std::string line;
    for (const TQvResFindItem& item : items) {
        line = withColumns ? LongLine(item) : std::string();
        line += item.Id;
        if (item.Attrib.Kind == kResFolder)
            line += '/';
        out.Line(line);
    }
}

/// Record by record: a document of a large listing as a whole would take a multiple of its memory.
void PrintRecords(TOutput& out, const std::vector<TQvResFindItem>& items)
{
    out.Write("[");
    const char* separator = "\n";
    for (const TQvResFindItem& item : items) {
        out.Write(separator);
        out.Write(ToJsonText(Record(item)));
        separator = ",\n";
    }
    out.Write("\n]\n");
}

TQvResFindItem ItemOf(const TResourceManager& tree, const std::string& id)
{
    TQvResFindItem item{id, {}};
    if (tree.GetResourceAttr(id, &item.Attrib))
        return item;
    if (TResourceManager::LastFailure().Error != 0)
        ThrowFailed(Quoted(id) + " cannot be accessed");
    throw TFailure(Quoted(id) + " does not exist");
}

unsigned FindFlags(const TListOptions& options, bool withAttributes)
{
    unsigned flags = kFindResources | kFindFolders;
    if (!options.Kind.empty())
        flags = options.Kind == "folder" ? kFindFolders : kFindResources;
    return flags | (options.Recursive ? kFindRecursive : 0) |
           (withAttributes ? kFindAttributes : 0);
}

TResourceManager::TFindItems FindItems(THost& host, const TListOptions& options)
{
    const TResourceManager& tree = host.Session.Tree();
    const std::string id = QvExcludeTrailingSlash(options.Id);
    const auto items = make_var<std::vector<TQvResFindItem>>();
    CheckId(id);
    if (options.Id.back() != '/' && tree.IsResource(id)) {
        items->push_back(ItemOf(tree, id));
        return items;
    }
    RequireFolder(tree, id);
    host.Progress.SetMessage("Listing " + id);
    std::vector<TQvFailure> failures;
    tree.Find(items, id, options.Mask, FindFlags(options, options.Long || host.Json),
              &host.Progress, &failures);
    // What could be read is listed all the same.
    for (const TQvFailure& failure : failures)
        PrintError(WithCause(Quoted(failure.Id) + " cannot be read", failure));
    host.Status = failures.empty() ? 0 : 1;
    std::sort(items->begin(), items->end(),
              [](const TQvResFindItem& a, const TQvResFindItem& b) { return a.Id < b.Id; });
    return items;
}

void List(THost& host, const TListOptions& options)
{
    const auto items = FindItems(host, options);
    if (host.Json)
        PrintRecords(host.Out, *items);
    else
        PrintLines(host.Out, *items, options.Long);
}

void Stat(THost& host, const std::string& givenId)
{
    const TResourceManager& tree = host.Session.Tree();
    const std::string id = QvExcludeTrailingSlash(givenId);
    CheckId(id);
    const TQvResFindItem item = ItemOf(tree, id);
    if (host.Json) {
        host.Out.Line(ToJsonText(Record(item)));
        return;
    }
    host.Out.Line("id:      " + item.Id);
    host.Out.Line(std::string("kind:    ") + KindName(item.Attrib));
    host.Out.Line("size:    " + std::to_string(item.Attrib.Size));
    host.Out.Line("updated: " + IsoTimeOrDash(item.Attrib.UpdateTime));
    host.Out.Line("created: " + IsoTimeOrDash(item.Attrib.CreationTime));
}

void PrintExists(THost& host, const std::string& id)
{
    CheckClimb(id);
    const unsigned exists = host.Session.Tree().ResourceExists(id);
    if (TResourceManager::LastFailure().Error != 0)
        ThrowFailed(Quoted(id) + " cannot be accessed");
    host.Out.Line(std::to_string(exists));
}

void PrintFile(THost& host, const std::string& id)
{
    const TResourceManager& tree = host.Session.Tree();
    RequireResource(tree, id);
    PrintValue(host, tree.GetResourceFile(id, false));
}

void AddList(CLI::App& app, THost& host)
{
    const auto options = std::make_shared<TListOptions>();
    CLI::App* command =
        AddCommand(app, "ls", "List a folder, one id a line; a folder's id ends with a \"/\"",
                   "  qvres ls -l /Data\n"
                   "  qvres ls -R --mask '*.txt' --kind resource /Data\n"
                   "  qvres --json ls /Data");
    command->add_flag("-l,--long", options->Long, "Kind, size in bytes, time and id");
    command->add_flag("-R,--recursive", options->Recursive,
                      "With everything below; links to folders are listed, not entered");
    command->add_option("--mask", options->Mask, "Only names that match, \"*\" and \"?\" allowed")
        ->type_name("MASK");
    command->add_option("--kind", options->Kind, "Only entries of one kind")
        ->check(CLI::IsMember({"resource", "folder"}));
    AddIdOption(*command, "ID", options->Id, "The folder, or one resource; \"/\" when left out");
    command->callback([&host, options] { List(host, *options); });
}
} // namespace

void AddListCommands(CLI::App& app, THost& host)
{
    AddList(app, host);
    const auto id = std::make_shared<std::string>();

    CLI::App* stat = AddCommand(app, "stat", "Show kind, size and times", "  qvres stat /Data/a");
    AddIdOption(*stat, "ID", *id, "A resource or folder")->required();
    stat->callback([&host, id] { Stat(host, *id); });

    CLI::App* exists = AddCommand(app, "exists",
                                  "Print 0 for nothing, 1 for a resource, 2 for a folder; fails "
                                  "when that cannot be found out",
                                  "  [ \"$(qvres exists /Data/a)\" = 1 ] && echo there");
    AddIdOption(*exists, "ID", *id, "Any id")->required();
    exists->callback([&host, id] { PrintExists(host, *id); });

    CLI::App* file = AddCommand(app, "file", "Print the path of the disk file behind a resource",
                                "  less \"$(qvres file /Data/a)\"");
    AddIdOption(*file, "ID", *id, "A resource")->required();
    file->callback([&host, id] { PrintFile(host, *id); });
}
