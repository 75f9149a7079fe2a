// The tree beside raw system calls on the same files.
#include <QvServices/QvServices.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <string>
#include <strings.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>

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

/// A manager with `mounts` mount points; the benchmark's files are at "/Bench/Mount7".
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

/// The id of 6 parts and some 60 bytes of each of the benchmark's files, in mixed letter case: many
/// different ones, so that no answer comes from the query before.
struct TManyIds
{
    std::vector<std::string> Ids;
    std::vector<std::string> Paths; ///< of their files
};

std::string MountPoint(int number)
{
    return "/Projects/Area " + std::to_string(number % 64) + "/Survey-" + std::to_string(number);
}

/// A manager with `mounts` mount points of three parts, all of them the same folder.
TResourceManager& DeepManager(int mounts)
{
    static std::map<int, TResourceManager> managers;
    TResourceManager& manager = managers[mounts];
    for (int i = static_cast<int>(manager.MountNodes().size()); i <= mounts; ++i)
        if (i > 0)
            manager.MountFileNodeE(MountPoint(i), Files() / "", false);
    return manager;
}

std::string InAnyCase(std::string text, std::minstd_rand& random)
{
    const unsigned writer = static_cast<unsigned>(random() % 4);
    for (char& c : text)
        c = writer == 0                       ? static_cast<char>(std::toupper(c))
            : writer == 1 && c >= 'A'         ? static_cast<char>(c | 0x20)
            : writer == 2 && random() % 2 > 0 ? static_cast<char>(std::toupper(c))
                                              : c;
    return text;
}

TManyIds ManyIds(int mounts)
{
    constexpr int kFolders = 16;
    constexpr int kFilesEach = 64;
    const std::string top = Files() / "Soil Samples";
    const auto folder = [](int i) { return "Soil Samples/Bore Hole " + std::to_string(100 + i); };
    if (fs::create_directory(top))
        for (int i = 0; i < kFolders; ++i)
            Files().Folder(folder(i), kFilesEach, 4096);
    std::minstd_rand random;
    TManyIds many;
    for (int i = 0; i < 8 * kBatch; ++i) {
        const int number = static_cast<int>(random() % kFilesEach);
        const std::string file = folder(static_cast<int>(random() % kFolders)) + "/file-" +
                                 std::to_string(number) + (number % 2 == 0 ? ".txt" : ".dat");
        const int mount = 1 + static_cast<int>(random() % static_cast<unsigned>(mounts));
        many.Ids.push_back(InAnyCase(MountPoint(mount), random) + "/" + file);
        many.Paths.push_back(Files() / file);
    }
    return many;
}

void OpenAndRead(const std::string& path, bool asTheLibrary)
{
    char buffer[4096];
    struct stat status;
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (asTheLibrary)
        Require(fstat(file, &status) == 0 && flock(file, LOCK_SH | LOCK_NB) == 0, "open");
    Require(pread(file, buffer, sizeof buffer, 0) == sizeof buffer, "pread");
    close(file);
}

/// Against the five calls without which it could not promise what it does.
void OpenReadClose(benchmark::State& state)
{
    const int mounts = static_cast<int>(state.range(0));
    const TManyIds many = ManyIds(mounts);
    TResourceManager& manager = DeepManager(mounts);
    char buffer[4096];
    bench::Compare(
        state, 1.05,
        [&] {
            for (int i = 0; i < kBatch; ++i)
                OpenAndRead(many.Paths[i], true);
        },
        [&] {
            for (int i = 0; i < kBatch; ++i) {
                const auto stream = manager.OpenResourceE(many.Ids[i], kQvOpenRead, kQvShareAll, 0);
                Require(stream->Read(buffer, sizeof buffer) == sizeof buffer, "Read");
            }
        });
}
BENCHMARK(OpenReadClose)->ArgName("mounts")->Arg(16)->Arg(4096)->UseManualTime();

/// The five calls against the three that read alone.
void OpenReadCloseFloor(benchmark::State& state)
{
    const TManyIds many = ManyIds(16);
    const auto all = [&](bool asTheLibrary) {
        for (int i = 0; i < kBatch; ++i)
            OpenAndRead(many.Paths[i], asTheLibrary);
    };
    bench::Compare(
        state, bench::kNoTarget, [&] { all(false); }, [&] { all(true); });
}
BENCHMARK(OpenReadCloseFloor)->UseManualTime();

void EachAccess(const TManyIds& many)
{
    for (int i = 0; i < kBatch; ++i)
        Require(access(many.Paths[i].c_str(), F_OK) == 0, "access");
}

void Exists(benchmark::State& state)
{
    const int mounts = static_cast<int>(state.range(0));
    const TManyIds many = ManyIds(mounts);
    TResourceManager& manager = DeepManager(mounts);
    bench::Compare(
        state, 1.2, [&] { EachAccess(many); },
        [&] {
            for (int i = 0; i < kBatch; ++i)
                Require(manager.ResourceExists(many.Ids[i]) == kResResource, "ResourceExists");
        });
}
BENCHMARK(Exists)->ArgName("mounts")->Arg(16)->Arg(4096)->UseManualTime();

/// The kind of what is there needs a stat.
void ExistsFloor(benchmark::State& state)
{
    const TManyIds many = ManyIds(16);
    bench::Compare(
        state, bench::kNoTarget, [&] { EachAccess(many); },
        [&] {
            struct stat status;
            for (int i = 0; i < kBatch; ++i)
                Require(stat(many.Paths[i].c_str(), &status) == 0, "stat");
        });
}
BENCHMARK(ExistsFloor)->UseManualTime();

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

constexpr std::size_t kSmallReadsSize = 4u << 20;

/// All of a file in blocks; `eachBlock` gets them.
template <class TEachBlock>
void ReadInBlocks(const std::string& path, const TEachBlock& eachBlock)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    static char block[64 << 10];
    for (std::size_t done = 0; done < kSmallReadsSize; done += sizeof block) {
        Require(pread(file, block, sizeof block, static_cast<off_t>(done)) == sizeof block,
                "pread");
        eachBlock(block, sizeof block);
    }
    close(file);
}

/// Against the same bytes read in blocks of 64 KiB.
void SmallReads(benchmark::State& state)
{
    Files().Write("4m", kSmallReadsSize);
    TResourceManager& manager = Manager();
    bench::Compare(
        state, 5, [] { ReadInBlocks(Files() / "4m", [](const char*, std::size_t) {}); },
        [&] {
            const auto stream =
                manager.OpenResourceE("/Bench/Mount7/4m", kQvOpenRead, kQvShareAll, 0);
            char buffer[16];
            for (std::size_t done = 0; done < kSmallReadsSize; done += sizeof buffer) {
                Require(stream->Read(buffer, sizeof buffer) == sizeof buffer, "Read");
                benchmark::DoNotOptimize(buffer);
            }
        });
}
BENCHMARK(SmallReads)->UseManualTime();

/// The blocks passed on 16 bytes at a time, without a call for each.
void SmallReadsFloor(benchmark::State& state)
{
    Files().Write("4m", kSmallReadsSize);
    bench::Compare(
        state, bench::kNoTarget,
        [] { ReadInBlocks(Files() / "4m", [](const char*, std::size_t) {}); },
        [] {
            ReadInBlocks(Files() / "4m", [](const char* block, std::size_t size) {
                char buffer[16];
                for (std::size_t i = 0; i < size; i += sizeof buffer) {
                    std::memcpy(buffer, block + i, sizeof buffer);
                    benchmark::DoNotOptimize(buffer);
                }
            });
        });
}
BENCHMARK(SmallReadsFloor)->UseManualTime();

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

/// The bare calls: each name is read and nothing is stored.
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

/// The minimal cost of a small copy: no guarantee after kills, no permissions or time.
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

/// Each name read and unlinked by its path, without a check for a sidecar.
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
    const int mounts = static_cast<int>(state.range(0));
    const TManyIds many = ManyIds(mounts);
    TResourceManager& manager = DeepManager(mounts);
    std::size_t i = 0;
    for ([[maybe_unused]] auto iteration : state) {
        benchmark::DoNotOptimize(manager.GetNode4Id(many.Ids[i], true, true, false));
        i = (i + 1) % many.Ids.size();
    }
    state.counters["target_ns"] = mounts == 16 ? 80 : 150;
}
BENCHMARK(FindNode)->ArgName("mounts")->Arg(16)->Arg(4096);

/// What is usual: a hash map of the mount points, asked for each prefix of the upper-cased id.
void FindNodePeer(benchmark::State& state)
{
    const int mounts = static_cast<int>(state.range(0));
    const TManyIds many = ManyIds(mounts);
    std::unordered_map<std::string_view, int> nodes;
    std::vector<std::string> normal;
    for (int i = 1; i <= mounts; ++i)
        normal.push_back(QvNormalizeResId(MountPoint(i)));
    for (int i = 0; i < mounts; ++i)
        nodes.emplace(normal[static_cast<std::size_t>(i)], i);
    const auto find = [&](const std::string& id) {
        const std::string upper = QvNormalizeResId(id);
        for (std::size_t end = upper.size(); end != std::string::npos;
             end = end == 0 ? std::string::npos : upper.rfind('/', end - 1))
            if (const auto found = nodes.find(std::string_view(upper).substr(0, end));
                found != nodes.end())
                return found->second;
        return -1;
    };
    std::size_t i = 0;
    for ([[maybe_unused]] auto iteration : state) {
        benchmark::DoNotOptimize(find(many.Ids[i]));
        i = (i + 1) % many.Ids.size();
    }
}
BENCHMARK(FindNodePeer)->ArgName("mounts")->Arg(16)->Arg(4096);

/// Mounting (or, after it, unmounting) 4,096 folders against 256.
void MountMany(benchmark::State& state, bool unmounts)
{
    std::optional<TResourceManager> manager;
    const auto mount = [&](int count) {
        for (int i = 1; i <= count; ++i)
            manager->MountFileNodeE(MountPoint(i), Files().Path(), false);
    };
    const auto work = [&](int count) {
        manager.emplace();
        if (unmounts)
            mount(count);
        return bench::ProcessorSecondsOf([&] {
            if (!unmounts)
                return mount(count);
            for (int i = 1; i <= count; ++i)
                manager->UnmountNodeE(MountPoint(i), false);
        });
    };
    std::vector<double> ratios;
    for ([[maybe_unused]] auto iteration : state) {
        const double few = work(256);
        const double seconds = work(4096);
        ratios.push_back(seconds / few);
        state.SetIterationTime(seconds);
    }
    state.counters["ratio"] = bench::Median(ratios);
    if (!unmounts)
        state.counters["target"] = 20;
}
BENCHMARK_CAPTURE(MountMany, mount, false)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(MountMany, unmount, true)->UseManualTime()->Unit(benchmark::kMillisecond);
} // namespace

BENCHMARK_MAIN();
