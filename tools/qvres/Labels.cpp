#include "Labels.h"

#include <cerrno>

#include "Checks.h"

namespace
{
/// A resource that is read with a progress bar and user break.
class TWatchedStream : public TQvStream
{
public:
    TWatchedStream(THost& host, const std::string& id)
        : m_stream(OpenForReading(host.Session.Tree(), id)), m_size(m_stream->getSize()),
          m_progress(&host.Progress)
    {
        host.Progress.CountBytesOf(m_size);
        m_progress.SetMessage("Reading " + id);
        m_progress.Start();
    }

    explicit operator bool() const override { return static_cast<bool>(*m_stream); }
    std::size_t Read(void* buffer, std::size_t count) override
    {
        BreakSignal::ThrowIfWanted();
        const std::size_t done = m_stream->Read(buffer, count);
        if (done > 0 && done != invalid_value)
            m_progress.Report(static_cast<double>(m_stream->getPosition()) /
                              static_cast<double>(m_size));
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
    std::uint64_t m_size; ///< before the progress, which counts it
    TQvProgress m_progress;
};

[[noreturn]] void ThrowUnreadable(const std::string& id, int error)
{
    ThrowFailed(Quoted(id) + " cannot be read", error, id);
}

TQvResourceLabel ComputedLabel(THost& host, const std::string& id)
{
    // A resource that changes during each of them is probably written to all the time.
    constexpr int kMaxAttempts = 3;
    for (int i = 0; i < kMaxAttempts; ++i) {
        // The time first: the call waits until later changes get another time.
        TQvResourceLabel label;
        if (!ComputeResResourceLabelSC2(id, &label))
            break;
        const TQvDateTime time = label.Time;
        TWatchedStream stream(host, id);
        if (!ComputeResResourceLabelSC1(&stream, &label) || stream.getError() != 0)
            ThrowUnreadable(id, -stream.getError());
        label.Time = time;
        // Changed while it was read: the checksum belongs to no state of the content.
        if (WeakCheckResResourceLabel(label, id))
            return label;
    }
    if (TResourceManager::LastFailure().Error != 0)
        ThrowFailed(Quoted(id) + " cannot be read");
    throw TFailure(Quoted(id) + " is being changed all the time", id, EBUSY);
}

/// The label is valid without it: a stored one only saves the next caller the checksum. But "check"
/// needs a stored one.
void StoreLabel(const TResourceManager& tree, const std::string& id, const TQvResourceLabel& label)
{
    const std::string message = "the label of " + Quoted(id) + " was not stored";
    try {
        if (!WriteResResourceLabel(id, label))
            PrintError(WithCause(message, TResourceManager::LastFailure()));
    } catch (const TQvMessage&) {
        PrintError(
            TFailure(message + ", because its metadata is damaged: " + MetadataDamage(tree, id), id,
                     EBADMSG));
    }
}
} // namespace

std::string MetadataDamage(const TResourceManager& tree, const std::string& id)
{
    const auto metadata = tree.OpenResourceMeta(id, kQvOpenRead, kQvShareAll);
    return metadata ? TQvXIniStreamReader(metadata).ParseErrorText() : std::string();
}

TQvResourceLabel CurrentLabel(THost& host, const std::string& id)
{
    TQvResourceLabel label;
    if (ReadResResourceLabel(id, &label) && WeakCheckResResourceLabel(label, id))
        return label;
    label = ComputedLabel(host, id);
    StoreLabel(host.Session.Tree(), id, label);
    return label;
}

bool HasSameContent(THost& host, const std::string& id, const TQvResourceLabel& label)
{
    TWatchedStream stream(host, id);
    const bool same = StrongCheckResResourceLabel(label, id, &stream);
    // A content that could not be read is neither the same nor changed.
    if (!same && stream.getError() != 0)
        ThrowUnreadable(id, -stream.getError());
    return same;
}
