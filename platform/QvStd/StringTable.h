/// @file
/// String tables: the texts of a module by key, in English from the module itself, in other
/// languages from a translation file.
///
/// Thread-safety: look-ups may run on any thread; registration happens while a module is loaded.
#pragma once

#include <cstddef>
#include <string>

#include "QvStd/Export.h"

/// One text of a table; both must live as long as the process.
struct TQvStringTableEntry
{
    const char* Key;  ///< unique in its module
    const char* Text; ///< English, with places %1% to %9%
};

/// Registers the English table of `module`; later tables of the same module add to it. `entries`
/// must live as long as the process.
QVSTD_API void QvRegisterStringTable(const char* module, const TQvStringTableEntry* entries,
                                     std::size_t count);

/// The text of `key`: from "<module>.<language>.x-ini" (keys at its top level) in the folder
/// QV_STRINGS_DIR, else in the data folder of the installation, else the registered English. The
/// language is the part before "_", "." or "@" of LC_ALL, LC_MESSAGES or LANG, whichever is set
/// (and not empty) first; "C", "POSIX" and none at all mean English. A translation file is read
/// once; a malformed one counts as absent and is logged. Returns false and leaves `text` unchanged
/// when no table has the key.
QVSTD_API bool LoadResString(const std::string& module, const std::string& key, std::string* text);

/// Discards the translation files read so far, so that a changed language or folder takes effect.
QVSTD_API void QvReloadStringTables();
