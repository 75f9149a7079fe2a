#include <gtest/gtest.h>

#include <functional>

#include "QvStd/Message.h"
#include "QvStd/Strings.h"
#include "manager/ResourceManager.h"
#include "support/TempFolder.h"

namespace
{
constexpr char kGetNode4Id[] =
    "@TResourceManager::PTMountNode TResourceManager::GetNode4Id(const std::__cxx11::string "
    "&, bool, bool, bool) const: ";

std::string MessageOf(const std::function<void()>& call)
{
    try {
        call();
    } catch (const TQvMessage& message) {
        return message.text();
    }
    return "no exception";
}

void Mount(TResourceManager& manager, const std::vector<std::string>& mountPoints)
{
    for (const std::string& mountPoint : mountPoints)
        manager.MountFileNodeE(mountPoint, "/tmp", false);
}

std::string MountPointFor(const TResourceManager& manager, const std::string& id,
                          bool skipExact = false)
{
    const auto* node = manager.GetNode4Id(id, false, true, skipExact);
    return node != nullptr ? node->MountPointId() : "none";
}

TEST(Resolution, LongestMountPointAnswers)
{
    TResourceManager manager;
    EXPECT_EQ(MessageOf([&] { manager.GetNode4Id("/x", true, true, false); }),
              kGetNode4Id + std::string("Mount node not found for id /x"));
    EXPECT_EQ(manager.GetNode4Id("/x", false, true, false), nullptr);

    Mount(manager, {"/A", "/A/B", "/Data"});
    constexpr const char* kRows[][2] = {
        {"/A/B/c", "/A/B"}, {"/a/b/C", "/A/B"}, {"/A/B/", "/A/B"}, {"/A/B", "/A/B"},
        {"/A/BC/d", "/A"},  {"/A", "/A"},       {"/AA", ""},       {"/DATA2/x", ""},
        {"/Z", ""},         {"/", ""},          {"", ""},
    };
    for (const auto& row : kRows)
        EXPECT_EQ(MountPointFor(manager, row[0]), row[1]) << row[0];
    EXPECT_EQ(MountPointFor(manager, "/A", true), "")
        << "the mount point's own id belongs to the node above";
    EXPECT_EQ(MountPointFor(manager, "/A/B", true), "/A");
    EXPECT_EQ(MountPointFor(manager, "/A/", true), "/A");
    EXPECT_EQ(MountPointFor(manager, "", true), "none");

    EXPECT_EQ(manager.GetResourceType("/a/x"), TResourceManager::kFileNode);
    EXPECT_EQ(manager.GetResourceType("/x"), TResourceManager::kRootNode);
    EXPECT_TRUE(manager.IsMountNode("/a/b"));
    EXPECT_FALSE(manager.IsMountNode("/a/b/"));
    EXPECT_TRUE(manager.IsInsideMountedNodes("/A/*"));
    EXPECT_FALSE(manager.IsInsideMountedNodes("/Z"));
    EXPECT_TRUE(manager.IsInsideMyComputer("/my computer/x"));
    EXPECT_TRUE(manager.IsInsideMyComputer("/My Computer/"));
    EXPECT_FALSE(manager.IsInsideMyComputer("/My Computer"));
}

TEST(Resolution, InvalidIdThrowsWhateverIsAsked)
{
    TResourceManager manager;
    Mount(manager, {"/A"});
    for (const char* id : {"A/B", "//", "/A//b", "/A\\b", "/A\x1f", "/a:b"})
        for (const bool throwIfNone : {false, true})
            EXPECT_EQ(MessageOf([&] { manager.GetNode4Id(id, throwIfNone, false, false); }),
                      kGetNode4Id + std::string("Invalid resource id ") + id);
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
    unsigned seed = 1;
    const auto random = [&seed](unsigned limit) {
        return (seed = seed * 1103515245 + 12345) / 65536 % limit;
    };
    const auto randomId = [&random] {
        std::string id;
        for (unsigned i = random(5); i > 0; --i)
            id += "/" + std::string(1, "aAbB\xFF"[random(5)]) + (random(3) == 0 ? "x" : "");
        return id + (random(4) == 0 ? "/" : "");
    };
    for (int round = 0; round < 200; ++round) {
        TResourceManager manager;
        for (unsigned i = random(8); i > 0; --i) {
            const std::string mountPoint = randomId();
            if (mountPoint != "//" && !manager.IsMountNode(mountPoint))
                Mount(manager, {mountPoint});
        }
        for (int i = 0; i < 50; ++i) {
            const std::string id = randomId();
            for (const bool skipExact : {false, true})
                ASSERT_EQ(manager.GetNode4Id(id, false, true, skipExact),
                          PlainVisit(manager, id, skipExact))
                    << id;
        }
    }
}
} // namespace
