// Does operations, each after a mark with its name that a tracer can see: syscall_probe FOLDER.
#include <QvServices/QvServices.h>

#include <functional>
#include <string>
#include <unistd.h>

static ssize_t Mark(const std::string& name)
{
    return write(-1, name.data(), name.size());
}

static std::size_t List(const std::string& id, unsigned flags)
{
    const auto items = make_var<std::vector<TQvResFindItem>>();
    items->reserve(1000);
    ResourceManager.Find(items, id, "*", flags, nullptr);
    return items->size();
}

int main(int, char** arguments)
{
    ResourceManager.MountFileNodeE("/D", arguments[1], false);
    ResourceManager.MountFileNodeE("/O", arguments[1] + std::string("/other"), false);
    int copies = 0;
    int cleared = 0;
    const auto copyTo = [&copies](const std::string& folder) {
        return ResourceManager.CopyResource("/D/file", folder + std::to_string(++copies), nullptr);
    };
    char buffer[4096];
    TQvResAttrib attrib;
    const std::pair<const char*, std::function<bool()>> operations[] = {
        {"open",
         [&] {
             const auto stream =
                 ResourceManager.OpenResourceE("/D/file", kQvOpenRead, kQvShareAll, 0);
             return stream->Read(buffer, sizeof buffer) == sizeof buffer;
         }},
        {"exists", [] { return ResourceManager.ResourceExists("/D/file") == kResResource; }},
        {"attributes", [&] { return ResourceManager.GetResourceAttr("/D/file", &attrib); }},
        {"copy", [&] { return copyTo("/D/copy"); }},
        {"copy-between", [&] { return copyTo("/O/copy"); }},
        {"copy-extended",
         [&] {
             TResourceManager::TCopyResourceExParams params;
             params.Sources = {"/D/pair"};
             params.DestFolder = "/D/copies" + std::to_string(++copies);
             return ResourceManager.CopyResourceEx(params);
         }},
        {"list", [] { return List("/D/list", kFindResources) == 10; }},
        {"list-attributes", [] { return List("/D/list", kFindResources | kFindAttributes) == 10; }},
        {"walk", [] { return List("/D/walk", kFindFolders | kFindRecursive) == 1; }},
        {"clear",
         [&] {
             return ResourceManager.ClearFolder("/D/clear" + std::to_string(++cleared), nullptr);
         }},
    };
    for (const auto& [name, operation] : operations) {
        const bool done = operation(); // once unseen: what is made on first use is made
        Mark(name);
        if (!operation() || !done)
            return 1;
        Mark("end");
    }
}
