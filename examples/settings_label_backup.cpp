// Keeps settings in a resource, finds out by its label whether it has changed, and backs it up:
// settings_label_backup FOLDER
#include <QvServices/QvServices.h>

#include <iostream>

namespace
{
constexpr char kSettings[] = "/Data/settings.x-ini";

void WriteSettings(std::int32_t interval)
{
    const auto writer = GetResXIniWriterE(kSettings);
    const TQvXIniWriteSection section = writer->BeginSectionSE("sync");
    if (!writer->WriteS("server", std::string("backup.example")) ||
        !writer->WriteS("interval", interval))
        writer->RaiseErrorE();
    writer->EndSection(section);
    writer->CommitE(); // on the disk, or an exception
}

std::int32_t ReadInterval()
{
    const auto reader = GetResXIniReaderE(kSettings, nullptr);
    reader->EnterSectionSE("sync");
    return reader->Read<std::int32_t>(reader->FindF("interval"), 60);
}
} // namespace

int main(int argc, char** argv)
try {
    if (argc != 2)
        throw TQvMessage("@usage: settings_label_backup FOLDER");
    ResourceManager.MountFileNodeE("/Data", argv[1], false);
    WriteSettings(15);
    std::cout << "interval: " << ReadInterval() << '\n';

    // Size, time and checksum of the content as it is now, stored in the sidecar.
    TQvResourceLabel label;
    if (!GetResResourceLabel(kSettings, &label, false))
        throw TQvMessage("@%1%") << TResourceManager::LastFailure().text();
    WriteSettings(20);
    std::cout << "changed: " << !WeakCheckResResourceLabel(label, kSettings) << '\n';

    // Moves it to /Data/backup/settings.<time>.x-ini and keeps the three latest.
    BackupResource(kSettings, 3);
    if (TResourceManager::LastFailure().Error != 0)
        throw TQvMessage("@%1%") << TResourceManager::LastFailure().text();
    const auto backups = make_var<std::vector<TQvResFindItem>>();
    ResourceManager.Find(backups, "/Data/backup", "settings.*", kFindResources, nullptr);
    std::cout << "backups: " << backups->size() << '\n';
    return 0;
} catch (const TQvMessage& message) {
    std::cerr << message.what() << '\n';
    return 1;
}
