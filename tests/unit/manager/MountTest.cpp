#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "QvConfig/Config.h"
#include "QvStd/Message.h"
#include "manager/QvServicesModule.h"
#include "manager/ResourceManager.h"
#include "support/VarFolder.h"

namespace
{
constexpr char kMount[] =
    "@void TResourceManager::MountFileNodeE(const std::__cxx11::string &, const "
    "std::__cxx11::string &, bool): ";
constexpr char kUnmount[] =
    "@void TResourceManager::UnmountNodeE(const std::__cxx11::string &, bool): ";

class Mount : public testing::Test
{
protected:
    void Start(bool remote = false)
    {
        Folder = std::make_unique<TVarFolder>(
            std::vector<std::pair<std::string, std::string>>{{"/Data", Data.Path()}}, remote);
        Init_QvServices();
        Manager.Init();
    }
    ~Mount() override
    {
        if (Folder)
            Deinit_QvServices();
    }
    static std::string Reason(const std::function<void()>& call)
    {
        try {
            call();
        } catch (const TQvMessage& message) {
            return message.text();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    }
    std::string MountReason(const std::string& id, const std::string& path, bool persistent = false)
    {
        return Reason([&] { Manager.MountFileNodeE(id, path, persistent); });
    }
    std::string UnmountReason(const std::string& id, bool persistent = false)
    {
        return Reason([&] { Manager.UnmountNodeE(id, persistent); });
    }

    TTempFolder Data;
    std::unique_ptr<TVarFolder> Folder;
    TResourceManager Manager;
};

TEST_F(Mount, RefusesBeforeAnythingChanges)
{
    Start();
    for (const char* id : {"/My Computer//Data", "A", "/a:b", "/a*", "/a?", "/a\\b", "/a\x01",
                           "/a\"", "/<", "/>", "/|"})
        EXPECT_EQ(MountReason(id, Data.Path()), kMount + std::string("Invalid MountPoint")) << id;
    EXPECT_EQ(MountReason("/x", Data / "missing"), kMount + std::string("Invalid Path"));
    EXPECT_EQ(MountReason("/x", Data.Write("file", "")), kMount + std::string("Invalid Path"));
    EXPECT_EQ(MountReason("/DATA", Data.Path()), kMount + std::string("Duplicate node"));
    EXPECT_EQ(UnmountReason("/x"), kUnmount + std::string("Node to unmount does not exist"));
    EXPECT_EQ(Manager.MountNodes().size(), 2u);
}

TEST_F(Mount, RootIsFreshAndLast)
{
    Start();
    EXPECT_EQ(MountReason("/new/Point", Data.Path() + "/"), "");
    EXPECT_EQ(Manager.MountNodes().back()->Type(), TResourceManager::kRootNode);
    EXPECT_EQ(Manager.ResourceExists("/NEW"), kResFolder);
    EXPECT_EQ(Manager.MountNodes()[1]->MountPointId(), "/new/Point");
    EXPECT_EQ(UnmountReason(Manager.MountNodes()[1]->MountPointId(), true),
              kUnmount +
                  std::string("Inconsistent profile data: node does not exist in the profile"));
    EXPECT_EQ(Manager.ResourceExists("/new"), kResNothing);
    EXPECT_EQ(Manager.MountNodes().size(), 2u);
    EXPECT_EQ(Manager.MountNodes().back()->Type(), TResourceManager::kRootNode);
    EXPECT_EQ(MountReason("", Data.Path()), kMount + std::string("Duplicate node"))
        << "the root is mounted there";
}

TEST_F(Mount, PersistentMountRoundTrip)
{
    Start();
    const std::string before = ReadFile(Folder->ProfileFile());
    EXPECT_EQ(MountReason("/Second", Data.Path(), true), "");
    TResourceManager other;
    other.Init();
    EXPECT_EQ(other.ResourceExists("/second"), kResFolder);
    EXPECT_EQ(UnmountReason("/Second", true), "");
    EXPECT_EQ(ReadFile(Folder->ProfileFile()), before);

    // a profile that was loaded keys its nodes by the upper-cased name
    EXPECT_EQ(Reason([&] { other.UnmountNodeE("/Second", true); }),
              kUnmount +
                  std::string("Inconsistent profile data: node does not exist in the profile"));
    EXPECT_EQ(UnmountReason("/DATA", true), "");
    EXPECT_EQ(Manager.ResourceExists("/Data"), kResNothing);
}

TEST_F(Mount, TableStaysChangedWhenTheProfileCannotBe)
{
    Start();
    EXPECT_EQ(MountReason("/temporary", Data.Path()), "");
    EXPECT_EQ(UnmountReason("/temporary", true),
              kUnmount +
                  std::string("Inconsistent profile data: node does not exist in the profile"));
    EXPECT_EQ(Manager.ResourceExists("/temporary"), kResNothing);

    UnmountReason("/DATA");
    EXPECT_EQ(MountReason("/DATA", Data.Path(), true),
              kMount +
                  std::string(
                      "Inconsistent profile data: new node not loaded but exists in the profile"));
    EXPECT_EQ(Manager.ResourceExists("/DATA"), kResFolder);

    Folder->Write("policy.x-ini", "profile=Other\n");
    pQvConfigData->Load();
    EXPECT_EQ(MountReason("/third", Data.Path(), true),
              kMount + std::string("Inconsistent profile data"));
    EXPECT_EQ(UnmountReason("/third", true), kUnmount + std::string("Inconsistent profile data"));

    Deinit_QvServices();
    EXPECT_EQ(MountReason("/fourth", Data.Path(), true), "@QvConfigData is not initialized");
    EXPECT_EQ(Manager.ResourceExists("/fourth"), kResFolder);
    Init_QvServices();
}

TEST_F(Mount, RemoteProfileIsNotChanged)
{
    Start(true);
    const std::string before = ReadFile(Folder->ProfileFile());
    EXPECT_FALSE(Manager.CanMountPersistent());
    const std::string reason = "Cannot make persistent changes to the remote profile";
    EXPECT_EQ(MountReason("/x", Data.Path(), true), kMount + reason);
    EXPECT_EQ(Manager.ResourceExists("/x"), kResFolder);
    EXPECT_EQ(UnmountReason("/x", true), kUnmount + reason);
    EXPECT_EQ(ReadFile(Folder->ProfileFile()), before);
}
} // namespace
