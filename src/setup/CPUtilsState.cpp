#include <algorithm>
#include <cassert>
#include <unordered_set>

#include "QvStd/FileChange.h"
#include "QvStd/Files.h"
#include "QvStd/Log.h"
#include "QvStd/Message.h"
#include "QvStd/Strings.h"
#include "QvStd/XIniReader.h"
#include "QvStd/XIniWriter.h"
#include "module/ModuleInitializer.h"
#include "profiles/VarFolderLock.h"
#include "setup/CPUtils.h"
#include "setup/VarFolderLayout.h"

namespace
{
using TCPState = TQvCPUtils::TCPState;
using TNames = std::unordered_set<std::string>;

constexpr int kStepLogLevel = 3;
constexpr int kDetailLogLevel = 5;
constexpr int kStorageGroupLogLevel = 3;
constexpr char kFirstProfile[] = "LocalProfile";

/// Names of the folders in the profiles folder, also those that are no profile name. Throws when it
/// cannot be read.
std::vector<std::string> FindFoldersE(const TQvPath& folder)
{
    std::vector<std::string> names;
    // Without a valid folder the working directory would be searched.
    if (!folder.isPathValid())
        return names;
    // Links to folders count as folders, too; a file of that name, such as the list, is no profile.
    for (const std::string& entry : QvFindFiles(folder / kProfilesFolder, "*.*", true, false)) {
        if (QvIsThereE(entry, true))
            names.push_back(entry.substr(entry.rfind('/') + 1));
    }
    return names;
}

bool HasNoProfileE(const TQvPath& folder)
{
    const std::vector<std::string> names = FindFoldersE(folder);
    return std::none_of(names.begin(), names.end(), [&folder](const std::string& name) {
        return QvHoldsProfileE(folder, name);
    });
}

// Loading

/// Copies one published profile and marks the copy as remote. The file is written once, with the
/// mark, so that no process sees a copy without it, and only when it changes. False when the
/// repository has no readable file of it: the local file stays then.
bool CopyProfileE(const TQvPath& repository, const TQvPath& varFolder, const std::string& name)
{
    assert(QvIsProfileName(name)); // else a file elsewhere would be written
    // Parsed, not copied as bytes: a file that is just being published, or is damaged, must not
    // replace a good local one.
    const var_a<TQvXIniTree*> tree = ReadQvXIniTree(QvProfileFile(repository, name));
    if (!tree)
        return false;
    TQvXIniTreeWriter writer(tree);
    if (!writer.OpenSection(writer.FindCreateF("profile", TQvXIniEntry::Kind::Section)) ||
        !writer.Write(writer.FindCreateF("remote"), 1))
        writer.RaiseErrorE();

    const TQvPath copy = QvProfileFile(varFolder, name);
    const std::string text = QvFormatXIniTree(*tree);
    std::string old;
    // Compared without the lock, so that a program that only reads the profiles needs no right to
    // write.
    if (!QvReadWholeFile(copy.toSysStr(), &old) || old != text) {
        const TQvVarFolderLock lock(varFolder);
        QvForceDirectoriesE(varFolder / kProfilesFolder / name);
        QvChangeFileE(copy, [&text](const auto&) { return text; });
    }
    return true;
}

void CopyPublishedProfilesE(TCPState& state, TQvProgress& progress, TNames& copied)
{
    // The repository is a setting of the configured VAR folder, so the state is about that folder
    // from here on.
    state.VarFolder = QvVarFolderSettingE();
    const TQvPath repository = TQvCPUtils::GetRepositoryFolder(state.VarFolder, false);
    // A server that cannot be reached now is no failure: the local copies stay in use.
    if (!repository.isFolder())
        return;
    const auto reader = GetXIniReader(repository / kProfilesFolder / kProfileListFile);
    const TQvXIniSection list = reader->EnterSectionSE(kProfileListSection);
    // No width: copying does not advance the bar.
    TQvProgressVar step = progress.SubProgress(0.0, 0.0, kStepLogLevel, kStepLogLevel);
    step.SetMessage(QvResourceString("global.Prg_CopyRemoteProfiles"));
    step.Start();
    const int count = reader->Count();
    for (int i = 0; i < count; ++i) {
        const std::string name = reader->Read(i, std::string());
        if (QvIsProfileName(name) && CopyProfileE(repository, state.VarFolder, name))
            // Names of profiles ignore case, and the folder on the disk may be spelled differently.
            copied.insert(tolower_locale(name));
        step.Report((i + 1.0) / count);
    }
    reader->ExitSection(list);
    step.Stop();
}

/// A failed copy ends the copying and never the loading; a user break here takes effect when the
/// first profile is read.
TNames CopyPublishedProfiles(TCPState& state, TQvProgress& progress)
{
    TNames copied;
    try {
        CopyPublishedProfilesE(state, progress, copied);
    } catch (...) {
    }
    return copied;
}

/// Loading continues without a file that cannot be read, and records that the file exists.
void NoteFailure(TCPState& state, const std::exception& failure)
{
    if (state.Loaded.Failure.empty())
        state.Loaded.Failure = failure.what();
}

/// "" when there is none, or no readable policy file.
std::string ReadCurrentProfile(TCPState& state)
{
    if (!state.VarFolder.isPathValid())
        return std::string();
    try {
        return QvPolicyProfile(QvReadPolicyE(state.VarFolder / kPolicyFile));
    } catch (const std::exception& unread) {
        NoteFailure(state, unread);
        // Saving is refused then: it would replace the current profile that could not be read.
        state.Loaded.IsPolicyUnread = true;
        return std::string();
    }
}

/// The names of the profiles. The state stays marked as not listed on a failure.
std::vector<std::string> FindProfiles(TCPState& state)
{
    std::vector<std::string> names;
    try {
        for (const std::string& name : FindFoldersE(state.VarFolder)) {
            if (!QvIsProfileName(name))
                continue;
            // Also a folder without a profile: saving may remove only what this state has seen.
            state.Loaded.Folders[name];
            if (QvHoldsProfileE(state.VarFolder, name))
                names.push_back(name);
        }
        // Last, after everything that may throw.
        state.Listed = true;
    } catch (const std::exception& unread) {
        NoteFailure(state, unread);
    }
    return names;
}

void Empty(TCPState& state)
{
    state.CurrentProfile.clear();
    state.SelectedProfile.clear();
    state.ProfileIndex.clear();
    state.ProfilesById.clear();
    state.ProfileIds.clear();
    state.Profiles.clear();
    state.Loaded = {};
    state.Listed = false;
}

/// The reader is made first: a file that cannot be read must not start a step that is never
/// finished.
TQvResourceProfile LoadProfileE(const TCPState& state, const std::string& name,
                                TQvProgressVar& progress)
{
    TQvResourceProfile profile;
    profile.Name = name;
    profile.FreeSpaceMap = state.FreeSpaceMap;
    const auto reader = GetXIniReader(QvProfileFile(state.VarFolder, name));
    TQvProgressVar nodes = progress.SubProgress(0.0, 1.0, kDetailLogLevel, kStepLogLevel);
    nodes.Start();
    profile.LoadE(reader.get(), nodes.Handler());
    nodes.Stop();
    return profile;
}

/// Appends the profile, unless it cannot be read. Throws only when the user cancels.
void LoadProfile(TCPState& state, const std::string& name, bool remote, TQvProgress& progress,
                 TQvProgressVar step)
{
    try {
        step.SetMessage(
            (TQvMessage(QvResourceString("global.Prg_ReadProfile_name")) << name).what());
        step.Start();
        TQvResourceProfile profile = LoadProfileE(state, name, step);
        step.Report(1.0);
        step.Stop();
        // As it is in the file, before the origin is set: saving compares with this.
        state.Loaded.Folders[name] = profile;
        profile.Remote = remote; // the origin decides, not the file
        state.Profiles.push_back(std::move(profile));
    } catch (const TQvUserBreak&) {
        throw;
    } catch (const std::exception& unread) {
        if (progress.UserBreak())
            throw;
        NoteFailure(state, unread);
    }
}

void LoadProfilesE(TCPState& state, const TNames& copied, TQvProgress& progress)
{
    const std::vector<std::string> names = FindProfiles(state);
    const double count = static_cast<double>(names.size());
    double done = 0;
    state.Profiles.reserve(names.size());
    try {
        for (const std::string& name : names) {
            // Remote are the profiles that the repository publishes now: all others count as local.
            const bool remote = state.Remote || copied.count(tolower_locale(name)) != 0;
            LoadProfile(state, name, remote, progress,
                        progress.SubProgress(done / count, (done + 1) / count, kStepLogLevel,
                                             kStepLogLevel));
            ++done;
        }
    } catch (...) {
        Empty(state);
        throw;
    }
}
} // namespace

TQvCPUtils::TCPState::TCPState() : FreeSpaceMap(TQvFreeSpaceMap::VCreate()) {}

TQvCPUtils::TCPState::~TCPState() = default;

void TQvCPUtils::TCPState::BuildIndex()
{
    ProfileIndex.clear();
    for (TQvResourceProfile& profile : Profiles)
        ProfileIndex[toupper_locale(profile.Name)] = &profile;
}

TQvResourceProfile* TQvCPUtils::TCPState::FindProfile(const std::string& name) const
{
    const auto found = ProfileIndex.find(toupper_locale(name));
    return found != ProfileIndex.end() ? found->second : nullptr;
}

/// Published profiles first, because the loading reads their copies. Listed is true only when all
/// folders were listed, so that a state that missed some cannot be saved.
void TQvCPUtils::ReloadState(TCPState& state, TQvProgressHandler* handler)
{
    TQvProgress progress(handler);
    progress.Start();
    TNames copied;
    if (!state.Remote)
        copied = CopyPublishedProfiles(state, progress);
    Empty(state);
    state.FreeSpaceMap->Clear();
    state.Loaded.VarFolder = state.VarFolder;
    if (!state.Remote)
        state.CurrentProfile = ReadCurrentProfile(state);
    state.Loaded.PolicyProfile = state.CurrentProfile;
    LoadProfilesE(state, copied, progress);
    state.BuildIndex();
    // The policy may name a profile that was removed, or that could not be read.
    if (state.FindProfile(state.CurrentProfile) == nullptr)
        state.CurrentProfile.clear();
    state.Loaded.CurrentProfile = state.CurrentProfile;
    state.SelectedProfile = state.CurrentProfile;
    if (state.SelectedProfile.empty() && !state.Profiles.empty())
        state.SelectedProfile = state.Profiles.front().Name;
}

void TQvCPUtils::CreateProfileState(const std::string& name, TCPState& state)
{
    TQvResourceProfile profile;
    profile.Name = name;
    profile.Remote = state.Remote;
    state.Profiles.push_back(std::move(profile));
}

void TQvCPUtils::RefreshProfilesState(TCPState& state)
{
    state.BuildIndex();
}

void TQvCPUtils::AddNodeState(const TQvPath& folder, const std::string& profileName,
                              TCPState& state)
{
    TQvResourceProfile* profile = state.FindProfile(profileName);
    if (profile == nullptr)
        return;
    TQvResourceProfile::TNode node;
    node.Kind = kProfileNodePath;
    node.Name = '/' + folder.excludeSlash().fileName();
    node.Path = folder;
    profile->Nodes[toupper_locale(node.Name)] = std::move(node);
    // The folder may be on a volume that the profile had no mount on.
    RefreshProfileFreeSpaceState(profileName, state);
}

bool TQvCPUtils::RefreshProfileFreeSpaceState(const std::string& profileName, TCPState& state)
{
    TQvResourceProfile* profile = state.FindProfile(profileName);
    if (profile == nullptr)
        return false;
    TNames serials;
    for (auto& [key, node] : profile->Nodes) {
        if (node.Kind == kProfileNodePath) {
            node.VolumeSerial = state.FreeSpaceMap->GetVolumeSerial(node.Path);
            serials.insert(node.VolumeSerial);
        } else {
            QvLogWriteWarning(TQvMessage(QvResourceString("global.WarnStorageGroupNotSupported"))
                                  << node.Name,
                              kStorageGroupLogLevel, 0);
        }
    }
    profile->TotalFreeSpace = state.FreeSpaceMap->GetTotalFreeSpace(serials);
    return true;
}

/// Checked without the lock, so that a set-up that is complete does not wait for it, and again
/// under it.
void TQvCPUtils::CreateProfileNode(const TQvPath& folder, TQvProgressHandler* handler)
{
    TCPState state;
    TQvProgress progress(handler);
    progress.SetMessage(QvResourceString("global.Prg_ReadConfig"));
    try {
        ReloadState(state, handler);
        // A profile that is there and cannot be read was left out: saving would remove it.
        if (!HasNoProfileE(state.VarFolder))
            return;
    } catch (...) {
        return;
    }
    if (progress.UserBreak())
        return;
    const TQvVarFolderLock lock(state.VarFolder);
    if (!HasNoProfileE(state.VarFolder)) // another process was faster
        return;
    CreateProfileState(kFirstProfile, state);
    state.BuildIndex();
    state.CurrentProfile = kFirstProfile;
    AddNodeState(folder, kFirstProfile, state);
    SaveState(state);
}
