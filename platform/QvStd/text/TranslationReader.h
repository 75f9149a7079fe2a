// How the string tables get the texts of another language, without depending on the format of the
// files.
//
// Thread-safety: the reader is set while the library is loaded, and called by one thread at a time.
#pragma once

#include <functional>
#include <string>
#include <unordered_map>

struct TQvTranslation
{
    std::unordered_map<std::string, std::string> Texts; ///< by key
    /// Logs the problems of the files; empty when there were none.
    std::function<void()> Report;
};

/// The texts of a module in the language of the environment; none for English.
using TQvTranslationReader = TQvTranslation (*)(const std::string& module);

void QvSetTranslationReader(TQvTranslationReader reader);
