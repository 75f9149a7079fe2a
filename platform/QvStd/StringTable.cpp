#include "QvStd/StringTable.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "QvStd/Files.h"
#include "QvStd/Log.h"
#include "QvStd/XIniTree.h"

namespace
{
struct TModule
{
    std::unordered_map<std::string_view, const char*> English;
    std::unordered_map<std::string, std::string> Translation;
    bool TranslationRead = false;
};

/// Made on first use, because modules register while they are loaded, and never destroyed, because
/// they may still ask while they are unloaded.
struct TTables
{
    // Recursive: should reading a translation file ever need a text itself, it gets the English.
    std::recursive_mutex Mutex;
    std::map<std::string, TModule> Modules;

    static TTables& Get()
    {
        static TTables& tables = *new TTables;
        return tables;
    }
};

std::string Environment(const char* name)
{
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

/// "" stands for English only.
std::string Language()
{
    std::string locale;
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        locale = Environment(name);
        if (!locale.empty())
            break;
    }
    const std::string language = locale.substr(0, locale.find_first_of("_.@"));
    // It becomes part of a file name: nothing that could lead into another folder.
    const bool isName = language.find('/') == std::string::npos;
    return isName && language != "C" && language != "POSIX" ? language : std::string();
}

/// False when there is no such file, or none that can be used: `problem` tells why then.
bool ReadTranslation(const std::string& path, TModule& module, TQvMessage* problem)
{
    std::string content;
    std::string error;
    if (!QvReadWholeFile(path, &content)) {
        if (errno != ENOENT && errno != ENOTDIR)
            *problem = TQvMessage("@\"%1%\" cannot be read: %2%") << path << std::strerror(errno);
        return false;
    }
    const var_a<TQvXIniTree*> tree = QvParseXIniTree(content, &error);
    if (!tree) {
        *problem = TQvMessage("@\"%1%\" is not well formed: %2%") << path << error;
        return false;
    }
    for (const auto& entry : tree->Root.Children) {
        if (entry->Type == TQvXIniEntry::Kind::Key)
            module.Translation.emplace(entry->Name, entry->Value);
    }
    return true;
}

void ReadTranslations(const std::string& name, TModule& module, std::vector<TQvMessage>* problems)
{
    const std::string language = Language();
    if (language.empty())
        return;
    for (const std::string& folder : {Environment("QV_STRINGS_DIR"), std::string(QV_DATA_FOLDER)}) {
        if (folder.empty())
            continue;
        TQvMessage problem("@");
        if (ReadTranslation(folder + "/" + name + "." + language + ".x-ini", module, &problem))
            return;
        if (!problem.arguments().empty())
            problems->push_back(problem);
    }
}

bool Find(const std::string& moduleName, const std::string& key, std::string* text,
          std::vector<TQvMessage>* problems)
{
    TTables& tables = TTables::Get();
    const std::lock_guard<std::recursive_mutex> guard(tables.Mutex);
    TModule& module = tables.Modules[moduleName];
    if (!module.TranslationRead) {
        module.TranslationRead = true;
        ReadTranslations(moduleName, module, problems);
    }
    const auto translated = module.Translation.find(key);
    if (translated != module.Translation.end()) {
        *text = translated->second;
        return true;
    }
    const auto english = module.English.find(key);
    if (english == module.English.end())
        return false;
    *text = english->second;
    return true;
}
} // namespace

void QvRegisterStringTable(const char* module, const TQvStringTableEntry* entries,
                           std::size_t count)
{
    TTables& tables = TTables::Get();
    const std::lock_guard<std::recursive_mutex> guard(tables.Mutex);
    for (std::size_t i = 0; i < count; ++i)
        tables.Modules[module].English.emplace(entries[i].Key, entries[i].Text);
}

bool LoadResString(const std::string& module, const std::string& key, std::string* text)
{
    std::vector<TQvMessage> problems;
    const bool found = Find(module, key, text, &problems);
    // Logged without the lock: the host's sink may look up texts.
    for (const TQvMessage& problem : problems)
        QvLogWriteWarning(problem, 6, 0);
    return found;
}

void QvReloadStringTables()
{
    TTables& tables = TTables::Get();
    const std::lock_guard<std::recursive_mutex> guard(tables.Mutex);
    for (auto& [name, module] : tables.Modules) {
        module.Translation.clear();
        module.TranslationRead = false;
    }
}
