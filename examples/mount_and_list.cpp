// Mounts two folders and lists the tree: mount_and_list FOLDER FOLDER
#include <QvServices/QvServices.h>

#include <iomanip>
#include <iostream>

namespace
{
void List(const std::string& folder)
{
    const auto items = make_var<std::vector<TQvResFindItem>>();
    std::vector<TQvFailure> failures;
    ResourceManager.Find(items, folder, "*",
                         kFindResources | kFindFolders | kFindRecursive | kFindAttributes, nullptr,
                         &failures);
    for (const TQvResFindItem& item : *items)
        std::cout << std::setw(10) << item.Attrib.Size << "  " << item.Id
                  << (item.Attrib.Kind == kResFolder ? "/" : "") << '\n';
    // What could be read is listed all the same.
    for (const TQvFailure& failure : failures)
        std::cerr << failure.text() << '\n';
}
} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: mount_and_list FOLDER FOLDER\n";
        return 2;
    }
    Init_QvServices();
    int status = 0;
    try {
        // Not persistent: the mounts are those of this process and need no profile.
        ResourceManager.MountFileNodeE("/Left", argv[1], false);
        ResourceManager.MountFileNodeE("/Projects/Right", argv[2], false);
        List("/");
        std::cout << "/left is mounted: " << ResourceManager.IsMountNode("/left") << '\n';
    } catch (const TQvMessage& message) {
        std::cerr << message.what() << '\n';
        status = 1;
    }
    Deinit_QvServices();
    return status;
}
