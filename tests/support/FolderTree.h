// The content of a folder as one line of text, so that the rows of a table can state it: files as
// "name=content", links as "name>target", empty folders as "name/". No blanks inside.
#pragma once

#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/TempFolder.h"

/// Replaces what the folder holds.
inline void MakeTree(const std::string& folder, const std::string& tree)
{
    namespace fs = std::filesystem;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder))
        fs::remove_all(entry.path());
    std::istringstream words(tree);
    for (std::string word; words >> word;) {
        const std::size_t mark = word.find_first_of("=>");
        const fs::path path = fs::path(folder) / word.substr(0, mark);
        fs::create_directories(path.parent_path());
        if (mark != std::string::npos && word[mark] == '>')
            fs::create_symlink(word.substr(mark + 1), path);
        else if (mark != std::string::npos)
            std::ofstream(path) << word.substr(mark + 1);
    }
}

/// Sorted by name; hidden files too, links not followed.
inline std::string TreeOf(const std::string& folder)
{
    namespace fs = std::filesystem;
    std::map<std::string, std::string> words;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        const std::string name = entry.path().lexically_relative(folder).string();
        if (entry.is_symlink())
            words[name] = ">" + fs::read_symlink(entry.path()).string();
        else if (!entry.is_directory())
            words[name] = "=" + ReadFile(entry.path().string());
        else if (fs::is_empty(entry.path()))
            words[name] = "/";
    }
    std::string tree;
    for (const auto& [name, rest] : words)
        tree += (tree.empty() ? "" : " ") + name + rest;
    return tree;
}

/// A call, what it answers, and what it makes of a folder's content.
struct TTreeCase
{
    const char* Name;
    std::function<bool()> Call;
    bool Result;
    const char* Before;
    const char* After = Before;
};

inline void ExpectTrees(const std::string& folder, const std::vector<TTreeCase>& cases)
{
    for (const TTreeCase& row : cases) {
        MakeTree(folder, row.Before);
        EXPECT_EQ(row.Call(), row.Result) << row.Name;
        EXPECT_EQ(TreeOf(folder), row.After) << row.Name;
    }
}
