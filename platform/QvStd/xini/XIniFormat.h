// The line grammar of X-Ini documents, shared by the parser, the formatter and the writers, and
// documents over streams with the reason of a failure. Private to this library.
//
// Thread-safety: pure functions, except on the streams that are passed in.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "QvStd/Message.h"
#include "QvStd/Progress.h"
#include "QvStd/Stream.h"
#include "QvStd/Var.h"
#include "QvStd/XIniTree.h"

inline constexpr std::size_t kXIniMaxLevels = 64;
inline constexpr std::string_view kXIniByteOrderMark = "\xEF\xBB\xBF";

/// Without the blanks and tabs around it.
std::string_view XIniTrim(std::string_view text);
/// Bytes of the LF or CR LF at the end of a line; a last line that was cut inside its CR LF has 1.
std::size_t XIniLineEndSize(std::string_view line);

/// Why a name cannot be written, as a sentence; "" when it can.
std::string XIniKeyNameFault(const std::string& name);
std::string XIniSectionNameFault(const std::string& name);

/// The value as it is written after the "=", quoted where necessary.
std::string XIniQuote(const std::string& value);
/// Parses the text after the "=", without blanks around it. Returns what is wrong with it, or null.
const char* XIniUnquote(std::string_view text, std::string* value);

/// Sets the value of a key and keeps the part of its line before the value, and its line end.
void XIniReplaceValue(TQvXIniEntry& key, const std::string& value);

/// Why a document could not be read: a key of the string table, and the reason as a sentence.
struct TXIniFailure
{
    const char* Key = "Err_XIniParse_name";
    std::string Reason;

    TQvMessage Message(const std::string& name) const
    {
        return QvMsg_helper(Key) << name << Reason;
    }
};

/// From the stream's start; an empty reference and `failure` when it cannot be read or is
/// malformed. Throws TQvUserBreak.
var_a<TQvXIniTree*> XIniReadDocument(TQvStream& stream, TQvProgressHandler* progress,
                                     TXIniFailure* failure);
