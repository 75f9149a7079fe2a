#include "Output.h"

#include <cerrno>
#include <cstdio>
#include <unistd.h>

#include <QvStd/Result.h>

#include "BreakSignal.h"
#include "Json.h"

namespace
{
constexpr std::size_t kBufferSize = std::size_t{256} * 1024;

bool g_errorsAsJson = false;
std::string g_printed; ///< the errors, a line each

/// Messages of the configuration have the cause in their text alone; 0 when they have none.
int ErrorNamedIn(std::string text)
{
    // The largest errno of Linux.
    constexpr int kLastError = EHWPOISON;
    if (text.find(" is not well formed: ") != std::string::npos)
        return EBADMSG;
    if (!text.empty() && text.back() == '.')
        text.pop_back();
    for (int error = 1; error <= kLastError; ++error) {
        const std::string end = ": " + QvErrorText(error);
        if (text.size() > end.size() &&
            text.compare(text.size() - end.size(), std::string::npos, end) == 0)
            return error;
    }
    return 0;
}

/// Without what drives a terminal: the control characters of ASCII, and those that UTF-8 encodes as
/// a byte 0xc2 and one below 0xa0.
std::string WithoutControls(std::string_view text, char replacement, char kept = ' ')
{
    std::string shown(text);
    for (std::size_t i = 0; i < shown.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const bool isEncoded = i > 0 && text[i - 1] == '\xc2' && byte >= 0x80 && byte < 0xa0;
        if ((byte < 0x20 && text[i] != kept) || byte == 0x7f || isEncoded)
            shown[i] = replacement;
    }
    return shown;
}

[[noreturn]] void ThrowWriteError(int error)
{
    throw TFailure("standard output cannot be written: " + QvErrorText(error), "", error);
}
} // namespace

TOutput::TOutput() : m_isTerminal(isatty(STDOUT_FILENO) != 0) {}

void TOutput::Write(std::string_view bytes)
{
    if (m_buffer.size() + bytes.size() > kBufferSize)
        Flush();
    if (bytes.size() >= kBufferSize)
        WriteStraight(bytes);
    else
        m_buffer.append(bytes);
}

void TOutput::Line(std::string_view text)
{
    // Names on the disk may contain control sequences; a pipe gets them unchanged.
    if (m_isTerminal)
        Write(WithoutControls(text, '?', '\t'));
    else
        Write(text);
    Write("\n");
}

void TOutput::Flush()
{
    // Cleared first: a failed write is not repeated at exit.
    std::string bytes;
    bytes.swap(m_buffer);
    WriteStraight(bytes);
    bytes.clear();
    m_buffer.swap(bytes);
}

void TOutput::Close()
{
    Flush();
    // Some file systems report a full disk only here: an incomplete output must not end with status
    // 0.
    if (close(STDOUT_FILENO) != 0)
        ThrowWriteError(errno);
}

void TOutput::WriteStraight(std::string_view bytes)
{
    while (!bytes.empty()) {
        // Also after a partial write, since a write that a signal interrupts is no error.
        BreakSignal::ThrowIfWanted();
        const ssize_t written = write(STDOUT_FILENO, bytes.data(), bytes.size());
        if (written >= 0)
            bytes.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            ThrowWriteError(errno);
    }
}

void PrintError(const TFailure& failure)
{
    if (!g_errorsAsJson)
        return PrintError(std::string(failure.what()));
    // So that a warning in the log with the same text is not shown again.
    g_printed += failure.what() + std::string("\n");
    nlohmann::ordered_json record = {{"error", failure.what()}};
    if (failure.Id.empty())
        record["id"] = nullptr;
    else
        PutText(record, "id", failure.Id);
    record["errno"] = ErrorOf(failure);
    std::fprintf(stderr, "%s\n", ToJsonText(record).c_str());
}

void PrintError(const std::string& message)
{
    if (g_errorsAsJson)
        return PrintError(TFailure(message));
    g_printed += message + "\n";
    std::fprintf(stderr, "qvres: %s\n", WithoutControls(message, ' ').c_str());
}

int ErrorOf(const TFailure& failure)
{
    return failure.Error != 0 ? failure.Error : ErrorNamedIn(failure.what());
}

bool WasPrinted(const std::string& text)
{
    return g_printed.find(text) != std::string::npos;
}

void ErrorsAsJson()
{
    g_errorsAsJson = true;
}
