// What the command line does together with other things: fault_probe A B C sidecar SRC DST | label
// ID | empty ID. The folders are mounted at /A, /B and /C.
#include <QvServices/QvServices.h>

#include <iostream>

static bool Run(const std::string& operation, char** ids)
{
    if (operation == "sidecar")
        return ResourceManager.CopyResourceMeta(ids[0], ids[1]);
    if (operation == "empty")
        return ResourceManager.IsFolderEmpty(ids[0]);
    TQvResourceLabel label;
    return ComputeResResourceLabel(ids[0], &label, true) && WriteResResourceLabel(ids[0], label);
}

int main(int, char** arguments)
{
    try {
        for (int i = 1; i <= 3; ++i)
            ResourceManager.MountFileNodeE(std::string("/") + "ABC"[i - 1], arguments[i], false);
        if (Run(arguments[4], arguments + 5))
            return 0;
        std::cerr << TResourceManager::LastFailure().text() << '\n';
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n' << TResourceManager::LastFailure().text() << '\n';
    }
    return 1;
}
