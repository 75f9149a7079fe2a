#include "support/TempFolder.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fs = std::filesystem;

TTempFolder::TTempFolder(const char* parent)
{
    m_path = (parent != nullptr ? fs::path(parent) : fs::temp_directory_path()) / "qv.XXXXXX";
    if (mkdtemp(m_path.data()) == nullptr)
        throw std::runtime_error("no temporary folder: " + m_path);
}

TTempFolder::~TTempFolder()
{
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

std::string TTempFolder::Write(const std::string& name, const std::string& content) const
{
    const std::string path = *this / name;
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream file(path, std::ios::binary);
    file << content;
    if (!file.flush())
        throw std::runtime_error("cannot write " + path);
    return path;
}

std::string TTempFolder::MakeFolder(const std::string& name) const
{
    fs::create_directories(*this / name);
    return *this / name;
}

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return "<missing>";
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

bool Exists(const std::string& path)
{
    std::error_code ignored;
    return fs::exists(fs::symlink_status(path, ignored));
}

std::vector<std::string> NamesIn(const std::string& folder)
{
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string Pattern(std::size_t size)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 7 + i / 251);
    return bytes;
}
