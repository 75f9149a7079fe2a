// which: the mount that answers for an id, and the files that belong to it.
#include <cerrno>
#include <memory>

#include <CLI/CLI.hpp>
#include <QvStd/Files.h>

#include "Checks.h"
#include "Commands.h"
#include "Json.h"
#include "Labels.h"

namespace
{
using TMountNode = TResourceManager::TMountNode;
using TRecord = nlohmann::ordered_json;

constexpr const char* kUnknown = "unknown"; ///< could not be found out

const char* KindName(unsigned kind)
{
    constexpr const char* kNames[] = {"nothing", "resource", "folder"};
    return kNames[kind];
}

/// Whether the library's last operation could not find out what it was asked.
bool IsUnknown()
{
    const int error = TResourceManager::LastFailure().Error;
    return error != 0 && error != ENOENT; // nothing there is an answer
}

std::string LabelState(const TResourceManager& tree, const std::string& id)
{
    TQvResourceLabel label;
    // First, because reading a label answers nothing for a damaged sidecar.
    if (!MetadataDamage(tree, id).empty())
        return "damaged";
    if (!ReadResResourceLabel(id, &label))
        return IsUnknown() ? kUnknown : "none";
    const bool matches = WeakCheckResResourceLabel(label, id);
    return matches ? "matches" : IsUnknown() ? kUnknown : "differs";
}

/// `unread` receives what could not be found out, if anything.
TRecord MountRecord(const TMountNode& node, const std::string& id, TQvFailure* unread)
{
    TRecord record = RecordOf(node.MountPointId());
    PutText(record, "folder", node.GetResourceFile(node.MountPointId()));
    PutText(record, "file", node.GetResourceFile(id));
    const TQvExistence exists = node.ResourceExists(id);
    record["kind"] = exists.Result.HasFailed() ? kUnknown : KindName(exists);
    if (exists.Result.HasFailed())
        *unread = {exists.Result.Error(), id};
    return record;
}

/// The files that belong to a resource. `unread` receives the failure of the label, if any.
void AddBelongings(const TResourceManager& tree, TRecord& record, const TMountNode& node,
                   const std::string& id, TQvFailure* unread)
{
    const std::string sidecar = node.GetResourceFile(id) + kSidecarSuffix;
    if (tree.ResourceMetaExists(id))
        PutText(record, "sidecar", sidecar);
    else
        record["sidecar"] = nullptr;
    record["label"] = LabelState(tree, id);
    if (record["label"] == kUnknown)
        *unread = TResourceManager::LastFailure();
}

/// `unread` receives what could not be found out, if anything.
TRecord Answer(const TResourceManager& tree, const std::string& id, TQvFailure* unread)
{
    const unsigned kind = ShownKind(tree, id);
    TRecord record = RecordOf(id);
    record["kind"] = KindName(kind);
    const TMountNode* const node = tree.GetNode4Id(id, true, true, false);
    record["mount"] = nullptr;
    if (!node->IsPureVirtual())
        record["mount"] = MountRecord(*node, id, unread);
    record["shadows"] = TRecord::array();
    // Mounts of shorter ids, whose files at this place the longer one hides.
    for (const auto& other : tree.MountNodes())
        if (other.get() != node && !other->IsPureVirtual() &&
            IsAtOrBelow(QvNormalizeResId(id), QvNormalizeResId(other->MountPointId())))
            record["shadows"].push_back(MountRecord(*other, id, unread));
    if (kind == kResResource)
        AddBelongings(tree, record, *node, id, unread);
    record["backups"] = TRecord::array();
    if (!node->IsPureVirtual()) {
        for (const TQvResFindItem& backup : FindResourceBackups(id))
            record["backups"].push_back(RecordOf(backup.Id));
        if (IsUnknown())
            *unread = TResourceManager::LastFailure();
    }
    return record;
}

void PrintLines(TOutput& out, const TRecord& record)
{
    out.Line("id:      " + TextOf(record, "id"));
    out.Line("kind:    " + TextOf(record, "kind"));
    const TRecord& mount = record["mount"];
    if (mount.is_null()) {
        out.Line("mount:   -");
    } else {
        out.Line("mount:   " + TextOf(mount, "id") + "\t" + TextOf(mount, "folder"));
        out.Line("file:    " + TextOf(mount, "file"));
    }
    for (const TRecord& other : record["shadows"])
        out.Line("shadows: " + TextOf(other, "id") + "\t" + TextOf(other, "file") + "\t(" +
                 TextOf(other, "kind") + ")");
    if (record.contains("label")) {
        out.Line("sidecar: " + TextOf(record, "sidecar"));
        out.Line("label:   " + TextOf(record, "label"));
    }
    for (const TRecord& backup : record["backups"])
        out.Line("backup:  " + TextOf(backup, "id"));
}

void Which(THost& host, const std::string& givenId)
{
    const TResourceManager& tree = host.Session.Tree();
    const std::string id = QvExcludeTrailingSlash(givenId);
    CheckId(id);
    TQvFailure unread;
    const TRecord record = Answer(tree, id, &unread);
    if (host.Json)
        host.Out.Line(ToJsonText(record));
    else
        PrintLines(host.Out, record);
    if (unread.Error != 0)
        throw WithCause("not everything that belongs to " + Quoted(id) + " could be read", unread);
}
} // namespace

void AddWhichCommand(CLI::App& app, THost& host)
{
    const auto id = std::make_shared<std::string>();
    CLI::App* which = AddCommand(
        app, "which",
        "Show which mount answers for an id, with the file on the disk, which other mounts it\n"
        "hides there, and what belongs to a resource: its metadata file, its label (none,\n"
        "matches, differs, damaged, unknown) and its backups",
        "  qvres which /Data/a.txt");
    AddIdOption(*which, "ID", *id, "Any id; nothing need exist there")->required();
    which->callback([&host, id] { Which(host, *id); });
}
