#include "TerminalProgress.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

#include "HumanText.h"
#include "Json.h"

namespace
{
/// Fast enough to look steady, slow enough that drawing costs nothing beside the work.
constexpr auto kInterval = std::chrono::milliseconds(100);
constexpr auto kJsonInterval = std::chrono::milliseconds(500);
constexpr double kSecondsBeforeRate = 0.5; ///< before that the rate is too unsteady
constexpr std::size_t kBarWidth = 20;

/// Standard error only carries the bar here: a bar that cannot be drawn harms nothing.
void Show(std::string_view text)
{
    [[maybe_unused]] const ssize_t ignored = write(STDERR_FILENO, text.data(), text.size());
}

std::size_t TerminalColumns()
{
    winsize size = {};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

/// The first `columns` characters, never half of one, without control characters.
std::string Clip(const std::string& text, std::size_t columns)
{
    std::string clipped;
    std::size_t used = 0;
    for (const char c : text) {
        const bool continues = (static_cast<unsigned char>(c) & 0xc0) == 0x80;
        if (!continues && ++used > columns)
            break;
        clipped += c >= 0 && c < 0x20 ? '?' : c;
    }
    return clipped;
}
} // namespace

void TTerminalProgress::ShowOnTerminal()
{
    const char* terminal = std::getenv("TERM");
    if (isatty(STDERR_FILENO) != 0 && (terminal == nullptr || std::string_view(terminal) != "dumb"))
        m_kind = TKind::Bar;
}

void TTerminalProgress::Start()
{
    m_started = true;
    m_position = -1;
    m_begin = TClock::now();
    // Short work ends before that and draws nothing.
    m_nextDraw = m_begin + kInterval;
}

void TTerminalProgress::Stop()
{
    // After a break the position may be that of a part of the work.
    if (m_started && m_kind == TKind::Json && !BreakSignal::Wanted())
        PrintRecord();
    m_started = false;
    // It belongs to the caller of the work that ends here.
    m_total = nullptr;
    Hide();
}

void TTerminalProgress::Hide()
{
    if (m_drawn)
        Show("\r\x1b[K");
    m_drawn = false;
}

void TTerminalProgress::Update()
{
    BreakSignal::ThrowIfWanted();
    if (m_kind != TKind::None && m_started && TClock::now() >= m_nextDraw)
        Draw();
}

void TTerminalProgress::Draw()
{
    if (m_kind == TKind::Json) {
        PrintRecord();
        m_nextDraw = TClock::now() + kJsonInterval;
        return;
    }
    // One column stays free: a full line would wrap on some terminals.
    Show("\r" + Line(TerminalColumns() - 1) + "\x1b[K");
    m_drawn = true;
    m_nextDraw = TClock::now() + kInterval;
}

double TTerminalProgress::Seconds() const
{
    return std::chrono::duration<double>(TClock::now() - m_begin).count();
}

double TTerminalProgress::SecondsLeft() const
{
    return Seconds() * (1 - m_position) / m_position;
}

void TTerminalProgress::PrintRecord() const
{
    nlohmann::ordered_json record = {{"progress", nullptr}};
    if (m_position >= 0)
        record["progress"] = std::min(m_position, 1.0);
    PutText(record, "message", m_message);
    record["seconds"] = Seconds();
    record["left"] = nullptr;
    if (m_position > 0)
        record["left"] = std::max(SecondsLeft(), 0.0);
    if (m_total != nullptr && m_position >= 0) {
        const auto total = static_cast<double>(*m_total);
        record["bytes"] = static_cast<std::uint64_t>(std::min(m_position, 1.0) * total);
        record["total"] = *m_total;
    }
    Show(ToJsonText(record) + "\n");
}

std::string TTerminalProgress::RateAndTimeLeft() const
{
    const double seconds = Seconds();
    if (seconds < kSecondsBeforeRate || m_position <= 0)
        return {};
    std::string text;
    if (m_total != nullptr && *m_total > 0)
        text = HumanSize(m_position * static_cast<double>(*m_total) / seconds) + "/s ";
    return text + HumanDuration(SecondsLeft()) + " left ";
}

std::string TTerminalProgress::Line(std::size_t columns) const
{
    if (m_position < 0)
        return Clip(m_message + " ...", columns);
    const double position = std::clamp(m_position, 0.0, 1.0);
    const auto done = static_cast<std::size_t>(position * static_cast<double>(kBarWidth));
    std::string percent = std::to_string(static_cast<int>(position * 100));
    percent.insert(0, 4 - percent.size(), ' ');
    return Clip("[" + std::string(done, '#') + std::string(kBarWidth - done, '-') + "]" + percent +
                    "% " + RateAndTimeLeft() + m_message,
                columns);
}
