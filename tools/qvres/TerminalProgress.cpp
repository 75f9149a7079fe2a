#include "TerminalProgress.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

namespace
{
constexpr auto kInterval = std::chrono::milliseconds(100);
constexpr std::size_t kBarWidth = 30;

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
    m_visible =
        isatty(STDERR_FILENO) != 0 && (terminal == nullptr || std::string_view(terminal) != "dumb");
}

void TTerminalProgress::Start()
{
    m_started = true;
    m_position = -1;
    m_nextDraw = TClock::now() + kInterval;
}

void TTerminalProgress::Stop()
{
    m_started = false;
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
    if (m_visible && m_started && TClock::now() >= m_nextDraw)
        Draw();
}

void TTerminalProgress::Draw()
{
    // One column stays free: a full line would wrap on some terminals.
    Show("\r" + Line(TerminalColumns() - 1) + "\x1b[K");
    m_drawn = true;
    m_nextDraw = TClock::now() + kInterval;
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
                    "% " + m_message,
                columns);
}
