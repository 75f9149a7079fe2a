#include <gtest/gtest.h>
#include <random>

#include "QvStd/Strings.h"
#include "manager/ResourceManager.h"
#include "support/Thrown.h"

namespace
{
const std::string kGetNode4Id =
    "@TResourceManager::PTMountNode TResourceManager::GetNode4Id(const std::__cxx11::string "
    "&, bool, bool, bool) const: ";

TEST(Resolution, QuestionsAboutIds)
{
    TResourceManager manager;
    EXPECT_EQ(ThrownText([&] { manager.GetNode4Id("/x", true, true, false); }),
              kGetNode4Id + "Mount node not found for id /x");
    EXPECT_EQ(manager.GetNode4Id("/x", false, true, false), nullptr);

    for (const char* mountPoint : {"/A", "/A/B", "/Data"})
        manager.MountFileNodeE(mountPoint, "/tmp", false);
    const std::string longId = "/a/b/" + std::string(300, 'x');
    EXPECT_EQ(manager.GetNode4Id(longId, true, true, false)->MountPointId(), "/A/B");
    EXPECT_EQ(manager.GetNode4Id("", false, true, true), nullptr);

    EXPECT_EQ(manager.GetResourceType("/a/x"), TResourceManager::kFileNode);
    EXPECT_EQ(manager.GetResourceType("/x"), TResourceManager::kRootNode);
    EXPECT_TRUE(manager.IsMountNode("/a/b"));
    EXPECT_FALSE(manager.IsMountNode("/a/b/"));
    EXPECT_TRUE(manager.IsInsideMountedNodes("/A/*"));
    EXPECT_FALSE(manager.IsInsideMountedNodes("/Z"));
    EXPECT_TRUE(manager.IsInsideMyComputer("/my computer/x"));
    EXPECT_FALSE(manager.IsInsideMyComputer("/My Computer"));
}

TEST(Resolution, InvalidIdThrowsWhateverIsAsked)
{
    TResourceManager manager;
    manager.MountFileNodeE("/A", "/tmp", false);
    for (const std::string id : {"A/B", "//", "/A//b", "/A\\b", "/A\x1f", "/a:b"})
        for (const bool throwIfNone : {false, true})
            EXPECT_EQ(ThrownText([&] { manager.GetNode4Id(id, throwIfNone, false, false); }),
                      kGetNode4Id + "Invalid resource id " + id);
    EXPECT_NO_THROW(manager.GetNode4Id("/A/*", true, false, false));
    EXPECT_THROW(manager.GetNode4Id("/A/*", true, true, false), TQvMessage);
}

/// The plain visit: every node, the longest mount point first, the last of equal ones first.
const TResourceManager::TMountNode* PlainVisit(const TResourceManager& manager,
                                               const std::string& id, bool skipExact)
{
    const std::string upper = toupper_locale(id);
    const TResourceManager::TMountNode* best = nullptr;
    for (const auto& node : manager.MountNodes()) {
        const std::string mountPoint = toupper_locale(node->MountPointId());
        if (upper.compare(0, mountPoint.size(), mountPoint) == 0 &&
            (upper.size() == mountPoint.size() || upper[mountPoint.size()] == '/') &&
            (!skipExact || upper.size() > mountPoint.size()) &&
            (best == nullptr || mountPoint.size() >= best->MountPointId().size()))
            best = node.get();
    }
    return best;
}

TEST(Resolution, AgreesWithThePlainVisit)
{
    std::minstd_rand random;
    const auto randomId = [&random] {
        constexpr const char* kParts[] = {"/a", "/A", "/ax", "/b", "/B", "/\xFF"};
        std::string id;
        for (auto i = random() % 5; i > 0; --i)
            id += kParts[random() % 6];
        return id + (random() % 4 == 0 ? "/" : "");
    };
    for (int round = 0; round < 200; ++round) {
        TResourceManager manager;
        for (auto i = random() % 8; i > 0; --i)
            Thrown([&] { manager.MountFileNodeE(randomId(), "/tmp", false); }); // some are there
        for (int i = 0; i < 100; ++i) {
            const std::string id = randomId();
            ASSERT_EQ(manager.GetNode4Id(id, false, true, i % 2 != 0),
                      PlainVisit(manager, id, i % 2 != 0))
                << id;
        }
    }
}
} // namespace
