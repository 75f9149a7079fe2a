#include "QvStd/StringTable.h"

#include <map>
#include <mutex>
#include <string_view>
#include <unordered_map>

#include "QvStd/text/TranslationReader.h"

namespace
{
struct TModule
{
    std::unordered_map<std::string_view, const char*> English;
    std::unordered_map<std::string, std::string> Translation;
    bool TranslationRead = false;
};

/// Made on first use, because modules register while they are loaded, and never destroyed, because
/// they may use it while they are unloaded.
struct TTables
{
    // Recursive: if reading a translation file needs a text itself, it gets the English one.
    std::recursive_mutex Mutex;
    std::map<std::string, TModule> Modules;
    TQvTranslationReader ReadTranslation = nullptr;

    static TTables& Get()
    {
        static TTables& tables = *new TTables;
        return tables;
    }
};

bool Find(const std::string& moduleName, const std::string& key, std::string* text,
          std::function<void()>* report)
{
    TTables& tables = TTables::Get();
    const std::lock_guard<std::recursive_mutex> guard(tables.Mutex);
    TModule& module = tables.Modules[moduleName];
    if (!module.TranslationRead && tables.ReadTranslation != nullptr) {
        // Set first: the reading may look up texts itself and come here again.
        module.TranslationRead = true;
        TQvTranslation translation = tables.ReadTranslation(moduleName);
        module.Translation = std::move(translation.Texts);
        *report = std::move(translation.Report);
    }
    const auto translated = module.Translation.find(key);
    // A translation need not be complete: what it lacks is shown in English.
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
    std::function<void()> report;
    const bool found = Find(module, key, text, &report);
    // Without the lock: the host's log sink may look up texts.
    if (report)
        report();
    return found;
}

void QvSetTranslationReader(TQvTranslationReader reader)
{
    TTables& tables = TTables::Get();
    const std::lock_guard<std::recursive_mutex> guard(tables.Mutex);
    tables.ReadTranslation = reader;
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
