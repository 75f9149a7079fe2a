// Values of X-Ini resources: xini get, list, set, unset.
#include <cerrno>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <QvStd/FileChange.h>
#include <QvStd/FileLock.h>
#include <QvStd/Strings.h>

#include "Checks.h"
#include "Commands.h"
#include "Json.h"
#include "ResourceWriting.h"

namespace
{
constexpr unsigned long kLockTimeoutMs = 10000;

struct TXIniPlace
{
    std::string Id;
    std::string Path;
};

/// The sections, outermost first, and the key.
using TXIniPath = std::pair<std::vector<std::string>, std::string>;

TXIniPath SplitPath(const std::string& path)
{
    TXIniPath split;
    append_parse_strings(split.first, path, '/', true);
    split.second = split.first.back();
    split.first.pop_back();
    return split;
}

std::string CheckPath(const std::string& path)
{
    const bool hasEmptyPart = ("/" + path + "/").find("//") != std::string::npos;
    return hasEmptyPart ? Quoted(path) + " is not of the form section/section/key" : std::string();
}

/// The position of the first key of that name, which a section may bear too; -1 when there is none.
int FindKey(const TQvXIniReader& reader, const std::string& name)
{
    int position = -1;
    while (reader.FindFP(name, &position))
        if (!reader.IsSection(position))
            return position;
    return -1;
}

var_a<TQvXIniStreamReader*> OpenDocument(THost& host, const std::string& id)
{
    RequireResource(host.Session.Tree(), id);
    const var_a<TQvStream*> stream = OpenForReading(host.Session.Tree(), id);
    auto reader = make_var<TQvXIniStreamReader>(stream, true, &host.Progress);
    // Before the parse error: a document that was read only in part is not malformed.
    if (stream->getError() != 0)
        ThrowFailed(Quoted(id) + " cannot be read", -stream->getError(), id);
    if (reader->ParseError())
        throw TFailure(Quoted(id) + " is not well formed: " + reader->ParseErrorText(), id,
                       EBADMSG);
    return reader;
}

[[noreturn]] void ThrowNoValue(const TXIniPlace& place)
{
    throw TFailure(Quoted(place.Id) + " has no value at " + Quoted(place.Path), place.Id, ENOENT);
}

void EnterSections(TQvXIniReader& reader, const TXIniPlace& place,
                   const std::vector<std::string>& sections)
{
    for (const std::string& section : sections)
        if (reader.EnterSectionS(section) == nullptr)
            throw TFailure(Quoted(place.Id) + " has no section " + Quoted(section) + " of " +
                               Quoted(place.Path),
                           place.Id, ENOENT);
}

void Get(THost& host, const TXIniPlace& place)
{
    const auto reader = OpenDocument(host, place.Id);
    const auto [sections, key] = SplitPath(place.Path);
    EnterSections(*reader, place, sections);
    const int position = FindKey(*reader, key);
    if (position < 0)
        ThrowNoValue(place);
    PrintValue(host, reader->Read(position, std::string()));
}

/// One line, whatever the value contains: formatted as in a document, without the key.
std::string ValueText(const std::string& value)
{
    const auto document = make_var<TQvXIniTree>();
    TQvXIniTreeWriter(document).WriteS("k", value);
    // Without "k=" and the line feed.
    std::string line = QvFormatXIniTree(*document).substr(2);
    line.resize(line.size() - 1);
    return line;
}

void ListSection(THost& host, TQvXIniReader& reader, const std::string& prefix,
                 nlohmann::ordered_json& records)
{
    for (int i = 0; reader.Exists(i); ++i) {
        const std::string path = prefix + reader.Name(i);
        if (reader.IsSection(i)) {
            const TQvXIniSection section = reader.EnterSection(i);
            ListSection(host, reader, path + "/", records);
            reader.ExitSection(section);
            continue;
        }
        const std::string value = reader.Read(i, std::string());
        if (!host.Json) {
            host.Out.Line(path + "=" + ValueText(value));
            continue;
        }
        nlohmann::ordered_json& record = records.emplace_back();
        PutText(record, "path", path);
        PutText(record, "value", value);
    }
}

void List(THost& host, const TXIniPlace& place)
{
    const auto reader = OpenDocument(host, place.Id);
    if (!place.Path.empty()) {
        auto [sections, last] = SplitPath(place.Path);
        sections.push_back(last);
        EnterSections(*reader, place, sections);
    }
    auto records = nlohmann::ordered_json::array();
    ListSection(host, *reader, place.Path.empty() ? "" : place.Path + "/", records);
    if (host.Json)
        host.Out.Line(ToJsonText(records));
}

void CheckLock(const TQvFileLock& lock, const std::string& id, const std::string& file)
{
    // Only here there is a holder to be named.
    if (lock.getError() == -EAGAIN)
        ThrowNaming(id, QvLockMessage(file, lock.getError()));
    if (!lock)
        ThrowFailed(Quoted(id) + " cannot be written", -lock.getError(), id);
}

void PutValue(const var_a<TQvXIniTree*>& document, const TXIniPath& path, const std::string& value)
{
    TQvXIniTreeWriter writer(document);
    for (const std::string& section : path.first)
        if (!writer.OpenSection(writer.FindCreateF(section, TQvXIniEntry::Kind::Section)))
            writer.RaiseErrorE();
    if (!writer.WriteS(path.second, value))
        writer.RaiseErrorE();
}

/// False when there is none.
bool RemoveValue(const var_a<TQvXIniTree*>& document, const TXIniPath& path)
{
    TQvXIniTreeWriter writer(document);
    for (const std::string& section : path.first)
        if (!writer.OpenSection(writer.FindF(section, TQvXIniEntry::Kind::Section)))
            return false;
    return writer.Delete(writer.FindF(path.second));
}

using TChange = std::function<void(const var_a<TQvXIniTree*>&)>;

std::string TextWith(const TXIniPlace& place, const std::string& text, const TChange& change)
{
    std::string error;
    const var_a<TQvXIniTree*> document = QvParseXIniTree(text, &error);
    if (!document)
        throw TFailure(Quoted(place.Id) + " is not well formed: " + error, place.Id, EBADMSG);
    try {
        change(document);
    } catch (const TQvMessage& message) {
        ThrowNaming(place.Id, message);
    }
    return QvFormatXIniTree(*document);
}

/// Opening finds out whether another opener holds the resource exclusively. It is closed again: a
/// network file system takes the share lock and that of a change for one kind of lock. There, each
/// change by another process refuses the open, too, and is waited for.
bool OpensForWriting(const TResourceManager& tree, const std::string& id, const std::string& file)
{
    constexpr int kTries = 50;
    for (int i = 0; i < kTries; ++i) {
        if (*tree.OpenResource(id, kQvOpenWrite, kQvShareAll, 0))
            return true;
        const int error = TResourceManager::LastFailure().Error;
        const bool isLocked = error == EACCES && access(file.c_str(), W_OK) == 0;
        if (!isLocked && !QvIsStale(file, error))
            return false;
        // Gained when the change of another process is done. A refusal ends the command: waiting
        // for as many as there are tries would take minutes.
        CheckLock(TQvFileLock(file, kLockTimeoutMs), id, file);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

void Change(THost& host, const TXIniPlace& place, const TChange& change)
{
    const TResourceManager& tree = host.Session.Tree();
    RequireResource(tree, place.Id);
    const std::string file = tree.GetResourceFile(place.Id, false);
    // The failure of the open is the cause that is shown.
    if (file.empty() || !OpensForWriting(tree, place.Id, file))
        ThrowFailed(Quoted(place.Id) + " cannot be written");
    const TQvFileLock lock(file, kLockTimeoutMs);
    CheckLock(lock, place.Id, file);
    // Reads the document again under the lock, so that a change by another process is kept.
    const TQvFileChange done = QvChangeFile(file, [&](const std::optional<std::string>& old) {
        return TextWith(place, old.value_or(""), change);
    });
    if (!done.Reading)
        ThrowFailed(Quoted(place.Id) + " cannot be read", done.Reading.Error(), place.Id);
    if (!done.Writing)
        ThrowFailed(Quoted(place.Id) + " cannot be written", done.Writing.Error(), place.Id);
}

/// A new resource, unless another process has just made it.
bool Create(const TResourceManager& tree, const TXIniPlace& place, const TChange& change)
{
    RequireTarget(tree, place.Id);
    if (tree.IsResource(place.Id))
        return false;
    const std::string text = TextWith(place, "", change);
    // Only a new one: a resource that appears until then is changed instead, with its content.
    TQvNewFile file = StartWriting(tree, place.Id, true);
    Write(file, text, place.Id);
    return FinishWriting(file, place.Id);
}

void Set(THost& host, const TXIniPlace& place, const std::string& value)
{
    const TChange change = [&](const var_a<TQvXIniTree*>& document) {
        PutValue(document, SplitPath(place.Path), value);
    };
    if (!Create(host.Session.Tree(), place, change))
        Change(host, place, change);
}

void Unset(THost& host, const TXIniPlace& place)
{
    Change(host, place, [&](const var_a<TQvXIniTree*>& document) {
        if (!RemoveValue(document, SplitPath(place.Path)))
            ThrowNoValue(place);
    });
}

void AddPlace(CLI::App& command, TXIniPlace& place)
{
    AddIdOption(command, "ID", place.Id, "An X-Ini resource")->required();
    command.add_option("PATH", place.Path, "section/section/key; of equal names the first counts")
        ->required()
        ->check(&CheckPath, "", "");
}
} // namespace

void AddXIniCommands(CLI::App& app, THost& host)
{
    CLI::App* xini = AddCommand(app, "xini", "Read and change values of X-Ini resources", "");
    xini->require_subcommand(1);
    const auto place = std::make_shared<TXIniPlace>();

    CLI::App* get = AddCommand(*xini, "get", "Print a value; fails when it is not there",
                               "  qvres xini get /Data/settings.x-ini window/main/width");
    AddPlace(*get, *place);
    get->callback([&host, place] { Get(host, *place); });

    CLI::App* list = AddCommand(*xini, "list",
                                "Print all values, one section/section/key=value a line, in the "
                                "order of the document;\na value in double quotes is written as in "
                                "the document",
                                "  qvres xini list /Data/settings.x-ini window");
    AddIdOption(*list, "ID", place->Id, "An X-Ini resource")->required();
    list->add_option("PATH", place->Path, "Only what is in this section (section/section)")
        ->check(&CheckPath, "", "");
    list->callback([&host, place] { List(host, *place); });

    const auto value = std::make_shared<std::string>();
    CLI::App* set = AddCommand(
        *xini, "set",
        "Change one value; a missing resource, missing sections and keys are created. All else\n"
        "stays as it is, comments included, and until the new document is on the disk the old one\n"
        "stays",
        "  qvres xini set /Data/settings.x-ini window/main/width 640");
    AddPlace(*set, *place);
    set->add_option("VALUE", *value, "The value; may be empty")->required();
    set->callback([&host, place, value] { Set(host, *place, *value); });

    CLI::App* unset =
        AddCommand(*xini, "unset", "Remove one value, and nothing else; fails when it is not there",
                   "  qvres xini unset /Data/settings.x-ini window/main/width");
    AddPlace(*unset, *place);
    unset->callback([&host, place] { Unset(host, *place); });
}
