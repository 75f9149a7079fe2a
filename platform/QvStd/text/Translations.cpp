// Reads the translation files of string tables.
#include <cerrno>
#include <cstdlib>
#include <vector>

#include "QvStd/Files.h"
#include "QvStd/Log.h"
#include "QvStd/Result.h"
#include "QvStd/XIniTree.h"
#include "QvStd/text/TranslationReader.h"

namespace
{
std::string Environment(const char* name)
{
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

/// "" means English only.
std::string Language()
{
    std::string locale;
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        locale = Environment(name);
        if (!locale.empty())
            break;
    }
    const std::string language = locale.substr(0, locale.find_first_of("_.@"));
    // It becomes part of a file name, so no path separator is allowed.
    const bool isName = language.find('/') == std::string::npos;
    return isName && language != "C" && language != "POSIX" ? language : std::string();
}

/// False when the file is missing or cannot be used; `problem` has the reason of the latter.
bool ReadFile(const std::string& path, TQvTranslation& translation, TQvMessage* problem)
{
    std::string content;
    std::string error;
    if (!QvReadWholeFile(path, &content)) {
        if (errno != ENOENT && errno != ENOTDIR)
            *problem = TQvMessage("@\"%1%\" cannot be read: %2%") << path << QvErrorText(errno);
        return false;
    }
    const var_a<TQvXIniTree*> tree = QvParseXIniTree(content, &error);
    if (!tree) {
        *problem = TQvMessage("@\"%1%\" is not well formed: %2%") << path << error;
        return false;
    }
    for (const auto& entry : tree->Root.Children) {
        if (entry->Type == TQvXIniEntry::Kind::Key)
            translation.Texts.emplace(entry->Name, entry->Value);
    }
    return true;
}

/// The first folder with a usable file counts. Problems are logged later, without the lock of the
/// tables: the log's sink may look up texts.
TQvTranslation Read(const std::string& module)
{
    TQvTranslation translation;
    std::vector<TQvMessage> problems;
    const std::string language = Language();
    for (const std::string& folder : {Environment("QV_STRINGS_DIR"), std::string(QV_DATA_FOLDER)}) {
        if (language.empty() || folder.empty())
            continue;
        TQvMessage problem("@");
        if (ReadFile(folder + "/" + module + "." + language + ".x-ini", translation, &problem))
            break;
        if (!problem.arguments().empty())
            problems.push_back(problem);
    }
    if (!problems.empty())
        translation.Report = [problems] {
            for (const TQvMessage& problem : problems)
                QvLogWriteWarning(problem, 6, 0);
        };
    return translation;
}

// At load time, before the first lookup.
[[maybe_unused]] const bool kRegistered = (QvSetTranslationReader(&Read), true);
} // namespace
