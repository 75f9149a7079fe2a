// A fresh folder for one test, removed with it, and short ways to look at files.
#pragma once

#include <string>
#include <vector>

class TTempFolder
{
public:
    /// In `parent`; null: where temporary files belong.
    explicit TTempFolder(const char* parent = nullptr);
    ~TTempFolder();
    TTempFolder(const TTempFolder&) = delete;

    const std::string& Path() const { return m_path; }
    /// The full path of `name` in the folder.
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }
    /// Writes a file, creating the folders on the way; returns its full path.
    std::string Write(const std::string& name, const std::string& content) const;
    /// Creates a folder with its parents; returns its full path.
    std::string MakeFolder(const std::string& name) const;

private:
    std::string m_path;
};

/// The whole content; "<missing>" when it cannot be read.
std::string ReadFile(const std::string& path);
bool Exists(const std::string& path);
/// Names in a folder, hidden ones too, sorted.
std::vector<std::string> NamesIn(const std::string& folder);
/// Bytes that differ at every position nearby.
std::string Pattern(std::size_t size);
