#include "ManagerFixtures.h"
#include "QvConfig/Config.h"
#include "support/Thrown.h"

namespace
{
const std::string kMount = "@void TResourceManager::MountFileNodeE(const std::__cxx11::string &, "
                           "const std::__cxx11::string &, bool): ";
const std::string kUnmount =
    "@void TResourceManager::UnmountNodeE(const std::__cxx11::string &, bool): ";
const std::string kNotInProfile =
    kUnmount + "Inconsistent profile data: node does not exist in the profile";

class Mount : public TStartedManager
{
protected:
    std::string Mounted(const std::string& id, const std::string& path, bool persistent = false)
    {
        return ThrownText([&] { Manager.MountFileNodeE(id, path, persistent); });
    }
    std::string Unmounted(const std::string& id, bool persistent = false)
    {
        return ThrownText([&] { Manager.UnmountNodeE(id, persistent); });
    }
};

TEST_F(Mount, RefusesBeforeAnythingChanges)
{
    for (const char* id : {"/My Computer//Data", "A", "/a:b", "/a*", "/a?", "/a\\b", "/a\x01",
                           "/a\"", "/<", "/>", "/|"})
        EXPECT_EQ(Mounted(id, Data.Path()), kMount + "Invalid MountPoint") << id;
    EXPECT_EQ(Mounted("/x", Data / "missing"), kMount + "Invalid Path");
    EXPECT_EQ(Mounted("/x", Data.Write("file", "")), kMount + "Invalid Path");
    EXPECT_EQ(Mounted("/DATA", Data.Path()), kMount + "Duplicate node");
    EXPECT_EQ(Mounted("", Data.Path()), kMount + "Duplicate node") << "the root is mounted there";
    EXPECT_EQ(Unmounted("/x"), kUnmount + "Node to unmount does not exist");
    EXPECT_EQ(Manager.MountNodes().size(), 2u);
}

TEST_F(Mount, MountsANodeOfTheHost)
{
    const auto mounted = [this](const var_a<TResourceManager::TMountNode*>& node) {
        return ThrownText([&] { Manager.MountNodeE(node); });
    };
    const auto entries = std::make_shared<TMemoryEntries>();
    const std::string mount = "@void TResourceManager::MountNodeE(const var_a<TMountNode*> &): ";
    EXPECT_EQ(mounted({}), mount + "Invalid node");
    EXPECT_EQ(mounted(Manager.LoadRootMountNode()), mount + "Invalid node");
    EXPECT_EQ(mounted(make_var<TMemoryNode>("/a:b", entries)), mount + "Invalid MountPoint");
    EXPECT_EQ(mounted(make_var<TMemoryNode>("/DATA", entries)), mount + "Duplicate node");
    EXPECT_EQ(mounted(make_var<TMemoryNode>("/own/M", entries)), "");
    EXPECT_EQ(Manager.GetResourceType("/OWN/m/x"), TResourceManager::kFirstHostNode);
    EXPECT_EQ(Unmounted("/own/m"), "");
    EXPECT_EQ(Manager.ResourceExists("/own"), kResNothing);
}

TEST_F(Mount, TheRootIsRebuiltAndStaysLast)
{
    EXPECT_EQ(Mounted("/new/Point", Data.Path() + "/"), "");
    EXPECT_EQ(Manager.ResourceExists("/NEW"), kResFolder);
    // the id is the node's own: it must outlive the node
    EXPECT_EQ(Unmounted(Manager.MountNodes()[1]->MountPointId(), true), kNotInProfile);
    EXPECT_EQ(Manager.ResourceExists("/new"), kResNothing);
    EXPECT_EQ(Manager.MountNodes().size(), 2u);
    EXPECT_EQ(Manager.MountNodes().back()->Type(), TResourceManager::kRootNode);
}

std::string MountText(const std::string& id, const std::string& path)
{
    return "  [mount]\n    node=" + id + "\n    path=" + path + "\n  [/mount]\n";
}

TEST_F(Mount, PersistentChangesKeepWhatOthersWrote)
{
    const std::string begin = "; by hand\r\n[profile]\r\n remote = 0\r\n  colour=red\n";
    const std::string data =
        "  ; of Data\n [mount]\n  node=/Data\n  path=" + Data.Path() + "\n  size=big\n [/]\n";
    const std::string end = "  ; the end\n[/profile]\nlast=1\n";
    Var.Write("Profiles/Test/profile.x-ini", begin + data + end);
    Manager.Init();
    EXPECT_EQ(Mounted("/Own", Data.Path(), true), "");
    const std::string own = MountText("/Own", Data.Path());
    EXPECT_EQ(ReadFile(Var.ProfileFile()), begin + data + own + end);

    TResourceManager others;
    others.Init();
    others.MountFileNodeE("/Apart", "/usr", true);
    others.MountFileNodeE("/Taken", "/usr", true);
    EXPECT_EQ(Mounted("/Taken", Data.Path(), true),
              kMount + "Inconsistent profile data: new node not loaded but exists in the profile");
    others.UnmountNodeE("/OWN", true);
    EXPECT_EQ(Unmounted("/Own", true), kNotInProfile) << "others have removed it";
    EXPECT_EQ(Mounted("/own", Data.Path(), true), "");
    EXPECT_EQ(ReadFile(Var.ProfileFile()), begin + MountText("/Apart", "/usr") + data +
                                               MountText("/Taken", "/usr") +
                                               MountText("/own", Data.Path()) + end);
    EXPECT_EQ(Manager.Profile().Nodes.count("/APART"), 1u);
    EXPECT_EQ(Unmounted("/own", true), "");
    EXPECT_EQ(ThrownText([&] { others.UnmountNodeE("/Data", true); }), kNotInProfile)
        << "a loaded profile has the upper-cased name";
    EXPECT_EQ(Unmounted("/DATA", true), "");
    EXPECT_EQ(ReadFile(Var.ProfileFile()), begin + MountText("/Apart", "/usr") +
                                               MountText("/Taken", "/usr") + "  ; of Data\n" + end);

    Var.Write("Profiles/Test/profile.x-ini", "broken");
    EXPECT_EQ(Mounted("/x", Data.Path(), true), "Err_XIniParse_name");
    EXPECT_EQ(TResourceManager::LastFailure().Error, EBADMSG);
    EXPECT_EQ(ReadFile(Var.ProfileFile()), "broken");
}

TEST_F(Mount, TheTableStaysChangedWhenTheProfileFails)
{
    Unmounted("/DATA");
    EXPECT_EQ(Mounted("/DATA", Data.Path(), true),
              kMount + "Inconsistent profile data: new node not loaded but exists in the profile");
    EXPECT_EQ(Manager.ResourceExists("/DATA"), kResFolder);

    Var.Write("policy.x-ini", "profile=Other\n");
    pQvConfigData->Load();
    EXPECT_EQ(Mounted("/third", Data.Path(), true), kMount + "Inconsistent profile data");
    EXPECT_EQ(Unmounted("/third", true), kUnmount + "Inconsistent profile data");

    Deinit_QvServices();
    EXPECT_EQ(Mounted("/fourth", Data.Path(), true), "@QvConfigData is not initialized");
    EXPECT_EQ(TResourceManager::LastFailure().Error, EINVAL);
    EXPECT_EQ(Manager.ResourceExists("/fourth"), kResFolder);
    Init_QvServices();
}

TEST_F(Mount, RemoteProfileIsNotChanged)
{
    const std::string remote = "[profile]\nremote=1\n[/profile]\n";
    Var.Write("Profiles/Test/profile.x-ini", remote);
    Manager.Init();
    EXPECT_FALSE(Manager.CanMountPersistent());
    const std::string reason = "Cannot make persistent changes to the remote profile";
    EXPECT_EQ(Mounted("/x", Data.Path(), true), kMount + reason);
    EXPECT_EQ(Manager.ResourceExists("/x"), kResFolder);
    EXPECT_EQ(Unmounted("/x", true), kUnmount + reason);
    EXPECT_EQ(ReadFile(Var.ProfileFile()), remote);
}
} // namespace
