#include "QvStd/Progress.h"

#include <algorithm>

#include "QvStd/Log.h"
#include "QvStd/Message.h"

namespace
{
/// Maps 0 to 1 onto a range of another handler.
class TSubRangeHandler : public TQvProgressHandler
{
public:
    TSubRangeHandler(TQvProgressHandler& outer, double from, double to, int messageLevel,
                     int startLevel)
        : m_outer(outer), m_from(from), m_width(to - from), m_messageLevel(messageLevel),
          m_startLevel(startLevel)
    {
    }

    void Start() override
    {
        m_started = true;
        LogState("@Started: %1%");
    }
    void Stop() override
    {
        if (m_started)
            LogState("@Finished: %1%");
        m_started = false;
    }
    bool Started() const override { return m_started; }
    /// The outer handler is started by its own owner; before that, and without a display, nothing
    /// is set.
    bool Active() const override { return m_started && m_outer.Active(); }
    /// Limited to the range: a file that grows during the copy must not move the bar beyond it.
    void SetPosition(double position) override
    {
        m_outer.SetPosition(m_from + m_width * std::clamp(position, 0.0, 1.0));
    }
    void SetMessage(const std::string& message) override
    {
        m_message = message;
        QvLogWriteInfo(TQvMessage("@%1%") << message, m_messageLevel, 0);
        m_outer.SetMessage(message);
    }
    bool Poll() override { return m_outer.Poll(); }
    void Update() override { m_outer.Update(); }
    bool UserBreak() const override { return m_outer.UserBreak(); }

private:
    void LogState(const char* text) const
    {
        if (!m_message.empty())
            QvLogWriteInfo(TQvMessage(text) << m_message, m_startLevel, 0);
    }

    TQvProgressHandler& m_outer;
    double m_from;
    double m_width;
    int m_messageLevel;
    int m_startLevel;
    bool m_started = false;
    std::string m_message;
};

void ReportTo(TQvProgressHandler* handler, double position)
{
    // An inactive one has no display to update; QvPollProgress looks for a user break.
    if (handler != nullptr && handler->Active()) {
        handler->SetPosition(position);
        handler->Update();
    }
}

void StopQuietly(TQvProgressHandler* handler) noexcept
{
    try {
        if (handler != nullptr)
            handler->Stop();
    } catch (...) {
        // The work is done: a failure of the display does not change its result.
    }
}
} // namespace

TQvProgressHandler::~TQvProgressHandler() = default;

void TQvBreakOnly::Update()
{
    if (UserBreak())
        throw TQvUserBreak();
}

/// A handler that is started already belongs to an outer operation, which also stops it.
void TQvProgress::Start()
{
    if (m_handler != nullptr && !m_handler->Started()) {
        m_handler->Start();
        m_startedHere = true;
    }
}

void TQvProgress::Stop() noexcept
{
    if (!m_startedHere)
        return;
    m_startedHere = false;
    StopQuietly(m_handler);
}

void TQvProgress::Report(double position)
{
    ReportTo(m_handler, position);
}

void TQvProgress::SetMessage(const std::string& message)
{
    if (m_handler != nullptr)
        m_handler->SetMessage(message);
}

TQvProgressVar TQvProgress::SubProgress(double from, double to, int messageLevel, int startLevel)
{
    return TQvProgressVar(m_handler, from, to, messageLevel, startLevel);
}

TQvProgressVar::TQvProgressVar(TQvProgressHandler* outer, double from, double to, int messageLevel,
                               int startLevel)
{
    if (outer != nullptr)
        m_handler = std::make_unique<TSubRangeHandler>(*outer, from, to, messageLevel, startLevel);
}

void TQvProgressVar::Start()
{
    if (m_handler)
        m_handler->Start();
}

void TQvProgressVar::Stop() noexcept
{
    StopQuietly(m_handler.get());
}

void TQvProgressVar::Report(double position)
{
    ReportTo(m_handler.get(), position);
}

void TQvProgressVar::SetMessage(const std::string& message)
{
    if (m_handler)
        m_handler->SetMessage(message);
}

TQvProgressVar TQvProgressVar::SubProgress(double from, double to, int messageLevel, int startLevel)
{
    return TQvProgressVar(m_handler.get(), from, to, messageLevel, startLevel);
}
