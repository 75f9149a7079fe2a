#include "module/ModuleInitializer.h"

#include <dlfcn.h>

#include "QvConfig/Config.h"
#include "QvStd/StringTable.h"
#include "module/QvServicesModule.h"
#include "module/StringTable.h"

QvModule_Initializer::QvModule_Initializer()
{
    RegisterEnglishTexts(m_moduleName);
}

QvModule_Initializer& QvModule_Initializer::getInst()
{
    static QvModule_Initializer instance;
    return instance;
}

void QvModule_Initializer::init()
{
    // Counted: several modules of one process may use the library, each with its own pair of calls.
    if (m_initCount == 0) {
        Init_QvConfig();
        // The file that this code was loaded from, however the process has found it.
        Dl_info info{};
        if (dladdr(reinterpret_cast<const void*>(&Init_QvServices), &info) != 0 &&
            info.dli_fname != nullptr)
            SetModuleFile(info.dli_fname);
    }
    ++m_initCount;
}

void QvModule_Initializer::deinit()
{
    if (m_initCount > 0 && --m_initCount == 0)
        Deinit_QvConfig();
}

void QvModule_Initializer::SetModuleFile(const std::string& file)
{
    m_moduleFile = file;
    const std::size_t nameStart = file.find_last_of("/\\") + 1;
    m_moduleFolder = file.substr(0, nameStart);
    m_moduleFileName = file.substr(nameStart);
    const std::size_t dot = m_moduleFileName.rfind('.');
    m_moduleExtension = dot == std::string::npos ? std::string() : m_moduleFileName.substr(dot + 1);
}

std::string QvModule_Initializer::get_resource_string(const std::string& key) const
{
    return get_resource_string(key, std::string());
}

std::string QvModule_Initializer::get_resource_string(const std::string& key,
                                                      const std::string& defaultText) const
{
    std::string text;
    return LoadResString(m_moduleName, key, &text) ? text : defaultText;
}

std::string QvResourceString(const std::string& key)
{
    return QvModule_Initializer::getInst().get_resource_string(key);
}

void Init_QvServices()
{
    QvModule_Initializer::getInst().init();
}

void Deinit_QvServices()
{
    QvModule_Initializer::getInst().deinit();
}
