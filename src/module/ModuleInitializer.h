// The module itself: its counted start, the path of its file, and its string table.
//
// Thread-safety: only the construction of the instance is safe against other threads; look-ups may
// run on any thread.
#pragma once

#include <cstdint>
#include <string>

class QvModule_Initializer
{
public:
    static QvModule_Initializer& getInst();

    /// The first call starts the configuration and finds out the module's file; further calls only
    /// count.
    void init();
    /// The call that matches the first init stops the configuration; a call without a matching init
    /// does nothing.
    void deinit();

    /// The text of a key in the user's language; "" (or `defaultText`) when there is none.
    std::string get_resource_string(const std::string& key) const;
    std::string get_resource_string(const std::string& key, const std::string& defaultText) const;

    std::uint64_t InitCount() const { return m_initCount; }
    const std::string& ModuleName() const { return m_moduleName; }
    const std::string& ModuleFile() const { return m_moduleFile; }
    const std::string& ModuleFolder() const { return m_moduleFolder; }
    const std::string& ModuleFileName() const { return m_moduleFileName; }
    const std::string& ModuleExtension() const { return m_moduleExtension; }

    /// Splits the path of the module's file into folder, name and extension.
    void SetModuleFile(const std::string& file);

private:
    QvModule_Initializer();

    std::uint64_t m_initCount = 0;
    std::string m_moduleName = "QvServices";
    std::string m_moduleFile;
    std::string m_moduleFolder;
    std::string m_moduleFileName;
    std::string m_moduleExtension = "so";
};

/// The text of a "global.*" key of this module.
std::string QvResourceString(const std::string& key);
