// The content of a folder as one line of text, so that the rows of a table can state it: files as
// "name=content", links as "name>target", empty folders as "name/". No blanks inside.
#pragma once

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/TempFolder.h"

/// Replaces the content of the folder.
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

/// Does "copy ID ID", "copymeta ID ID", "move ID ID" or "delete ID" with a manager or a node.
template <class TTree>
bool DoCommand(TTree& tree, const std::string& command)
{
    std::istringstream words(command);
    std::string verb, id, target;
    words >> verb >> id >> target;
    if (verb == "copy")
        return tree.CopyResource(id, target, nullptr);
    if (verb == "copymeta")
        return tree.CopyResourceMeta(id, target);
    if (verb == "move")
        return tree.RenMovResource(id, target, nullptr);
    if (verb == "delete")
        return tree.DeleteResource(id);
    throw std::invalid_argument(command);
}

/// A command, what it answers, and what it makes of a folder's content.
struct TTreeCase
{
    const char* Command;
    bool Result;
    const char* Before;
    const char* After = Before;
};
