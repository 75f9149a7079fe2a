#include "profiles/ProfileFile.h"

#include <algorithm>
#include <cassert>
#include <memory>
#include <vector>

#include "QvStd/Message.h"
#include "QvStd/Strings.h"
#include "QvStd/XIniReader.h"
#include "QvStd/XIniWriter.h"

namespace
{
using Kind = TQvXIniEntry::Kind;
using TNode = TQvResourceProfile::TNode;
using TEntry = std::unique_ptr<TQvXIniEntry>;
using TEntries = std::vector<TEntry>;

constexpr char kProfileSection[] = "profile";
constexpr char kMountSection[] = "mount";

const TQvXIniEntry* FindElement(const TQvXIniEntry& section, const std::string& name)
{
    const auto found = std::find_if(
        section.Children.begin(), section.Children.end(),
        [&name](const TEntry& child) { return child->Type != Kind::Other && child->Name == name; });
    return found != section.Children.end() ? found->get() : nullptr;
}

/// The upper-cased name of a mount section that is complete; "" for any other entry, which stays
/// unchanged.
std::string MountName(const TQvXIniEntry& entry)
{
    if (entry.Type != Kind::Section || entry.Name != kMountSection)
        return {};
    const TQvXIniEntry* node = FindElement(entry, "node");
    const bool hasTarget = FindElement(entry, "path") || FindElement(entry, "storagegroup");
    return node != nullptr && hasTarget ? toupper_locale(node->Value) : std::string();
}

std::string PathOf(const TQvXIniEntry& mount)
{
    const TQvXIniEntry* path = FindElement(mount, "path");
    return path != nullptr ? path->Value : std::string();
}

/// A mount with the comments before it.
struct TMountBlock
{
    TEntries Comments;
    TEntry Mount; ///< null when it was dropped
};

void MoveTo(TEntries& target, TEntries& entries)
{
    std::move(entries.begin(), entries.end(), std::back_inserter(target));
    entries.clear();
}

/// The entries of section "profile", grouped so that its mounts can be replaced.
class TProfileParts
{
public:
    /// Comments wait for the entry that follows them, and belong to it.
    explicit TProfileParts(TEntries entries)
    {
        TEntries comments;
        for (TEntry& entry : entries) {
            if (entry->Type == Kind::Other) {
                comments.push_back(std::move(entry));
            } else if (!MountName(*entry).empty()) {
                m_blocks.push_back({std::move(comments), std::move(entry)});
                comments.clear();
            } else {
                // Entries that are no mounts keep their side of the mounts; between two mounts they
                // move behind them.
                TEntries& place = m_blocks.empty() ? m_before : m_behind;
                MoveTo(place, comments);
                place.push_back(std::move(entry));
            }
        }
        MoveTo(m_blocks.empty() ? m_before : m_behind, comments);
    }

    /// Appends the mount to the new ones: its old block when there is one, with its values.
    void AddMount(TEntry mount)
    {
        const auto block = FindBlock(*mount);
        if (block == m_blocks.end()) {
            m_mounts.push_back(std::move(mount));
            return;
        }
        MoveTo(m_mounts, block->Comments);
        m_mounts.push_back(Updated(std::move(block->Mount), std::move(mount)));
    }

    TEntries Take()
    {
        TEntries all = std::move(m_before);
        MoveTo(all, m_mounts);
        for (TMountBlock& block : m_blocks)
            MoveTo(all, block.Comments);
        MoveTo(all, m_behind);
        return all;
    }

private:
    using TBlocks = std::vector<TMountBlock>;

    /// Of several of one name the one with the same folder, else the last one, which counts.
    TBlocks::iterator FindBlock(const TQvXIniEntry& mount)
    {
        auto best = m_blocks.end();
        for (auto block = m_blocks.begin(); block != m_blocks.end(); ++block) {
            if (!block->Mount || MountName(*block->Mount) != MountName(mount))
                continue;
            best = block;
            if (PathOf(*block->Mount) == PathOf(mount))
                break;
        }
        return best;
    }

    static TEntry Updated(TEntry old, TEntry mount)
    {
        assert(old && mount);
        const bool isPath = FindElement(*mount, "path") != nullptr;
        // Another kind of mount: the old entries would describe what it no longer is.
        if (isPath != (FindElement(*old, "path") != nullptr))
            return mount;
        assert(FindElement(*mount, "node") != nullptr);
        const std::string name = FindElement(*mount, "node")->Value;
        // In a tree of its own, since the writer works on the first section of a name and a profile
        // has many mounts.
        const auto tree = make_var<TQvXIniTree>();
        tree->Root.Children.push_back(std::move(old));
        TQvXIniTreeWriter writer(tree);
        writer.OpenSection(0);
        if (!writer.WriteS("node", name) || (isPath && !writer.WriteS("path", PathOf(*mount))))
            writer.RaiseErrorE();
        return std::move(tree->Root.Children.front());
    }

    TEntries m_before;
    TBlocks m_blocks;
    TEntries m_mounts;
    TEntries m_behind;
};

/// The mounts are first written as a new profile, so that this and SaveE cannot differ; then each
/// takes the place of its old block, with the comments and unknown entries there.
void PutProfileE(const var_a<TQvXIniTree*>& tree, const TQvResourceProfile& profile)
{
    const auto fresh = make_var<TQvXIniTree>();
    TQvXIniTreeWriter freshWriter(fresh);
    profile.SaveE(&freshWriter);

    TQvXIniTreeWriter writer(tree);
    const int position = writer.FindF(kProfileSection, Kind::Section);
    // A file without the section has nothing that could be kept in it; its comments stay before the
    // new one.
    if (position < 0) {
        MoveTo(tree->Root.Children, fresh->Root.Children);
        return;
    }
    writer.OpenSection(position);
    if (!writer.WriteS("remote", profile.Remote ? 1 : 0))
        writer.RaiseErrorE();

    const auto section = std::find_if(
        tree->Root.Children.begin(), tree->Root.Children.end(), [](const TEntry& entry) {
            return entry->Type == Kind::Section && entry->Name == kProfileSection;
        });
    assert(section != tree->Root.Children.end());
    TProfileParts parts(std::move((*section)->Children));
    assert(!fresh->Root.Children.empty());
    for (TEntry& entry : fresh->Root.Children.front()->Children)
        if (entry->Type == Kind::Section)
            parts.AddMount(std::move(entry));
    (*section)->Children = parts.Take();
}
} // namespace

TQvProfileText::TQvProfileText(const TQvPath& file, const std::optional<std::string>& text)
    : m_exists(text.has_value())
{
    std::string error;
    m_tree = QvParseXIniTree(text.value_or(""), &error);
    if (!m_tree)
        throw QvMsg_helper("Err_XIniParse_name") << file.toSysStr() << error;
    if (m_exists) {
        TQvXIniReader reader(m_tree, file.toSysStr());
        m_content.LoadE(&reader, nullptr);
    }
}

std::string TQvProfileText::With(const TQvResourceProfile& profile)
{
    PutProfileE(m_tree, profile);
    return QvFormatXIniTree(*m_tree);
}

bool QvIsSameMount(const TNode& a, const TNode& b)
{
    return a.Kind == b.Kind && a.Name == b.Name && a.Path == b.Path;
}

/// Three-way: only differences between `before` and `own` are applied to `others`.
TQvProfileNodes QvMergeProfileNodes(const TQvProfileNodes& before, const TQvProfileNodes& own,
                                    TQvProfileNodes others)
{
    for (const auto& [key, node] : before)
        if (own.count(key) == 0)
            // Also where others have changed it since: the removal here was a decision of the user.
            others.erase(key);
    for (const auto& [key, node] : own) {
        const auto old = before.find(key);
        if (old == before.end() || !QvIsSameMount(old->second, node))
            others[key] = node;
    }
    return others;
}

TQvProfileNodes QvFollowProfileNodes(const TQvProfileNodes& own, const TQvProfileNodes& file)
{
    // The result of saving and loading the own nodes: of keys that differ only in case the last one
    // counts.
    std::map<std::string, const TQvProfileNodes::value_type*> known;
    for (const auto& entry : own)
        known[toupper_locale(entry.first)] = &entry;

    TQvProfileNodes nodes;
    for (const auto& [key, node] : file) {
        const auto found = known.find(key);
        if (found == known.end())
            nodes[key] = node;
        else if (!QvIsSameMount(found->second->second, node))
            nodes[found->second->first] = node;
    }
    for (const auto& [key, node] : own) {
        const auto found = file.find(toupper_locale(key));
        const TNode& inForce = known.at(toupper_locale(key))->second;
        // An invalid path is written and never loaded: its absence does not mean that others
        // removed it.
        const bool isUnchanged = found != file.end() && QvIsSameMount(inForce, found->second);
        if (isUnchanged || (node.Kind == kProfileNodePath && !node.Path.isPathValid()))
            nodes[key] = node;
    }
    return nodes;
}
