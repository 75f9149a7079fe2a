// Values of X-Ini resources: xini get, xini set.
#include <cerrno>
#include <memory>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <QvStd/FileChange.h>
#include <QvStd/FileLock.h>
#include <QvStd/Strings.h>

#include "Checks.h"
#include "Commands.h"
#include "Failure.h"

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

void Get(THost& host, const TXIniPlace& place)
{
    RequireResource(host.Session.Tree(), place.Id);
    const var_a<TQvStream*> stream = OpenForReading(host.Session.Tree(), place.Id);
    TQvXIniStreamReader reader(stream, true, &host.Progress);
    if (stream->getError() != 0)
        ThrowFailed(Quoted(place.Id) + " cannot be read", -stream->getError());
    if (reader.ParseError())
        throw TFailure(Quoted(place.Id) + " is not well formed: " + reader.ParseErrorText());
    const auto [sections, key] = SplitPath(place.Path);
    for (const std::string& section : sections)
        if (reader.EnterSectionS(section) == nullptr)
            throw TFailure(Quoted(place.Id) + " has no section " + Quoted(section) + " of " +
                           Quoted(place.Path));
    const int position = FindKey(reader, key);
    if (position < 0)
        throw TFailure(Quoted(place.Id) + " has no value at " + Quoted(place.Path));
    PrintValue(host, reader.Read(position, std::string()));
}

void CheckLock(const TQvFileLock& lock, const std::string& id, const std::string& file)
{
    if (lock.getError() == -EAGAIN)
        ThrowNaming(id, QvLockMessage(file, lock.getError()));
    if (!lock)
        ThrowFailed(Quoted(id) + " cannot be written", -lock.getError());
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

std::string TextWith(const TXIniPlace& place, const std::string& text, const std::string& value)
{
    std::string error;
    const var_a<TQvXIniTree*> document = QvParseXIniTree(text, &error);
    if (!document)
        throw TFailure(Quoted(place.Id) + " is not well formed: " + error);
    try {
        PutValue(document, SplitPath(place.Path), value);
    } catch (const TQvMessage& message) {
        ThrowNaming(place.Id, message);
    }
    return QvFormatXIniTree(*document);
}

void Set(THost& host, const TXIniPlace& place, const std::string& value)
{
    const TResourceManager& tree = host.Session.Tree();
    RequireResource(tree, place.Id);
    const std::string file = tree.GetResourceFile(place.Id, false);
    // Opening finds out whether another opener holds the resource exclusively. It is closed again:
    // a network file system takes the share lock and the one below for the same kind of lock.
    if (file.empty() || !*tree.OpenResource(place.Id, kQvOpenWrite, kQvShareAll, 0))
        ThrowFailed(Quoted(place.Id) + " cannot be written");
    const TQvFileLock lock(file, kLockTimeoutMs);
    CheckLock(lock, place.Id, file);
    const TQvFileChange done = QvChangeFile(file, [&](const std::optional<std::string>& old) {
        return TextWith(place, old.value_or(""), value);
    });
    if (!done.Reading)
        ThrowFailed(Quoted(place.Id) + " cannot be read", done.Reading.Error());
    if (!done.Writing)
        ThrowFailed(Quoted(place.Id) + " cannot be written", done.Writing.Error());
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

    const auto value = std::make_shared<std::string>();
    CLI::App* set = AddCommand(
        *xini, "set",
        "Change one value; missing sections and keys are created. All else stays as it is,\n"
        "comments included, and until the new document is on the disk the old one stays",
        "  qvres xini set /Data/settings.x-ini window/main/width 640");
    AddPlace(*set, *place);
    set->add_option("VALUE", *value, "The value; may be empty")->required();
    set->callback([&host, place, value] { Set(host, *place, *value); });
}
