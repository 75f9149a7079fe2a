// Standard output through a large buffer, every write checked.
//
// Thread-safety: belongs to one thread.
#pragma once

#include <string>
#include <string_view>

#include "Failure.h"

class TOutput
{
public:
    TOutput();
    TOutput(const TOutput&) = delete;
    TOutput& operator=(const TOutput&) = delete;

    bool IsTerminal() const { return m_isTerminal; }

    /// Bytes as they are. Throws TFailure when they cannot be written, TQvUserBreak when the user
    /// cancels while the reader at the other end is slow.
    void Write(std::string_view bytes);
    /// One line. On a terminal control characters of file names are shown as "?", so that a name
    /// cannot drive the terminal.
    void Line(std::string_view text);
    void Flush();
    /// Flushes and closes: some file systems report a full disk only then.
    void Close();

private:
    void WriteStraight(std::string_view bytes);

    std::string m_buffer;
    bool m_isTerminal;
};

/// "qvres: " and the message on standard error, always one line, whatever ids and file names
/// contain; with ErrorsAsJson an object with the members "error", "id" (null for none) and "errno"
/// (0 for none).
void PrintError(const TFailure& failure);
void PrintError(const std::string& message);
void ErrorsAsJson();
/// The errno of a failure, from the end of its text where it has no other; 0 for none.
int ErrorOf(const TFailure& failure);
/// Whether an error with this text was printed.
bool WasPrinted(const std::string& text);
