#include <gtest/gtest.h>
#include <random>

#include "QvStd/Strings.h"
#include "manager/MountIndex.h"
#include "manager/ResourceManager.h"
#include "nodes/RootMountNode.h"
#include "support/Thrown.h"

namespace
{
const std::string kGetNode4Id =
    "@TResourceManager::PTMountNode TResourceManager::GetNode4Id(const std::__cxx11::string "
    "&, bool, bool, bool) const: ";

TEST(Resolution, QueriesIgnoreLetterCase)
{
    TResourceManager manager;
    EXPECT_EQ(ThrownText([&] { manager.GetNode4Id("/x", true, true, false); }),
              kGetNode4Id + "Mount node not found for id /x");
    EXPECT_EQ(manager.GetNode4Id("/x", false, true, false), nullptr);

    for (const char* mountPoint : {"/A", "/A/B", "/Data"})
        manager.MountFileNodeE(mountPoint, "/tmp", false);
    EXPECT_EQ(manager.GetResourceType("/a/x"), TResourceManager::kFileNode);
    EXPECT_EQ(manager.GetResourceType("/x"), TResourceManager::kRootNode);
    EXPECT_TRUE(manager.IsMountNode("/a/b"));
    EXPECT_FALSE(manager.IsMountNode("/a/b/"));
    EXPECT_TRUE(manager.IsInsideMountedNodes("/A/*"));
    EXPECT_FALSE(manager.IsInsideMountedNodes("/Z"));
    EXPECT_TRUE(manager.IsInsideMyComputer("/my computer/x"));
    EXPECT_FALSE(manager.IsInsideMyComputer("/My Computer"));
}

TEST(Resolution, AnInvalidIdAlwaysThrows)
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

/// The indexes as they are defined, and the index under test, which must be them after each step.
struct TIndexPair
{
    TMountIndex Index;
    std::vector<std::string> Table;

    void Append(const std::string& mountPoint)
    {
        Table.push_back(mountPoint);
        Index.Add(mountPoint);
    }
    void Remove(std::size_t place)
    {
        const std::string mountPoint = Table[place];
        Table.erase(Table.begin() + static_cast<std::ptrdiff_t>(place));
        if (Index.Remove(static_cast<std::uint32_t>(place), mountPoint))
            return;
        Index.Clear();
        for (const std::string& each : Table)
            Index.Add(each);
    }
    void ExpectAsDefined() const
    {
        TMountIndex::TLengths lengths;
        TMountIndex::TIds ids;
        for (std::uint32_t i = 0; i < Table.size(); ++i) {
            lengths.emplace(Table[i].size(), i);
            ids[toupper_locale(Table[i])] = i;
        }
        EXPECT_EQ(Index.Lengths(), lengths);
        EXPECT_EQ(Index.Ids(), ids);
        for (const auto& [normalId, place] : ids)
            EXPECT_EQ(Index.Find(normalId), place) << normalId;
    }
};

/// Few enough to meet each other: in any case, nested, shadowed, equal.
class TRandomIds
{
public:
    std::size_t Below(std::size_t limit) { return m_random() % limit; }
    std::string operator()()
    {
        constexpr const char* kParts[] = {"/a", "/A", "/ax", "/b", "/B", "/\xFF", "/A longer part"};
        std::string id;
        for (auto i = Below(6); i > 0; --i)
            id += kParts[Below(std::size(kParts))];
        return id + (Below(4) == 0 ? "/" : "");
    }

private:
    std::minstd_rand m_random;
};

std::string RootFolders(const TResourceManager::TMountNode& root)
{
    std::string found;
    for (const auto& [normalId, folder] : dynamic_cast<const TRootMountNode&>(root).Folders().All())
        found += normalId + " is " + folder.Name + "\n";
    return found;
}

TEST(Resolution, EqualsThePlainSearchAfterEachMountAndUnmount)
{
    TRandomIds randomId;
    for (int round = 0; round < 100; ++round) {
        TResourceManager manager;
        TIndexPair pair;
        for (int step = 0; step < 30; ++step) {
            std::string changed = randomId();
            const auto root = randomId.Below(4) == 0 && !manager.MountNodes().empty()
                                  ? manager.MountNodes().back()
                                  : nullptr;
            const std::string before = root ? RootFolders(*root) : "";
            if (randomId.Below(3) > 0) {
                Thrown([&] { manager.MountFileNodeE(changed, "/tmp", false); }); // some are there
                pair.Append(changed);
            } else if (!pair.Table.empty()) {
                const std::size_t place = randomId.Below(pair.Table.size());
                changed = pair.Table[place];
                Thrown([&] { manager.UnmountNodeE(changed, false); });
                pair.Remove(place);
            }
            pair.ExpectAsDefined();
            EXPECT_EQ(root ? RootFolders(*root) : "", before) << "one that is held never changes";
            if (manager.MountNodes().empty())
                continue;
            EXPECT_EQ(RootFolders(*manager.MountNodes().back()),
                      RootFolders(TRootMountNode(manager.MountNodes())));
            for (int i = 0; i < 20; ++i) {
                const std::string id = randomId();
                ASSERT_EQ(manager.GetNode4Id(id, false, true, i % 2 != 0),
                          PlainVisit(manager, id, i % 2 != 0))
                    << id;
            }
            ASSERT_FALSE(testing::Test::HasFailure()) << "after " << changed;
        }
    }
}
} // namespace
