// A fresh folder for one test, removed with it, and short functions to read files.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

class TTempFolder
{
public:
    /// In `parent`; null: where temporary files belong.
    explicit TTempFolder(const char* parent = nullptr)
    {
        namespace fs = std::filesystem;
        m_path = (parent != nullptr ? fs::path(parent) : fs::temp_directory_path()) / "qv.XXXXXX";
        if (mkdtemp(m_path.data()) == nullptr)
            throw std::runtime_error("no temporary folder: " + m_path);
    }
    ~TTempFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TTempFolder(const TTempFolder&) = delete;

    const std::string& Path() const { return m_path; }
    /// The full path of `name` in the folder.
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }
    /// Writes a file, creating the folders on the way; returns its full path.
    std::string Write(const std::string& name, const std::string& content) const
    {
        const std::string path = *this / name;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        if (!(std::ofstream(path, std::ios::binary) << content).flush())
            throw std::runtime_error("cannot write " + path);
        return path;
    }
    /// Creates a folder with its parents; returns its full path.
    std::string MakeFolder(const std::string& name) const
    {
        std::filesystem::create_directories(*this / name);
        return *this / name;
    }

private:
    std::string m_path;
};

/// The whole content; "<missing>" when it cannot be read.
inline std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return "<missing>";
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

inline bool Exists(const std::string& path)
{
    std::error_code ignored;
    return std::filesystem::exists(std::filesystem::symlink_status(path, ignored));
}

/// Names in a folder, hidden ones too, sorted.
inline std::vector<std::string> NamesIn(const std::string& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

/// Bytes that differ at every position nearby.
inline std::string Pattern(std::size_t size)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 7 + i / 251);
    return bytes;
}
