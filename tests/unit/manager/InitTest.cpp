#include <gtest/gtest.h>

#include <stdexcept>

#include "QvConfig/Config.h"
#include "QvStd/Message.h"
#include "QvStd/URLManager.h"
#include "manager/ModuleInitializer.h"
#include "manager/QvServicesModule.h"
#include "manager/ResourceManager.h"
#include "support/VarFolder.h"

namespace
{
template <class TException>
std::string TextOfInit(TResourceManager& manager)
{
    try {
        manager.Init();
    } catch (const TQvMessage& message) {
        return message.text();
    } catch (const TException& error) {
        return error.what();
    }
    return "no exception";
}

struct TService
{
    TService() { Init_QvServices(); }
    ~TService() { Deinit_QvServices(); }
};

TEST(Module, CountsItsStarts)
{
    Deinit_QvServices();
    EXPECT_EQ(pQvConfigData, nullptr) << "a stop without a start does nothing";
    Init_QvServices();
    Init_QvServices();
    Deinit_QvServices();
    EXPECT_NE(pQvConfigData, nullptr);
    Deinit_QvServices();
    EXPECT_EQ(pQvConfigData, nullptr);
}

TEST(Module, KnowsItsFile)
{
    const TService service;
    auto& module = QvModule_Initializer::getInst();
    EXPECT_EQ(module.ModuleFolder() + module.ModuleFileName(), module.ModuleFile());
    EXPECT_NE(module.ModuleFileName(), "");
    constexpr const char* kRows[][4] = {
        {"/a/libQv.so", "/a/", "libQv.so", "so"},
        {"C:\\x\\q.dll", "C:\\x\\", "q.dll", "dll"},
        {"plain", "", "plain", ""},
        {"/a.b/end.", "/a.b/", "end.", ""},
    };
    const std::string file = module.ModuleFile();
    for (const auto& row : kRows) {
        module.SetModuleFile(row[0]);
        EXPECT_EQ(module.ModuleFolder(), row[1]);
        EXPECT_EQ(module.ModuleFileName(), row[2]);
        EXPECT_EQ(module.ModuleExtension(), row[3]);
    }
    module.SetModuleFile(file);
    EXPECT_EQ(module.get_resource_string("global.None"), "");
    EXPECT_EQ(module.get_resource_string("global.None", "default"), "default");
}

TEST(Init, NeedsALoadedConfiguration)
{
    TResourceManager manager;
    EXPECT_EQ(TextOfInit<std::runtime_error>(manager), "@QvConfigData is not initialized");
    TTempFolder empty;
    setenv("QV_REGISTRY_DIR", empty.Path().c_str(), 1);
    const TService service;
    EXPECT_EQ(TextOfInit<std::runtime_error>(manager),
              "@bool TResourceManager::Init(): QvConfigData not loaded");
    unsetenv("QV_REGISTRY_DIR");
}

TEST(Init, MountsTheProfileInKeyOrderAndTheRootLast)
{
    TTempFolder data;
    const TVarFolder var(
        {{"/b", data.Path()}, {"/A", data.Path()}, {"/My Computer/Data", data.Path()}});
    const TService service;
    TResourceManager manager;
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(manager.Init());
        std::vector<std::string> mountPoints;
        for (const auto& node : manager.MountNodes())
            mountPoints.push_back(node->MountPointId());
        EXPECT_EQ(mountPoints, (std::vector<std::string>{"/A", "/b", "/My Computer/Data", ""}));
    }
    EXPECT_EQ(manager.Profile().Name, "Test");
    EXPECT_NE(QvURLManager.SchemeHandler("qvres"), nullptr);
}

TEST(Init, SettingsHaveDefaultsButOneIsKept)
{
    const TVarFolder var;
    const TService service;
    TResourceManager manager;
    manager.Init();
    EXPECT_EQ(manager.Config().StDirLockTimeout, 10000u);
    EXPECT_EQ(manager.Config().StDirSyncMinInterval, 1000u);
    EXPECT_EQ(manager.Config().StDirChangeCount2Merge, 256u);
    EXPECT_FALSE(manager.Config().MountMyComputer);
    var.Write("Config/ResourceManager.x-ini", "MountMyComputer=2\nStDirChangeCount2Merge=7\n");
    manager.Init();
    EXPECT_TRUE(manager.Config().MountMyComputer);
    EXPECT_EQ(manager.Config().StDirChangeCount2Merge, 7u);
    var.Write("Config/ResourceManager.x-ini", "StDirLockTimeout=5\n");
    manager.Init();
    EXPECT_TRUE(manager.Config().MountMyComputer) << "it keeps the value of the previous Init";
    EXPECT_EQ(manager.Config().StDirLockTimeout, 5u);
    EXPECT_EQ(manager.Config().StDirChangeCount2Merge, 256u);
}

TEST(Init, FailureLeavesNoIndexIntoNothing)
{
    TTempFolder data;
    const TVarFolder var({{"/A", data.Path()}});
    const TService service;
    TResourceManager manager;
    manager.Init();
    var.Write("Profiles/Test/profile.x-ini",
              "[profile]\nremote=0\n[mount]\nnode=/A\npath=" + data.Path() +
                  "\n[/mount]\n[mount]\nnode=/Group\n[storagegroup]\n[/storagegroup]\n"
                  "[/mount]\n[/profile]\n");
    EXPECT_EQ(TextOfInit<std::runtime_error>(manager),
              "@bool TResourceManager::Init(): Error mounting node /Group");
    EXPECT_EQ(manager.MountNodes().size(), 1u) << "what was loaded before stays in the list";
    EXPECT_EQ(manager.GetNode4Id("/A/x", false, true, false), nullptr);
    EXPECT_THROW(manager.MountFileNodeE("/A", data.Path(), false), TQvMessage)
        << "it is in the list";
    var.Write("Profiles/Test/profile.x-ini", "broken\n");
    EXPECT_NE(TextOfInit<std::runtime_error>(manager), "no exception");
    EXPECT_TRUE(manager.MountNodes().empty());
}
} // namespace
