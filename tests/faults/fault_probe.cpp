// What the command line does together with other things. The folders are mounted at /A, /B and /C;
// a journal's records are printed; "shorten" loads above the threshold and appends, "behind"
// appends to the file "next", to which a rename without a sync has just given the journal's name.
//   fault_probe A B C sidecar SRC DST | label ID | empty ID
//   fault_probe journal FOLDER load | cut | merge | add ID | shorten ID | behind ID
//   fault_probe registry FOLDER VALUE
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include <QvServices/QvServices.h>
#include <QvStd/Registry.h>

#include "journal/ResStorage.h"

static bool RunMounted(char** arguments)
{
    const std::string operation = arguments[3];
    char** const ids = arguments + 4;
    for (int i = 0; i < 3; ++i)
        ResourceManager.MountFileNodeE(std::string("/") + "ABC"[i], arguments[i], false);
    if (operation == "sidecar")
        return ResourceManager.CopyResourceMeta(ids[0], ids[1]);
    if (operation == "empty")
        return ResourceManager.IsFolderEmpty(ids[0]);
    TQvResourceLabel label;
    return ComputeResResourceLabel(ids[0], &label, true) && WriteResResourceLabel(ids[0], label);
}

static bool RunJournal(char** arguments)
{
    const std::string operation = arguments[1];
    TResStorage storage({10000, operation == "shorten" ? 1u : 256u, "probe"});
    storage.Name = storage.Folder = arguments[0];
    TResStorage::TLocker lock;
    // In a second run it has been done.
    if (operation == "behind" &&
        std::rename((storage.Folder + "/next").c_str(), storage.DirFile().toSysStr().c_str()) !=
            0 &&
        errno != ENOENT) {
        std::perror("rename");
        return false;
    }
    if (operation == "shorten")
        lock = TStorageLocker::VCreate(storage, true);
    bool done = operation == "merge" ? storage.MergeDir()
                : operation == "cut"
                    ? storage.CutTornTail()
                    : operation == "add" || operation == "behind" || storage.LoadDir(lock);
    if (arguments[2] != nullptr)
        done = done && storage.AddResourceRecord(arguments[2], false, lock);
    for (const auto& [id, name] : storage.Dir())
        std::cout << id << '\t' << name << '\n';
    if (!done)
        std::cerr << storage.Failure().Name() << ": " << QvErrorText(storage.Failure().Error())
                  << '\n';
    return done;
}

static bool RunRegistry(char** arguments)
{
    setenv("QV_REGISTRY_DIR", arguments[0], 1);
    return TQvRegMan::writeString(TQvRegKey::User, "key", "value", arguments[1], true);
}

int main(int, char** arguments)
{
    const std::string kind = arguments[1];
    try {
        if (kind == "journal")
            return RunJournal(arguments + 2) ? 0 : 1;
        if (kind == "registry")
            return RunRegistry(arguments + 2) ? 0 : 1;
        if (RunMounted(arguments + 1))
            return 0;
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
    }
    std::cerr << TResourceManager::LastFailure().text() << '\n';
    return 1;
}
