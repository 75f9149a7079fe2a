// How the string tables come by the texts of another language, without knowing how these are
// stored.
//
// Thread-safety: the reader is set while the library is loaded, and called by one thread at a time.
#pragma once

#include <functional>
#include <string>
#include <unordered_map>

struct TQvTranslation
{
    std::unordered_map<std::string, std::string> Texts; ///< by key
    /// Logs what was wrong with the files; empty when nothing was.
    std::function<void()> Report;
};

/// The texts of a module in the language of the environment; none for English.
using TQvTranslationReader = TQvTranslation (*)(const std::string& module);

void QvSetTranslationReader(TQvTranslationReader reader);
