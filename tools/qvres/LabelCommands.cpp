// Labels: label, check.
#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <memory>

#include <CLI/CLI.hpp>

#include "Checks.h"
#include "Commands.h"
#include "IsoTime.h"
#include "Labels.h"

namespace
{
TQvResourceLabel StoredLabel(const TResourceManager& tree, const std::string& id)
{
    TQvResourceLabel label;
    const bool isRead = ReadResResourceLabel(id, &label);
    const int error = TResourceManager::LastFailure().Error;
    if (!isRead && error == EBADMSG)
        throw TFailure("the metadata of " + Quoted(id) + " is damaged: " + MetadataDamage(tree, id),
                       id, EBADMSG);
    if (!isRead && error != 0 && error != ENOENT)
        ThrowFailed("the metadata of " + Quoted(id) + " cannot be read");
    if (!isRead)
        throw TFailure(Quoted(id) + " has no stored label; \"qvres label\" stores one", id, ENOENT);
    return label;
}

TQvResourceLabel WeakLabel(const std::string& id)
{
    TQvResourceLabel label;
    // The library answers zeros when the query failed.
    if (!TResourceManager::GetResourceLabelWeak(id, &label) ||
        TResourceManager::LastFailure().Error != 0)
        ThrowFailed(Quoted(id) + " cannot be accessed");
    return label;
}

void PrintLabel(THost& host, const std::string& id, const TQvResourceLabel& label,
                bool withChecksum)
{
    std::array<char, 24> checksum{};
    std::snprintf(checksum.data(), checksum.size(), "%08" PRIx64, label.CRC);
    if (host.Json) {
        nlohmann::ordered_json record = RecordOf(id);
        record["size"] = label.Size;
        record["time"] = IsoTimeValue(label.Time);
        if (withChecksum)
            record["checksum"] = checksum.data();
        host.Out.Line(ToJsonText(record));
        return;
    }
    host.Out.Line("size:     " + std::to_string(label.Size));
    host.Out.Line("time:     " + IsoTimeOrDash(label.Time));
    if (withChecksum)
        host.Out.Line(std::string("checksum: ") + checksum.data());
}

void Label(THost& host, const std::string& id, bool stored, bool weak)
{
    RequireResource(host.Session.Tree(), id);
    if (weak)
        PrintLabel(host, id, WeakLabel(id), false);
    else
        PrintLabel(host, id, stored ? StoredLabel(host.Session.Tree(), id) : CurrentLabel(host, id),
                   true);
}

void Check(THost& host, const std::string& id)
{
    RequireResource(host.Session.Tree(), id);
    const TQvResourceLabel label = StoredLabel(host.Session.Tree(), id);
    const bool same = HasSameContent(host, id, label);
    PrintValue(host, same ? "ok" : "changed");
    host.Status = same ? 0 : 1;
}
} // namespace

void AddLabelCommands(CLI::App& app, THost& host)
{
    const auto id = std::make_shared<std::string>();
    const auto isStored = std::make_shared<bool>(false);
    const auto isWeak = std::make_shared<bool>(false);
    CLI::App* label =
        AddCommand(app, "label",
                   "Show size, time and checksum (CRC-32) of a resource. The label is kept in the\n"
                   "metadata, and the checksum is computed again only when size or time differ",
                   "  qvres label /Data/a\n"
                   "  qvres --json label --weak /Data/a");
    CLI::Option* stored =
        label->add_flag("--stored", *isStored, "The label as it is kept; fails when there is none");
    label->add_flag("--weak", *isWeak, "Size and time only")->excludes(stored);
    AddIdOption(*label, "ID", *id, "A resource")->required();
    label->callback([&host, id, isStored, isWeak] { Label(host, *id, *isStored, *isWeak); });

    CLI::App* check =
        AddCommand(app, "check",
                   "Compare a resource with its stored label, content included: prints \"ok\", or\n"
                   "\"changed\" with exit status 1",
                   "  qvres label /Data/a && qvres check /Data/a");
    AddIdOption(*check, "ID", *id, "A resource with a stored label")->required();
    check->callback([&host, id] { Check(host, *id); });
}
