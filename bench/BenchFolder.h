// Helpers of the benchmarks: a temporary folder, and a way to abort.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>

namespace bench
{
[[noreturn]] inline void Die(const std::string& what)
{
    std::cerr << "benchmark failed: " << what << '\n';
    std::exit(1);
}

inline void Require(bool condition, const char* what)
{
    if (!condition)
        Die(what);
}

/// A temporary folder; the destructor removes it.
class TFolder
{
public:
    explicit TFolder(const std::filesystem::path& parent = std::filesystem::temp_directory_path())
        : m_path(parent / "qvbench.XXXXXX")
    {
        Require(mkdtemp(m_path.data()) != nullptr, "mkdtemp");
    }
    ~TFolder() { std::filesystem::remove_all(m_path); }
    TFolder(const TFolder&) = delete;
    TFolder& operator=(const TFolder&) = delete;

    const std::string& Path() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};
} // namespace bench
