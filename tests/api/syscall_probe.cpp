// Does one operation between two marks that a tracer can see: syscall_probe FOLDER OPERATION.
#include <QvServices/QvServices.h>

#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <unistd.h>

int main(int count, char** arguments)
{
    if (count != 3)
        return 2;
    ResourceManager.MountFileNodeE("/D", arguments[1], false);
    char buffer[4096];
    TQvResAttrib attrib;
    const auto list = [](unsigned flags) {
        const auto items = make_var<std::vector<TQvResFindItem>>();
        items->reserve(1000);
        ResourceManager.Find(items, "/D/list", "*", flags, nullptr);
        return items->size() == 10;
    };
    const std::map<std::string, std::function<bool()>> operations = {
        {"open",
         [&] {
             const auto stream = ResourceManager.OpenResourceE("/D/file", kQvOpenRead, kQvShareAll, 0);
             return stream->Read(buffer, sizeof buffer) == sizeof buffer;
         }},
        {"exists", [] { return ResourceManager.ResourceExists("/D/file") == kResResource; }},
        {"attributes", [&] { return ResourceManager.GetResourceAttr("/D/file", &attrib); }},
        {"list", [&] { return list(kFindResources); }},
        {"list-attributes", [&] { return list(kFindResources | kFindAttributes); }},
    };
    const auto& operation = operations.at(arguments[2]);
    if (!operation()) // once unseen: what is made on first use is made
        return 1;
    const auto mark = [] { return write(-1, "mark", 4); };
    mark();
    const bool done = operation();
    mark();
    return done ? 0 : 1;
}
