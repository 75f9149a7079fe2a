// What is there: ls, stat, exists, file.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

#include <CLI/CLI.hpp>

#include "Checks.h"
#include "Commands.h"
#include "Failure.h"
#include "HumanText.h"
#include "IsoTime.h"
#include "Json.h"
#include "ListOrder.h"

namespace
{
/// Entries that a recursive listing makes room for. Address space alone, since no page of it is
/// used before an entry is in it; a list that grows step by step is moved each time.
constexpr std::size_t kReserved = std::size_t{1} << 18;

struct TListOptions
{
    bool Long = false;
    bool OnlyIds = false;
    bool HumanSizes = false;
    bool All = false;
    bool Recursive = false;
    bool EndWithNull = false;
    std::string Sort = "name";
    std::string Mask = "*";
    std::string Kind;
    std::vector<std::string> Ids;
};

const char* KindName(const TQvResAttrib& attrib)
{
    return attrib.Kind == kResFolder ? "folder" : "resource";
}

/// A name on the disk may be one that no id can have.
bool IsReachable(const TQvResFindItem& item)
{
    return TResourceManager::IsValidResId(item.Id, true);
}

nlohmann::ordered_json Record(const TQvResFindItem& item)
{
    nlohmann::ordered_json record = RecordOf(item.Id);
    record["kind"] = KindName(item.Attrib);
    record["size"] = item.Attrib.Size;
    record["updated"] = IsoTimeValue(item.Attrib.UpdateTime);
    record["created"] = IsoTimeValue(item.Attrib.CreationTime);
    if (!IsReachable(item))
        record["valid"] = false;
    return record;
}

std::string Columns(const TQvResFindItem& item, bool humanSizes)
{
    std::string size = "-";
    if (item.Attrib.Kind != kResFolder)
        size = humanSizes ? HumanSize(static_cast<double>(item.Attrib.Size))
                          : std::to_string(item.Attrib.Size);
    std::array<char, 64> columns{};
    std::snprintf(columns.data(), columns.size(), "%-8s %*s %-25s ", KindName(item.Attrib),
                  humanSizes ? 10 : 14, size.c_str(),
                  IsoTimeOrDash(item.Attrib.UpdateTime).c_str());
    return columns.data();
}

/// One line, also for a name that holds the end of one.
std::string Marked(std::string line)
{
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c >= 0 && c < 0x20; }, '?');
    return line + "\t(not a valid id)";
}

class TLinePrinter
{
public:
    TLinePrinter(TOutput& out, const TListOptions& options) : m_out(out), m_options(options) {}
    void Print(const TQvResFindItem& item)
    {
        m_line.clear();
        if (m_options.Long)
            m_line = Columns(item, m_options.HumanSizes);
        m_line += item.Id;
        if (item.Attrib.Kind == kResFolder)
            m_line += '/';
        if (m_options.EndWithNull)
            m_out.Write(m_line += '\0');
        else
            m_out.Line(IsReachable(item) ? m_line : Marked(m_line));
    }

private:
    TOutput& m_out;
    const TListOptions& m_options;
    std::string m_line; ///< kept for its memory
};

/// Record by record: a document of a large listing as a whole would take a multiple of its memory.
class TRecordPrinter
{
public:
    explicit TRecordPrinter(TOutput& out) : m_out(out) { m_out.Write("["); }
    void Print(const TQvResFindItem& item)
    {
        m_out.Write(m_separator);
        m_out.Write(ToJsonText(Record(item)));
        m_separator = ",\n";
    }
    void Finish() { m_out.Write("\n]\n"); }

private:
    TOutput& m_out;
    const char* m_separator = "\n";
};

TQvResFindItem ItemOf(const TResourceManager& tree, const std::string& id)
{
    TQvResFindItem item{id, {}};
    // The parent folder of a mount point is shown although it may not exist on the disk.
    if (tree.GetResourceAttr(id, &item.Attrib))
        return item;
    if (TResourceManager::LastFailure().Error != 0)
        ThrowFailed(Quoted(id) + " cannot be accessed");
    if (ShownKind(tree, id) != kResFolder)
        throw TFailure(Quoted(id) + " does not exist", id, ENOENT);
    item.Attrib.Kind = kResFolder;
    return item;
}

unsigned FindFlags(const TListOptions& options, bool withAttributes)
{
    unsigned flags = kFindResources | kFindFolders;
    if (!options.Kind.empty())
        flags = options.Kind == "folder" ? kFindFolders : kFindResources;
    return flags | kFindMounts | (options.Recursive ? kFindRecursive : 0) |
           (options.All ? kFindHidden : 0) | (withAttributes ? kFindAttributes : 0);
}

/// By name; the largest or the latest first.
template <class TVisit>
void VisitSorted(const std::vector<TQvResFindItem>& items, const std::string& by, TVisit&& visit)
{
    using TItem = TQvResFindItem;
    if (by == "name") {
        VisitById(items, visit);
        return;
    }
    std::vector<const TItem*> sorted;
    VisitById(items, [&sorted](const TItem& item) { sorted.push_back(&item); });
    std::stable_sort(sorted.begin(), sorted.end(), [&by](const TItem* a, const TItem* b) {
        // Equal ones stay in the order of their ids.
        return by == "size" ? a->Attrib.Size > b->Attrib.Size
                            : b->Attrib.UpdateTime < a->Attrib.UpdateTime;
    });
    for (const TItem* const item : sorted)
        visit(*item);
}

TResourceManager::TFindItems FindItems(THost& host, const TListOptions& options,
                                       const std::string& givenId)
{
    const TResourceManager& tree = host.Session.Tree();
    const std::string id = QvExcludeTrailingSlash(givenId);
    const auto items = make_var<std::vector<TQvResFindItem>>();
    CheckId(id);
    // With the trailing "/" the user asks for a folder: a resource of that name is an error.
    if (givenId.back() != '/' && tree.IsResource(id)) {
        items->push_back(ItemOf(tree, id));
        return items;
    }
    if (ShownKind(tree, id) != kResFolder)
        RequireFolder(tree, id);
    host.Progress.SetMessage("Listing " + id);
    std::vector<TQvFailure> failures;
    if (options.Recursive)
        items->reserve(kReserved);
    tree.Find(items, id, options.Mask,
              FindFlags(options, options.Long || host.Json || options.Sort != "name"),
              &host.Progress, &failures);
    // What could be read is listed all the same.
    for (const TQvFailure& failure : failures)
        PrintError(WithCause(Quoted(failure.Id) + " cannot be read", failure));
    host.Status = failures.empty() ? host.Status : 1;
    return items;
}

/// One id that cannot be listed does not keep the others from it.
void List(THost& host, TListOptions options)
{
    options.Long = (options.Long || options.HumanSizes) && !options.OnlyIds;
    host.Session.Tree(); // without a tree there is one reason for all ids
    TLinePrinter lines(host.Out, options);
    std::optional<TRecordPrinter> records;
    if (host.Json)
        records.emplace(host.Out);
    for (const std::string& id : options.Ids) {
        try {
            const auto items = FindItems(host, options, id);
            VisitSorted(*items, options.Sort, [&](const TQvResFindItem& item) {
                if (records)
                    records->Print(item);
                else
                    lines.Print(item);
            });
        } catch (const TFailure& failure) {
            PrintError(failure);
            host.Status = 1;
        }
    }
    if (records)
        records->Finish();
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
    host.Out.Line(std::to_string(ShownKind(host.Session.Tree(), id)));
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
    options->Ids = {"/"};
    CLI::App* command = AddCommand(
        app, "ls",
        "List folders, one id a line; a folder's id ends with a \"/\". A name on the disk "
        "that is\nnot a valid id is marked; no command can use it",
        "  qvres ls -lh --sort time /Data /Backup\n"
        "  qvres ls -R --mask '*.txt' --kind resource /Data\n"
        "  qvres --json ls /Data\n"
        "  qvres ls -0 --mask '*.tmp' --kind resource /Data | xargs -0 -r -n 1 qvres rm");
    command->set_help_flag("--help", "Print this help message and exit"); // -h is taken
    command->add_flag("-l,--long", options->Long, "Kind, size in bytes, time and id");
    command->add_flag("-h,--human-readable", options->HumanSizes,
                      "As -l, with sizes such as 1.5 MiB");
    command->add_flag("-a,--all", options->All, "Names that begin with a \".\", too");
    command->add_flag("-R,--recursive", options->Recursive,
                      "With everything below; links to folders are listed, not entered");
    command->add_flag("-1", options->OnlyIds, "Only the ids, as without options");
    command->add_flag("-0,--null", options->EndWithNull,
                      "A byte 0 at the end of each, and every name as it is on the disk");
    command
        ->add_option("--sort", options->Sort,
                     "By name, by size with the largest first, or by time with the latest first")
        ->check(CLI::IsMember({"name", "size", "time"}));
    command->add_option("--mask", options->Mask, "Only names that match, \"*\" and \"?\" allowed")
        ->type_name("MASK");
    command->add_option("--kind", options->Kind, "Only entries of one kind")
        ->check(CLI::IsMember({"resource", "folder"}));
    AddIdsOption(*command, "ID", options->Ids, "Folders or resources; by default \"/\"");
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

    CLI::App* file = AddCommand(app, "file", "Print the path of the disk file of a resource",
                                "  less \"$(qvres file /Data/a)\"");
    AddIdOption(*file, "ID", *id, "A resource")->required();
    file->callback([&host, id] { PrintFile(host, *id); });
}
