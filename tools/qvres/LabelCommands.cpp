// Labels: label, check.
#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <memory>

#include <CLI/CLI.hpp>

#include "Checks.h"
#include "Commands.h"
#include "Failure.h"
#include "IsoTime.h"

namespace
{
/// A resource that is read with a progress bar, and until the user cancels it.
class TWatchedStream : public TQvStream
{
public:
    TWatchedStream(THost& host, const std::string& id)
        : m_stream(OpenForReading(host.Session.Tree(), id)), m_progress(&host.Progress),
          m_size(static_cast<double>(m_stream->getSize()))
    {
        m_progress.SetMessage("Reading " + id);
        m_progress.Start();
    }

    explicit operator bool() const override { return static_cast<bool>(*m_stream); }
    std::size_t Read(void* buffer, std::size_t count) override
    {
        BreakSignal::ThrowIfWanted();
        const std::size_t done = m_stream->Read(buffer, count);
        if (done > 0 && done != invalid_value)
            m_progress.Report(static_cast<double>(m_stream->getPosition()) / m_size);
        return done;
    }
    std::size_t Write(const void* buffer, std::size_t count) override
    {
        return m_stream->Write(buffer, count);
    }
    std::uint64_t getSize() const override { return m_stream->getSize(); }
    bool setSize(std::uint64_t size) override { return m_stream->setSize(size); }
    std::uint64_t getPosition() const override { return m_stream->getPosition(); }
    bool setPosition(std::uint64_t position) override { return m_stream->setPosition(position); }
    bool Flush() override { return m_stream->Flush(); }
    bool Close() override { return m_stream->Close(); }
    int getError() const override { return m_stream->getError(); }

private:
    var_a<TQvStream*> m_stream;
    TQvProgress m_progress;
    double m_size;
};

[[noreturn]] void ThrowUnreadable(const std::string& id, int error)
{
    ThrowFailed(Quoted(id) + " cannot be read", error);
}

/// What a parser says about the metadata; "" when it is well formed.
std::string MetadataDamage(const TResourceManager& tree, const std::string& id)
{
    const auto metadata = tree.OpenResourceMeta(id, kQvOpenRead, kQvShareAll);
    return metadata ? TQvXIniStreamReader(metadata).ParseErrorText() : std::string();
}

TQvResourceLabel StoredLabel(const TResourceManager& tree, const std::string& id)
{
    TQvResourceLabel label;
    const bool isRead = ReadResResourceLabel(id, &label);
    const int error = TResourceManager::LastFailure().Error;
    if (!isRead && error == EBADMSG)
        throw TFailure("the metadata of " + Quoted(id) +
                       " is damaged: " + MetadataDamage(tree, id));
    if (!isRead && error != 0 && error != ENOENT)
        ThrowFailed("the metadata of " + Quoted(id) + " cannot be read");
    if (!isRead)
        throw TFailure(Quoted(id) + " has no stored label; \"qvres label\" stores one");
    return label;
}

TQvResourceLabel WeakLabel(const std::string& id)
{
    TQvResourceLabel label;
    // The library answers zeros where it could not look.
    if (!TResourceManager::GetResourceLabelWeak(id, &label) ||
        TResourceManager::LastFailure().Error != 0)
        ThrowFailed(Quoted(id) + " cannot be accessed");
    return label;
}

TQvResourceLabel ComputedLabel(THost& host, const std::string& id)
{
    constexpr int kMaxAttempts = 3;
    for (int i = 0; i < kMaxAttempts; ++i) {
        // The time first: it waits until later changes have another one.
        TQvResourceLabel label;
        if (!ComputeResResourceLabelSC2(id, &label))
            break;
        const TQvDateTime time = label.Time;
        TWatchedStream stream(host, id);
        if (!ComputeResResourceLabelSC1(&stream, &label) || stream.getError() != 0)
            ThrowUnreadable(id, -stream.getError());
        label.Time = time;
        if (WeakCheckResResourceLabel(label, id))
            return label;
    }
    if (TResourceManager::LastFailure().Error != 0)
        ThrowFailed(Quoted(id) + " cannot be read");
    throw TFailure(Quoted(id) + " is being changed all the time");
}

/// The label is good without it: storing only spares the next caller the checksum. But "check"
/// needs a stored one.
void StoreLabel(const TResourceManager& tree, const std::string& id, const TQvResourceLabel& label)
{
    const std::string message = "the label of " + Quoted(id) + " was not stored";
    try {
        if (!WriteResResourceLabel(id, label))
            PrintError(WithCause(message, TResourceManager::LastFailure()));
    } catch (const TQvMessage&) {
        PrintError(message + ", because its metadata is damaged: " + MetadataDamage(tree, id));
    }
}

/// What GetResResourceLabel answers, which shows no progress and cannot be cancelled.
TQvResourceLabel CurrentLabel(THost& host, const std::string& id)
{
    TQvResourceLabel label;
    if (ReadResResourceLabel(id, &label) && WeakCheckResResourceLabel(label, id))
        return label;
    label = ComputedLabel(host, id);
    StoreLabel(host.Session.Tree(), id, label);
    return label;
}

void PrintLabel(THost& host, const std::string& id, const TQvResourceLabel& label,
                bool withChecksum)
{
    std::array<char, 24> checksum{};
    std::snprintf(checksum.data(), checksum.size(), "%08" PRIx64, label.CRC);
    if (host.Json) {
        nlohmann::ordered_json record = {
            {"id", id}, {"size", label.Size}, {"time", IsoTimeValue(label.Time)}};
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
    TWatchedStream stream(host, id);
    const bool same = StrongCheckResResourceLabel(label, id, &stream);
    if (!same && stream.getError() != 0)
        ThrowUnreadable(id, -stream.getError());
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

    CLI::App* check = AddCommand(
        app, "check",
        "Compare a resource, content included, with its stored label: prints \"ok\", or\n"
        "\"changed\" with exit status 1",
        "  qvres label /Data/a && qvres check /Data/a");
    AddIdOption(*check, "ID", *id, "A resource with a stored label")->required();
    check->callback([&host, id] { Check(host, *id); });
}
