// Saving the state of all profiles.
#include <algorithm>
#include <cassert>
#include <iterator>
#include <memory>

#include "QvStd/FileChange.h"
#include "QvStd/Files.h"
#include "QvStd/Log.h"
#include "QvStd/Message.h"
#include "QvStd/Strings.h"
#include "QvStd/XIniReader.h"
#include "QvStd/XIniWriter.h"
#include "module/ModuleInitializer.h"
#include "profiles/ProfileFile.h"
#include "profiles/VarFolderLock.h"
#include "setup/CPUtils.h"
#include "setup/VarFolderLayout.h"

namespace
{
using TCPState = TQvCPUtils::TCPState;

constexpr int kRemoveLogLevel = 6;

const std::string kBadNameText =
    "@static void TQvCPUtils::SaveState(TQvCPUtils::TCPState &): Invalid profile name ";

void CheckSavableE(const TCPState& state)
{
    if (!state.VarFolder.isPathValid())
        throw TQvMessage(QvResourceString("global.MustSetVarFolder"));
    if (!state.Listed)
        throw TQvMessage(
            QvFolderMessage("global.ErrProfilesUnread", state.VarFolder / kProfilesFolder));
    // A current profile that could not be read must not be overwritten.
    if (!state.Remote && state.Loaded.IsPolicyUnread)
        throw TQvMessage("@%1%") << state.Loaded.Failure;
    for (const TQvResourceProfile& profile : state.Profiles) {
        if (!QvIsProfileName(profile.Name))
            throw TQvMessage(kBadNameText + profile.Name);
    }
}

bool HaveSameMounts(const TQvProfileNodes& a, const TQvProfileNodes& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& one, const auto& two) {
        return one.first == two.first && QvIsSameMount(one.second, two.second);
    });
}

/// The names in the list of profiles; none when it is no readable list.
std::vector<std::string> NamesOf(const std::string& list)
{
    std::vector<std::string> names;
    const var_a<TQvXIniTree*> tree = QvParseXIniTree(list, nullptr);
    if (!tree)
        return names;
    TQvXIniReader reader(tree, kProfileListFile);
    const TQvXIniSection section = reader.EnterSectionS(kProfileListSection);
    for (int i = 0; section != nullptr && reader.Exists(i); ++i)
        names.push_back(reader.Read(i, std::string()));
    return names;
}

std::string ListOf(const std::vector<std::string>& names)
{
    TQvXIniTree tree;
    const auto append = [](TQvXIniEntry& section, TQvXIniEntry::Kind kind,
                           const std::string& name) {
        section.Children.push_back(std::make_unique<TQvXIniEntry>());
        section.Children.back()->Type = kind;
        section.Children.back()->Name = name;
        return section.Children.back().get();
    };
    TQvXIniEntry* list = append(tree.Root, TQvXIniEntry::Kind::Section, kProfileListSection);
    for (const std::string& name : names)
        append(*list, TQvXIniEntry::Kind::Key, kProfileListKey)->Value = name;
    return QvFormatXIniTree(tree);
}

/// Writes the differences between a state and what it was loaded from, merged with changes of
/// others on the disk. Needs the lock of the VAR folder.
class TStateSaver
{
public:
    explicit TStateSaver(TCPState& state)
        : m_state(state), m_isElsewhere(state.Loaded.VarFolder != state.VarFolder)
    {
        // The state was not loaded from this folder: nothing is removed here, everything is
        // written.
        if (m_isElsewhere)
            m_state.Loaded = {};
    }

    void SaveE()
    {
        RemoveDroppedProfiles();
        QvForceDirectoriesE(m_state.VarFolder / kProfilesFolder);
        for (const TQvResourceProfile& profile : m_state.Profiles) {
            // The copy of a published profile is never written back.
            if (m_state.Remote || !profile.Remote)
                SaveProfileE(profile);
        }
        SaveListE();
        if (!m_state.Remote)
            SaveCurrentProfileE();
        RememberProfiles();
    }

private:
    bool IsInState(const std::string& name) const { return m_state.FindProfile(name) != nullptr; }

    bool WasSeen(const std::string& name) const { return m_state.Loaded.Folders.count(name) != 0; }

    /// Null when it was not loaded.
    const TQvResourceProfile* Loaded(const std::string& name) const
    {
        const auto folder = m_state.Loaded.Folders.find(name);
        return folder != m_state.Loaded.Folders.end() && folder->second ? &*folder->second
                                                                        : nullptr;
    }

    /// Whether a folder in which no profile could be read has one now.
    bool HasBecomeProfile(const std::string& name) const
    {
        try {
            TQvResourceProfile().LoadE(GetXIniReader(QvProfileFile(m_state.VarFolder, name)).get(),
                                       nullptr);
            return true;
        } catch (const TQvMessage&) {
            return false;
        }
    }

    /// A folder that cannot be removed appears as a profile again: it is logged, and the rest is
    /// saved.
    void RemoveDroppedProfiles() const
    {
        assert(m_state.Listed); // else profiles that were not loaded would be removed
        for (const auto& [name, loaded] : m_state.Loaded.Folders) {
            assert(QvIsProfileName(name)); // else another folder would be removed
            const TQvPath folder = m_state.VarFolder / kProfilesFolder / name;
            std::string error;
            if (!IsInState(name) && (loaded || !HasBecomeProfile(name)) &&
                !QvFileDirExists(folder, nullptr).IsNothing() &&
                !QvRemoveDirectoryEx(folder, true, true, &error))
                QvLogWriteWarning(TQvMessage("@%1%") << error, kRemoveLogLevel, 0);
        }
    }

    void SaveProfileE(const TQvResourceProfile& profile) const
    {
        assert(QvIsProfileName(profile.Name)); // else a file elsewhere would be written
        const TQvResourceProfile* const loaded = Loaded(profile.Name);
        if (loaded != nullptr && loaded->Remote == profile.Remote &&
            HaveSameMounts(loaded->Nodes, profile.Nodes))
            return;
        QvForceDirectoriesE(m_state.VarFolder / kProfilesFolder / profile.Name);
        const TQvPath path = QvProfileFile(m_state.VarFolder, profile.Name);
        // Nothing of the file is kept in another folder, or when the file could not be read at the
        // loading.
        const bool isWhole = m_isElsewhere || (loaded == nullptr && WasSeen(profile.Name) &&
                                               !HasBecomeProfile(profile.Name));
        QvChangeFileE(path, [&](const std::optional<std::string>& text) {
            TQvProfileText file(path, isWhole ? std::nullopt : text);
            TQvResourceProfile merged = profile;
            if (file.Exists())
                merged.Nodes =
                    QvMergeProfileNodes(loaded != nullptr ? loaded->Nodes : TQvProfileNodes(),
                                        profile.Nodes, file.Content().Nodes);
            return file.With(merged);
        });
    }

    /// The profiles of the state and those that others have added; not those that others have
    /// removed.
    void SaveListE() const
    {
        const TQvPath file = m_state.VarFolder / kProfilesFolder / kProfileListFile;
        QvChangeFileE(file, [this](const std::optional<std::string>& text) {
            std::vector<std::string> names;
            for (const TQvResourceProfile& profile : m_state.Profiles) {
                if (QvHoldsProfileE(m_state.VarFolder, profile.Name))
                    names.push_back(profile.Name);
            }
            for (const std::string& name : NamesOf(text.value_or(""))) {
                if (QvIsProfileName(name) && !IsInState(name) &&
                    QvHoldsProfileE(m_state.VarFolder, name))
                    names.push_back(name);
            }
            return ListOf(names);
        });
    }

    void SaveCurrentProfileE() const
    {
        TCPState::TLoaded& loaded = m_state.Loaded;
        const TQvPath file = m_state.VarFolder / kPolicyFile;
        bool haveOthersChosen = false;
        QvChangeFileE(file, [&](const std::optional<std::string>& text) {
            const var_a<TQvXIniTree*> tree = QvParsePolicyE(file, text);
            haveOthersChosen = QvPolicyProfile(tree) != loaded.PolicyProfile &&
                               m_state.CurrentProfile == loaded.CurrentProfile;
            TQvXIniTreeWriter policy(tree);
            if (!haveOthersChosen &&
                !policy.Write(policy.FindCreateF(kCurrentProfileKey), m_state.CurrentProfile))
                policy.RaiseErrorE();
            return QvFormatXIniTree(*tree);
        });
        if (!haveOthersChosen)
            loaded.PolicyProfile = loaded.CurrentProfile = m_state.CurrentProfile;
    }

    /// Additions by others are not recorded in the state, so that its next saving does not remove
    /// them.
    void RememberProfiles() const
    {
        TCPState::TLoaded& loaded = m_state.Loaded;
        loaded.VarFolder = m_state.VarFolder;
        for (auto folder = loaded.Folders.begin(); folder != loaded.Folders.end();)
            folder = IsInState(folder->first) ? std::next(folder) : loaded.Folders.erase(folder);
        for (const TQvResourceProfile& profile : m_state.Profiles) {
            if (m_state.Remote || !profile.Remote)
                loaded.Folders[profile.Name] = profile;
        }
    }

    TCPState& m_state;
    const bool m_isElsewhere;
};
} // namespace

void TQvCPUtils::SaveState(TCPState& state)
{
    // All checks come before the first profile is changed.
    CheckSavableE(state);
    const TQvVarFolderLock lock(state.VarFolder);
    if (!state.Remote)
        QvReadPolicyE(state.VarFolder / kPolicyFile);
    TStateSaver(state).SaveE();
}
