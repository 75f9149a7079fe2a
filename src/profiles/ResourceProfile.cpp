#include "profiles/ResourceProfile.h"

#include "QvStd/Log.h"
#include "QvStd/Message.h"
#include "QvStd/Strings.h"
#include "module/ModuleInitializer.h"

namespace
{
constexpr int kReadPathLogLevel = 3;

void CheckWritten(TQvXIniWriter* writer, bool written)
{
    if (!written)
        writer->RaiseErrorE();
}
} // namespace

/// The map is shared, not moved: the other profile can be loaded again and needs it.
TQvResourceProfile& TQvResourceProfile::operator=(TQvResourceProfile&& other) noexcept
{
    Name = std::move(other.Name);
    Remote = other.Remote;
    FreeSpaceIncomplete = other.FreeSpaceIncomplete;
    TotalFreeSpace = other.TotalFreeSpace;
    Nodes = std::move(other.Nodes);
    FreeSpaceMap = other.FreeSpaceMap;
    return *this;
}

/// Emptied first: after a failure no mount of an earlier profile may remain.
void TQvResourceProfile::LoadE(TQvXIniReader* reader, TQvProgressHandler* progressHandler)
{
    TQvProgress progress(progressHandler);
    TotalFreeSpace = 0;
    FreeSpaceIncomplete = false;
    Nodes.clear();

    const TQvXIniSection profile = reader->EnterSectionSE("profile");
    Remote = reader->ReadE<std::int32_t>(reader->FindFE("remote")) != 0;

    // Only to report progress: the loop below ends by itself.
    const double count = reader->Count("mount");
    std::unordered_set<std::string> serials;
    int position = -1;
    for (int i = 0; reader->FindFP("mount", &position); ++i) {
        const TQvXIniSection mount = reader->EnterSection(position);
        if (mount != nullptr)
            LoadNode(reader, progress, i / count, serials);
        reader->ExitSection(mount);
        progress.Report((i + 1) / count);
    }
    reader->ExitSection(profile);
    if (FreeSpaceMap)
        TotalFreeSpace = FreeSpaceMap->GetTotalFreeSpace(serials);
}

/// A bad mount is dropped without an error, so that it does not hide the others.
void TQvResourceProfile::LoadNode(TQvXIniReader* reader, TQvProgress& progress, double position,
                                  std::unordered_set<std::string>& serials)
{
    TNode node;
    node.Name = reader->Read<std::string>(reader->FindF("node"), std::string());
    if (node.Name.empty())
        return;
    const int path = reader->FindF("path");
    if (path >= 0) {
        node.Kind = kProfileNodePath;
        node.Path = reader->Read<TQvPath>(path, TQvPath());
        // The volume is read before the path is checked: the volume of an invalid path counts, too.
        if (FreeSpaceMap)
            ReadVolume(node, progress, position, serials);
    } else if (reader->FindF("storagegroup") >= 0) {
        node.Kind = kProfileNodeStorageGroup;
        FreeSpaceIncomplete = true;
    }
    if (node.Kind == kProfileNodeStorageGroup ||
        (node.Kind == kProfileNodePath && node.Path.isPathValid()))
        Nodes[toupper_locale(node.Name)] = std::move(node);
}

/// May be slow for a network folder: reported before, so that the user sees which one and can
/// cancel.
void TQvResourceProfile::ReadVolume(TNode& node, TQvProgress& progress, double position,
                                    std::unordered_set<std::string>& serials)
{
    if (progress.Handler() != nullptr) {
        QvLogWriteInfo(TQvMessage(QvResourceString("global.Msg_ReadProfileNodePath_path"))
                           << node.Path.toSysStr(),
                       kReadPathLogLevel, 0);
        progress.Report(position);
    }
    node.VolumeSerial = FreeSpaceMap->GetVolumeSerial(node.Path);
    if (node.VolumeSerial == TQvFreeSpaceMap::InvalidVolSerial)
        FreeSpaceIncomplete = true;
    else
        // By volume: two mounts on one disk share its free space.
        serials.insert(node.VolumeSerial);
}

void TQvResourceProfile::SaveE(TQvXIniWriter* writer) const
{
    const TQvXIniWriteSection profile = writer->BeginSectionSE("profile");
    CheckWritten(writer, writer->WriteS("remote", Remote ? 1 : 0));
    for (const auto& [key, node] : Nodes) {
        const TQvXIniWriteSection mount = writer->BeginSectionSE("mount");
        CheckWritten(writer, writer->WriteS("node", node.Name));
        if (node.Kind == kProfileNodePath)
            CheckWritten(writer, writer->WriteS("path", node.Path));
        else
            writer->EndSection(writer->BeginSectionSE("storagegroup"));
        writer->EndSection(mount);
    }
    writer->EndSection(profile);
}
