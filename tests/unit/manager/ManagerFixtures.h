// Managers with something mounted, apart from the manager of the process.
#pragma once

#include <gtest/gtest.h>

#include "manager/ResourceManager.h"
#include "module/QvServicesModule.h"
#include "support/FolderTree.h"
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

/// "/A", "/A/in/M" inside of it, "/B", and "/V/D" below a virtual folder; on disk they are the
/// folders A, M, B and D of `Temp`, of which a test fills what it needs.
class TMountedTree : public testing::Test
{
protected:
    TMountedTree()
    {
        for (const std::string id : {"/A", "/A/in/M", "/B", "/V/D"})
            Manager.MountFileNodeE(id, Temp.MakeFolder(id.substr(id.size() - 1)), false);
    }
    std::string Content(const std::string& name) const { return ReadFile(Temp / name); }

    TTempFolder Temp;
    TResourceManager Manager;
};

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
