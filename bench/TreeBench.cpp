// The tree beside raw system calls on the same files.
#include <QvServices/QvServices.h>

#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "BenchFolder.h"
#include "Ratio.h"

namespace
{
namespace fs = std::filesystem;
using bench::Require;

constexpr int kBatch = 1000; // small operations measured together

/// The files that all benchmarks work on, in a folder of their own.
class TFiles : public bench::TFolder
{
public:
    void Write(const std::string& name, std::size_t size) const
    {
        std::ofstream file(*this / name, std::ios::binary);
        file << std::string(size, 'x');
        Require(static_cast<bool>(file.flush()), "write");
    }
    /// `count` empty files with names as in life, in a folder that is made on first use.
    std::string RealFolder(const std::string& name, int count) const;
    /// `count` files of `size` bytes in a folder, made on first use.
    std::string Folder(const std::string& name, int count, std::size_t size = 0) const
    {
        const std::string path = *this / name;
        if (fs::create_directory(path))
            for (int i = 0; i < count; ++i)
                Write(name + "/file-" + std::to_string(i) + (i % 2 == 0 ? ".txt" : ".dat"), size);
        return path;
    }
};

std::string RealName(int i);

std::string TFiles::RealFolder(const std::string& name, int count) const
{
    const std::string path = *this / name;
    if (fs::create_directory(path))
        for (int i = 0; i < count; ++i)
            Write(name + "/" + RealName(i), 0);
    return path;
}

const TFiles& Files()
{
    static const TFiles files;
    return files;
}

/// A manager with `mounts` mount points; "/Bench/Mount7" leads to the benchmark's files.
TResourceManager& Manager(int mounts = 16)
{
    static std::map<int, TResourceManager> managers;
    TResourceManager& manager = managers[mounts];
    while (static_cast<int>(manager.MountNodes().size()) <= mounts) {
        const auto number = std::max<std::size_t>(manager.MountNodes().size(), 1);
        manager.MountFileNodeE("/Bench/Mount" + std::to_string(number), Files() / "", false);
    }
    return manager;
}

void OpenReadClose(benchmark::State& state)
{
    Files().Write("4k", 4096);
    const std::string path = Files() / "4k";
    const std::string id = "/Bench/Mount7/4k";
    TResourceManager& manager = Manager();
    char buffer[4096];
    bench::Compare(
        state, 1.4,
        [&] {
            for (int i = 0; i < kBatch; ++i) {
                const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
                Require(read(file, buffer, sizeof buffer) == sizeof buffer, "read");
                close(file);
            }
        },
        [&] {
            for (int i = 0; i < kBatch; ++i) {
                const auto stream = manager.OpenResourceE(id, kQvOpenRead, kQvShareAll, 0);
                Require(stream->Read(buffer, sizeof buffer) == sizeof buffer, "Read");
            }
        });
}
BENCHMARK(OpenReadClose)->UseManualTime();

void Exists(benchmark::State& state)
{
    Files().Write("4k", 4096);
    const std::string path = Files() / "4k";
    const std::string id = "/Bench/Mount7/4k";
    TResourceManager& manager = Manager();
    bench::Compare(
        state, 1.4,
        [&] {
            struct stat status;
            for (int i = 0; i < kBatch; ++i)
                Require(stat(path.c_str(), &status) == 0, "stat");
        },
        [&] {
            for (int i = 0; i < kBatch; ++i)
                Require(manager.ResourceExists(id) == kResResource, "ResourceExists");
        });
}
BENCHMARK(Exists)->UseManualTime();

void Attributes(benchmark::State& state)
{
    Files().Write("4k", 4096);
    const std::string path = Files() / "4k";
    const std::string id = "/Bench/Mount7/4k";
    TResourceManager& manager = Manager();
    bench::Compare(
        state, 2.0,
        [&] {
            struct statx status;
            for (int i = 0; i < kBatch; ++i)
                Require(
                    statx(AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS | STATX_BTIME, &status) == 0,
                    "statx");
        },
        [&] {
            TQvResAttrib attrib;
            for (int i = 0; i < kBatch; ++i)
                Require(manager.GetResourceAttr(id, &attrib), "GetResourceAttr");
        });
}
BENCHMARK(Attributes)->UseManualTime();

void SmallReads(benchmark::State& state)
{
    Files().Write("1m", 1 << 20);
    const auto stream = Manager().OpenResourceE("/Bench/Mount7/1m", kQvOpenRead, kQvShareAll, 0);
    char buffer[16];
    for ([[maybe_unused]] auto iteration : state)
        if (stream->Read(buffer, sizeof buffer) != sizeof buffer)
            stream->setPosition(0);
    state.counters["target_ns"] = 8;
}
BENCHMARK(SmallReads);

/// A name as people and programs give them; some are no ASCII.
std::string RealName(int i)
{
    static const char* const kKinds[] = {".txt", ".TXT", ".jpeg", ".tar.gz", ".docx", ".dat"};
    static const char* const kStems[] = {"Quarterly Report ", "IMG_", "m\u00fcller-entwurf-",
                                         "backup.2024-03-", "readme_"};
    return kStems[i % 5] + std::to_string(100000 + i) + kKinds[i % 6];
}

/// Whether a mask "*" or "*SUFFIX" without regard to case, nothing else, takes a name.
bool TakesName(std::string_view name, std::string_view suffix)
{
    return name[0] != '.' && name.size() >= suffix.size() &&
           strncasecmp(name.data() + name.size() - suffix.size(), suffix.data(), suffix.size()) ==
               0;
}

/// The bare calls: each name is looked at and nothing is kept.
void List(benchmark::State& state, const char* mask, double target)
{
    const int count = static_cast<int>(state.range(0));
    const std::string name = "list" + std::to_string(count);
    const std::string path = Files().RealFolder(name, count);
    TResourceManager& manager = Manager();
    std::size_t wanted = 0;
    bench::Compare(
        state, target,
        [&] {
            wanted = 0;
            DIR* folder = opendir(path.c_str());
            while (const dirent* entry = readdir(folder))
                wanted += TakesName(entry->d_name, mask + 1) ? 1 : 0;
            closedir(folder);
        },
        [&] {
            const auto items = make_var<std::vector<TQvResFindItem>>();
            manager.Find(items, "/Bench/Mount7/" + name, mask, kFindResources, nullptr);
            Require(items->size() == wanted, "Find");
        });
}
BENCHMARK_CAPTURE(List, all, "*", bench::kNoTarget)->Arg(10000)->Arg(100000)->UseManualTime();
BENCHMARK_CAPTURE(List, masked, "*.txt", 1.6)->Arg(10000)->Arg(100000)->UseManualTime();

void ListAttributes(benchmark::State& state, const char* mask)
{
    const std::string path = Files().RealFolder("list10000", 10000);
    TResourceManager& manager = Manager();
    std::size_t wanted = 0;
    bench::Compare(
        state, 1.4,
        [&] {
            wanted = 0;
            DIR* folder = opendir(path.c_str());
            struct statx status;
            while (const dirent* entry = readdir(folder))
                if (TakesName(entry->d_name, mask + 1) &&
                    statx(dirfd(folder), entry->d_name, 0, STATX_BASIC_STATS | STATX_BTIME,
                          &status) == 0)
                    ++wanted;
            closedir(folder);
        },
        [&] {
            const auto items = make_var<std::vector<TQvResFindItem>>();
            manager.Find(items, "/Bench/Mount7/list10000", mask, kFindResources | kFindAttributes,
                         nullptr);
            Require(items->size() == wanted, "Find");
        });
}
BENCHMARK_CAPTURE(ListAttributes, all, "*")->UseManualTime();
BENCHMARK_CAPTURE(ListAttributes, masked, "*.txt")->UseManualTime();

std::size_t RawWalk(const std::string& path)
{
    std::size_t found = 0;
    DIR* folder = opendir(path.c_str());
    while (const dirent* entry = readdir(folder)) {
        if (entry->d_name[0] == '.')
            continue;
        ++found;
        if (entry->d_type == DT_DIR)
            found += RawWalk(path + "/" + entry->d_name);
    }
    closedir(folder);
    return found;
}

void Walk(benchmark::State& state)
{
    const std::string top = Files() / "walk";
    if (fs::create_directory(top))
        for (int i = 0; i < 1000; ++i)
            Files().RealFolder("walk/Folder " + std::to_string(i), 100);
    TResourceManager& manager = Manager();
    bench::Compare(
        state, 1.25, [&] { Require(RawWalk(top) == 101000, "walk"); },
        [&] {
            const auto items = make_var<std::vector<TQvResFindItem>>();
            manager.Find(items, "/Bench/Mount7/walk", "*",
                         kFindResources | kFindFolders | kFindRecursive, nullptr);
            Require(items->size() == 101000, "Find");
        });
}
BENCHMARK(Walk)->UseManualTime();

void RawCopy(const std::string& from, const std::string& to, std::vector<char>& buffer)
{
    const int source = open(from.c_str(), O_RDONLY | O_CLOEXEC);
    const int target = open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    ssize_t length = 0;
    while ((length = read(source, buffer.data(), buffer.size())) > 0)
        Require(write(target, buffer.data(), static_cast<std::size_t>(length)) == length, "write");
    close(source);
    close(target);
}

void CopyLarge(benchmark::State& state)
{
    Files().Write("256m", 256u << 20);
    std::vector<char> buffer(256 << 10);
    TResourceManager& manager = Manager();
    const std::string target = state.range(0) == 0 ? "/Bench/Mount7/copy" : "/Bench/Mount8/copy";
    bench::Compare(
        state, 1.2, [&] { RawCopy(Files() / "256m", Files() / "copy", buffer); },
        [&] {
            Require(manager.CopyResource("/Bench/Mount7/256m", target, nullptr), "CopyResource");
        },
        [] { unlink((Files() / "copy").c_str()); });
    unlink((Files() / "copy").c_str());
}
BENCHMARK(CopyLarge)->ArgName("across")->Arg(0)->Arg(1)->UseManualTime()->Iterations(5);

/// What a small copy costs at the least: no promise about kills, permissions or time.
void RawCopyInKernel(const std::string& from, const std::string& to)
{
    const int source = open(from.c_str(), O_RDONLY | O_CLOEXEC);
    const int target = open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    Require(copy_file_range(source, nullptr, target, nullptr, 4096, 0) == 4096, "copy_file_range");
    close(source);
    close(target);
}

enum class TRoad
{
    Inside,
    Between,
    Extended
};

void CopySmall(benchmark::State& state, TRoad road)
{
    const std::string from = Files().Folder("small", 10000, 4096);
    TResourceManager& manager = Manager();
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(from))
        names.push_back(entry.path().filename().string());
    const std::string mount = road == TRoad::Between ? "/Bench/Mount8" : "/Bench/Mount7";
    TResourceManager::TCopyResourceExParams params;
    params.Sources = {"/Bench/Mount7/small/"};
    params.DestFolder = mount + "/target";
    bench::Compare(
        state, road == TRoad::Inside ? 1.5 : 1.6,
        [&] {
            fs::create_directory(Files() / "target");
            for (const std::string& name : names)
                RawCopyInKernel(from + "/" + name, Files() / ("target/" + name));
        },
        [&] {
            if (road == TRoad::Extended) {
                Require(manager.CopyResourceEx(params), "CopyResourceEx");
                return;
            }
            fs::create_directory(Files() / "target");
            for (const std::string& name : names)
                Require(manager.CopyResource("/Bench/Mount7/small/" + name,
                                             mount + "/target/" + name, nullptr),
                        "CopyResource");
        },
        [] { fs::remove_all(Files() / "target"); });
}
BENCHMARK_CAPTURE(CopySmall, inside, TRoad::Inside)->UseManualTime()->Iterations(7);
BENCHMARK_CAPTURE(CopySmall, between, TRoad::Between)->UseManualTime()->Iterations(7);
BENCHMARK_CAPTURE(CopySmall, extended, TRoad::Extended)->UseManualTime()->Iterations(7);

/// Each name read and unlinked by its path, without a look for a sidecar.
void Delete(benchmark::State& state)
{
    TResourceManager& manager = Manager();
    bench::Compare(
        state, 1.2,
        [] {
            const std::string path = Files() / "delete/";
            DIR* folder = opendir(path.c_str());
            while (const dirent* entry = readdir(folder))
                if (entry->d_name[0] != '.')
                    Require(unlink((path + entry->d_name).c_str()) == 0, "unlink");
            closedir(folder);
        },
        [&] { Require(manager.ClearFolder("/Bench/Mount7/delete", nullptr), "ClearFolder"); },
        [] {
            fs::remove_all(Files() / "delete");
            Files().RealFolder("delete", 10000);
        });
}
BENCHMARK(Delete)->UseManualTime()->Iterations(9);

void FindNode(benchmark::State& state)
{
    TResourceManager& manager = Manager(static_cast<int>(state.range(0)));
    const std::string id = "/Bench/Mount7/folder/subfolder/name.txt";
    for ([[maybe_unused]] auto iteration : state)
        benchmark::DoNotOptimize(manager.GetNode4Id(id, true, true, false));
    state.counters["target_ns"] = 150;
}
BENCHMARK(FindNode)->ArgName("mounts")->Arg(16)->Arg(4096);
} // namespace

BENCHMARK_MAIN();
