/// @file
/// The message object that failures are thrown as.
///
/// Thread-safety: a plain value.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <type_traits>
#include <vector>

#include "QvStd/Export.h"

/// A failure for people: a text, or a key of the base library's string table, with arguments for
/// its places %1% to %9%. A text that begins with "@" is literal: it is never looked up.
///
///     throw TQvMessage("@The folder %1% has %2% entries.") << folder << count;
///
/// Catch it by reference and show what(); programs that distinguish failures compare text().
class QVSTD_API TQvMessage : public std::exception
{
public:
    /// `textOrKey` is literal when it begins with "@"; else it is looked up as a key of the string
    /// table, and shown as it is when the table does not have it.
    explicit TQvMessage(std::string textOrKey);
    TQvMessage(const TQvMessage&) = default;
    TQvMessage(TQvMessage&&) noexcept = default;
    TQvMessage& operator=(const TQvMessage&) = default;
    TQvMessage& operator=(TQvMessage&&) noexcept = default;
    ~TQvMessage() override;

    /// Appends the argument for the next free place; returns the message, for further arguments.
    /// Arguments without a place are ignored.
    TQvMessage& operator<<(const std::string& argument);
    /// @overload
    TQvMessage& operator<<(const char* argument) { return *this << std::string(argument); }
    /// A nested message is inserted as it would be shown.
    TQvMessage& operator<<(const TQvMessage& argument)
    {
        return *this << std::string(argument.what());
    }
    /// A whole number, in decimal.
    template <class T, class = std::enable_if_t<std::is_integral_v<T>>>
    TQvMessage& operator<<(T argument)
    {
        return *this << std::to_string(argument);
    }

    /// The text or key exactly as thrown, places unfilled, a leading "@" included.
    const std::string& text() const noexcept { return m_text; }
    /// The arguments in the order of their places.
    const std::vector<std::string>& arguments() const noexcept { return m_arguments; }

    /// The text for the user: the key looked up, the places filled, without the leading "@". A
    /// place without an argument stays as it is; arguments are never scanned for places themselves.
    const char* what() const noexcept override { return m_shown.c_str(); }

private:
    void Format();

    std::string m_text;
    std::vector<std::string> m_arguments;
    std::string m_shown;
};

/// The user cancelled the operation: thrown by a progress update.
class QVSTD_API TQvUserBreak : public TQvMessage
{
public:
    TQvUserBreak();
    ~TQvUserBreak() override;
};

/// A message from the base library's own string table ("Err_OpenFile_name", ...).
QVSTD_API TQvMessage QvMsg_helper(const std::string& key);
