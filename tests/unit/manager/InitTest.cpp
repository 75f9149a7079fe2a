#include "ManagerFixtures.h"
#include "QvStd/URLManager.h"
#include "module/ModuleInitializer.h"
#include "support/Thrown.h"

namespace
{
using Init = TStartedManager;

TEST(Module, InitNeedsAStartedAndLoadedConfiguration)
{
    TResourceManager manager;
    const auto failure = [&manager] { return ThrownText([&] { manager.Init(); }); };
    const TTempFolder empty;
    const TEnvironmentVariable registry("QV_REGISTRY_DIR", empty.Path());
    Deinit_QvServices(); // without a start it does nothing
    EXPECT_EQ(failure(), "@QvConfigData is not initialized");
    Init_QvServices();
    Init_QvServices();
    Deinit_QvServices();
    EXPECT_EQ(failure(), "@bool TResourceManager::Init(): QvConfigData not loaded");
    Deinit_QvServices();
    EXPECT_EQ(failure(), "@QvConfigData is not initialized");
}

TEST_F(Init, SplitsThePathOfTheModule)
{
    auto& module = QvModule_Initializer::getInst();
    const std::string file = module.ModuleFile();
    module.SetModuleFile("/a.b/libQv.so");
    EXPECT_EQ(module.ModuleFolder(), "/a.b/");
    EXPECT_EQ(module.ModuleFileName(), "libQv.so");
    EXPECT_EQ(module.ModuleExtension(), "so");
    module.SetModuleFile(file);
    EXPECT_EQ(module.get_resource_string("global.None"), "");
    EXPECT_EQ(module.get_resource_string("global.None", "default"), "default");
}

TEST_F(Init, MountsTheProfileInKeyOrderAndTheRootLast)
{
    for (const char* id : {"/My Computer/Data", "/b"})
        Manager.MountFileNodeE(id, Data.Path(), true);
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(Manager.Init());
        std::vector<std::string> ids;
        for (const auto& node : Manager.MountNodes())
            ids.push_back(node->MountPointId());
        EXPECT_EQ(ids, (std::vector<std::string>{"/b", "/Data", "/My Computer/Data", ""}));
    }
    EXPECT_EQ(Manager.Profile().Name, "Test");
    EXPECT_NE(QvURLManager.SchemeHandler("qvres"), nullptr);
}

TEST_F(Init, SettingsHaveDefaultsButOneIsKept)
{
    const std::tuple<const char*, unsigned, unsigned, unsigned, bool> kRows[] = {
        {nullptr, 10000, 1000, 256, false},
        {"MountMyComputer=2\nStDirChangeCount2Merge=7\n", 10000, 1000, 7, true},
        {"StDirLockTimeout=5\n", 5, 1000, 256, true}, // as the previous Init left it
    };
    for (const auto& [settings, timeout, interval, changes, myComputer] : kRows) {
        if (settings != nullptr)
            Var.Write("Config/ResourceManager.x-ini", settings);
        Manager.Init();
        EXPECT_EQ(Manager.Config().StDirLockTimeout, timeout);
        EXPECT_EQ(Manager.Config().StDirSyncMinInterval, interval) << timeout;
        EXPECT_EQ(Manager.Config().StDirChangeCount2Merge, changes) << timeout;
        EXPECT_EQ(Manager.Config().MountMyComputer, myComputer) << timeout;
    }
}

TEST_F(Init, AFailureLeavesNoNodeInTheIndexes)
{
    const auto init = [this] { Manager.Init(); };
    Var.Write("Profiles/Test/profile.x-ini",
              "[profile]\nremote=0\n[mount]\nnode=/A\npath=" + Data.Path() +
                  "\n[/mount]\n[mount]\nnode=/Group\n[storagegroup]\n[/storagegroup]\n"
                  "[/mount]\n[/profile]\n");
    EXPECT_EQ(ThrownText(init), "@bool TResourceManager::Init(): Error mounting node /Group");
    EXPECT_EQ(Manager.MountNodes().size(), 1u) << "what was loaded before stays in the list";
    EXPECT_EQ(Manager.GetNode4Id("/A/x", false, true, false), nullptr);
    EXPECT_THROW(Manager.MountFileNodeE("/A", Data.Path(), false), TQvMessage)
        << "it is in the list";
    Var.Write("Profiles/Test/profile.x-ini", "broken\n");
    EXPECT_NE(ThrownText(init), "");
    EXPECT_EQ(TResourceManager::LastFailure().Error, EBADMSG);
    EXPECT_TRUE(Manager.MountNodes().empty());
    std::filesystem::remove(Var.ProfileFile());
    EXPECT_NE(ThrownText(init), "");
    EXPECT_EQ(TResourceManager::LastFailure().Error, ENOENT);
}
} // namespace
