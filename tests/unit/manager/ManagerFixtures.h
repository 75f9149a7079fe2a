// Managers with something mounted, apart from the manager of the process.
#pragma once

#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <memory>

#include "manager/ResourceManager.h"
#include "module/QvServicesModule.h"
#include "support/FolderTree.h"
#include "support/MemoryNode.h"
#include "support/VarFolder.h"

/// The commands of a node and those of folders: "create ID", "clear ID", "rmdir ID", "remove ID",
/// which clears first.
inline bool DoCommand(TResourceManager& manager, const std::string& command)
{
    const std::size_t blank = command.find(' ');
    const std::string verb = command.substr(0, blank), id = command.substr(blank + 1);
    if (verb == "create")
        return manager.CreateFolder(id);
    if (verb == "clear")
        return manager.ClearFolder(id, nullptr);
    if (verb == "rmdir" || verb == "remove")
        return manager.DeleteFolder(id, verb == "remove", nullptr);
    return DoCommand<TResourceManager>(manager, command);
}

/// "/A", "/A/in/M" inside of it, "/B", and "/V/D" below a virtual folder; they are the folders A,
/// M, B and D of `Temp`, of which a test fills what it needs.
class TMountedTree : public testing::Test
{
protected:
    /// `inMemory` has the names of those that are nodes in memory, not on disk.
    explicit TMountedTree(const std::string& inMemory = {})
    {
        for (const char name : inMemory)
            m_inMemory[std::string(1, name)] = std::make_shared<TMemoryEntries>();
        for (const std::string id : {"/A", "/A/in/M", "/B", "/V/D"})
            Mount(id, id.substr(id.size() - 1));
        Load();
    }
    void Mount(const std::string& id, const std::string& name)
    {
        const std::string folder = Temp.MakeFolder(name);
        if (OnDisk(name))
            Manager.MountFileNodeE(id, folder, false);
        else
            Manager.MountNodeE(make_var<TMemoryNode>(id, m_inMemory[name]));
    }
    bool OnDisk(const std::string& name) const { return m_inMemory.count(name) == 0; }
    bool IsAllOnDisk() const { return m_inMemory.empty(); }

    /// Fills the nodes in memory from the folders of their names.
    void Load()
    {
        for (auto& [name, entries] : m_inMemory)
            LoadEntries(Temp / name, *entries);
    }
    void Fill(const std::string& tree)
    {
        MakeTree(Temp.Path(), tree);
        Load();
    }
    void Write(const std::string& name, const std::string& content)
    {
        Save();
        Temp.Write(name, content);
        Load();
    }
    std::string Tree(const std::string& name = {}) { return TreeOf(Saved(name)); }
    std::string Content(const std::string& name) { return ReadFile(Saved(name)); }
    /// Rows with a link are for disks alone.
    void ExpectTrees(const std::vector<TTreeCase>& cases)
    {
        for (const TTreeCase& row : cases) {
            if (!IsAllOnDisk() && std::strchr(row.Before, '>') != nullptr)
                continue;
            Fill(row.Before);
            EXPECT_EQ(DoCommand(Manager, row.Command), row.Result) << row.Command;
            EXPECT_EQ(Tree(), row.After) << row.Command << " of " << row.Before;
        }
    }

    TTempFolder Temp;
    TResourceManager Manager;

private:
    void Save()
    {
        for (auto& [name, entries] : m_inMemory)
            SaveEntries(*entries, Temp / name);
    }
    std::string Saved(const std::string& name)
    {
        Save();
        return Temp / name;
    }

    std::map<std::string, std::shared_ptr<TMemoryEntries>> m_inMemory; ///< by name
};

/// The same with each pair of node kinds: a parameter of TMountedTree.
class TAnyMountedTree : public TMountedTree, public testing::WithParamInterface<const char*>
{
protected:
    TAnyMountedTree() : TMountedTree(GetParam()) {}
};

inline std::string NameOfKinds(const testing::TestParamInfo<const char*>& inMemory)
{
    const std::string names = inMemory.param;
    return names.empty() ? "OnDisk" : names + "InMemory";
}

/// All on disk, all in memory, and both ways between them.
#define QV_WITH_ANY_NODES(suite)                                                                   \
    INSTANTIATE_TEST_SUITE_P(Nodes, suite, testing::Values("", "AMBD", "A", "MBD"), NameOfKinds)

/// Initialised from a VAR folder whose profile mounts "/Data".
class TStartedManager : public testing::Test
{
protected:
    TStartedManager()
    {
        Init_QvServices();
        Manager.Init();
    }
    ~TStartedManager() override { Deinit_QvServices(); }

    TTempFolder Data;
    TVarFolder Var{{{"/Data", Data.Path()}}};
    TResourceManager Manager;
};
