// The progress bar on standard error, and the road on which Ctrl-C reaches a running operation.
//
// Thread-safety: belongs to the thread that runs the operation.
#pragma once

#include <chrono>
#include <string>

#include <QvStd/Progress.h>

#include "BreakSignal.h"

/// Shows `[#####-----]  50% message`, at most ten times a second and not at all for work that is
/// done in a tenth of a second; the line is cleaned when the work stops. A hidden bar still breaks
/// the operation.
class TTerminalProgress : public TQvProgressHandler
{
public:
    /// Shows the bar where standard error is a terminal that can redraw a line.
    void ShowOnTerminal();

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

    void Draw();
    std::string Line(std::size_t columns) const;

    bool m_visible = false;
    bool m_started = false;
    bool m_drawn = false;
    unsigned m_polls = 0;
    double m_position = -1; ///< negative: not known
    std::string m_message;
    TClock::time_point m_nextDraw;
};
