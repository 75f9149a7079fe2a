// The progress on standard error; it also passes Ctrl-C to a running operation.
//
// Thread-safety: belongs to the thread that runs the operation.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include <QvStd/Progress.h>

#include "BreakSignal.h"

/// Shows `[#####-----]  50% 12.3 MiB/s 0:07 left message`, at most ten times a second and not at
/// all for work that is done in a tenth of a second; the line is cleaned when the work stops. Or
/// prints an object a line twice a second, and when the work stops, with the members "progress" (0
/// to 1, null while it is not known), "message", "seconds", "left" (seconds) and, where bytes are
/// counted, "bytes" and "total". A hidden one still cancels the operation.
class TTerminalProgress : public TQvProgressHandler
{
public:
    /// Shows the bar where standard error is a terminal that can redraw a line.
    void ShowOnTerminal();

    /// JSON instead, also when standard error is no terminal.
    void ShowAsJson() { m_kind = TKind::Json; }

    /// The position is a share of this total of bytes, which must outlive the work; 0 while it is
    /// not known.
    void CountBytesOf(const std::uint64_t& total) { m_total = &total; }

    /// Cleans the line for other output; the next update draws it again.
    void Hide();

    void Start() override;
    void Stop() override;
    bool Started() const override { return m_started; }
    bool Active() const override { return m_started; }
    void SetPosition(double position) override { m_position = position; }
    void SetMessage(const std::string& message) override { m_message = message; }
    /// Called for each entry of a listing and each block of a copy: no clock, no system call.
    bool Poll() override { return BreakSignal::Wanted() || (++m_polls & 0xff) == 0; }
    void Update() override;
    bool UserBreak() const override { return BreakSignal::Wanted(); }

private:
    using TClock = std::chrono::steady_clock;
    enum class TKind
    {
        None,
        Bar,
        Json
    };

    void Draw();
    void PrintRecord() const;
    std::string Line(std::size_t columns) const;
    std::string RateAndTimeLeft() const;
    double Seconds() const;
    double SecondsLeft() const;

    TKind m_kind = TKind::None;
    const std::uint64_t* m_total = nullptr;
    bool m_started = false;
    bool m_drawn = false;
    unsigned m_polls = 0;
    double m_position = -1; ///< negative: not known
    std::string m_message;
    TClock::time_point m_begin;
    TClock::time_point m_nextDraw;
};
