// The storage journal beside raw system calls and beside SQLite and LevelDB, which fill the same
// map and append the same records. Each row alternates with its raw limit; "ratio" is what counts:
// raw read + CRC-32 of the same bytes for loading, raw write + CRC-32 + fdatasync for rewriting, a
// write at the end of an open file + fdatasync for appending.
#include <QvServices/QvServices.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <linux/magic.h>
#include <memory>
#include <string>
#include <sys/vfs.h>
#include <unistd.h>
#include <vector>

#include <leveldb/db.h>
#include <sqlite3.h>
#include <zlib.h>

#include "BenchFolder.h"
#include "Ratio.h"
#include "journal/ResStorage.h"

namespace
{
namespace fs = std::filesystem;
using bench::Require;

constexpr int kMillion = 1000000;
constexpr int kBlocks = 10000; // appended after the million
constexpr int kAppends = 20;   // measured together
constexpr double kLoadTarget = 8.5;
constexpr double kBlocksTarget = 9;
constexpr double kAppendTarget = 1.15;
constexpr double kRewriteTarget = 2.3;

std::string NameOf(int number)
{
    char text[64];
    std::snprintf(text, sizeof text, "Resource-%07d.txt", number);
    return text;
}

std::string IdOf(int number)
{
    char text[64];
    std::snprintf(text, sizeof text, "/Folder%04d/Resource-%07d.txt", number / 1000, number);
    return text;
}

const bench::TFolder& Folder()
{
    static const bench::TFolder folder;
    return folder;
}

std::unique_ptr<TResStorage> Open(const std::string& name)
{
    // Under these settings loading never rewrites: that is a row of its own.
    auto storage = std::make_unique<TResStorage>(TStorageSettings{10000, kMillion, "bench"});
    storage->Name = name;
    storage->Folder = Folder() / name;
    return storage;
}

void WriteMerged(const std::string& file, int count)
{
    std::string text = ":00000000\r\n;QV5Dir\r\n";
    for (int i = 0; i < count; ++i)
        text += QvNormalizeResId(IdOf(i)) + "?" + NameOf(i) + "\r\n";
    char checkpoint[16];
    std::snprintf(checkpoint, sizeof checkpoint, "*%08X\r\n", JournalChecksum(text));
    std::ofstream stream(file, std::ios::binary);
    stream << text << checkpoint;
    Require(static_cast<bool>(stream.flush()), "write the journal");
}

/// A storage of `records` in one block and `blocks` appended, made on first use.
std::string Storage(int records, int blocks)
{
    const std::string name = std::to_string(records) + "+" + std::to_string(blocks);
    if (!fs::create_directory(Folder() / name))
        return name;
    const auto storage = Open(name);
    const std::string file = storage->DirFile().toSysStr();
    WriteMerged(file, records);
    std::ofstream stream(file, std::ios::binary | std::ios::app);
    for (int i = 0; i < blocks; ++i) {
        // Changes are anywhere in the map: every other one removes a record.
        const int place = static_cast<int>((i * 7919LL) % records);
        std::string line = QvNormalizeResId(IdOf(place));
        line = i % 2 == 0 ? "-" + line.substr(1) + "\r\n" : line + "?" + NameOf(i) + "\r\n";
        char checkpoint[16];
        std::snprintf(checkpoint, sizeof checkpoint, "*%08X\r\n", JournalChecksum(line));
        stream << line << checkpoint;
    }
    Require(static_cast<bool>(stream.flush()), "append blocks");
    return name;
}

void RawRead(const std::string& file)
{
    static std::vector<Bytef> block(256 * 1024);
    const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    Require(descriptor >= 0, "open");
    uLong checksum = 0;
    ssize_t got = 0;
    while ((got = read(descriptor, block.data(), block.size())) > 0)
        checksum = crc32_z(checksum, block.data(), static_cast<std::size_t>(got));
    Require(got == 0, "read");
    benchmark::DoNotOptimize(checksum);
    close(descriptor);
}

// The peers

class TSQLite
{
public:
    explicit TSQLite(const std::string& file)
    {
        Require(sqlite3_open(file.c_str(), &m_base) == SQLITE_OK, "sqlite3_open");
        Execute("PRAGMA journal_mode=WAL");
        Execute("PRAGMA synchronous=FULL");
        Execute("CREATE TABLE IF NOT EXISTS r (id TEXT PRIMARY KEY, name TEXT) WITHOUT ROWID");
        Require(sqlite3_prepare_v2(m_base, "INSERT OR REPLACE INTO r VALUES (?, ?)", -1, &m_insert,
                                   nullptr) == SQLITE_OK,
                "prepare");
    }
    ~TSQLite()
    {
        sqlite3_finalize(m_insert);
        sqlite3_close(m_base);
    }
    TSQLite(const TSQLite&) = delete;
    TSQLite& operator=(const TSQLite&) = delete;

    void Execute(const char* statement)
    {
        Require(sqlite3_exec(m_base, statement, nullptr, nullptr, nullptr) == SQLITE_OK, statement);
    }
    void Insert(const std::string& id, const std::string& name)
    {
        sqlite3_bind_text(m_insert, 1, id.data(), static_cast<int>(id.size()), SQLITE_STATIC);
        sqlite3_bind_text(m_insert, 2, name.data(), static_cast<int>(name.size()), SQLITE_STATIC);
        Require(sqlite3_step(m_insert) == SQLITE_DONE, "insert");
        sqlite3_reset(m_insert);
    }
    void Load(TJournalEntries& entries)
    {
        sqlite3_stmt* select = nullptr;
        Require(sqlite3_prepare_v2(m_base, "SELECT id, name FROM r ORDER BY id", -1, &select,
                                   nullptr) == SQLITE_OK,
                "select");
        const auto text = [select](int column) {
            return std::string_view(
                reinterpret_cast<const char*>(sqlite3_column_text(select, column)),
                static_cast<std::size_t>(sqlite3_column_bytes(select, column)));
        };
        while (sqlite3_step(select) == SQLITE_ROW)
            entries.Set(text(0), text(1));
        sqlite3_finalize(select);
    }
    static std::unique_ptr<TSQLite> Filled(const std::string& file, int count)
    {
        auto base = std::make_unique<TSQLite>(file);
        base->Execute("BEGIN");
        for (int i = 0; i < count; ++i)
            base->Insert(QvNormalizeResId(IdOf(i)), NameOf(i));
        base->Execute("COMMIT");
        base->Execute("PRAGMA wal_checkpoint(TRUNCATE)");
        return base;
    }

private:
    sqlite3* m_base = nullptr;
    sqlite3_stmt* m_insert = nullptr;
};

class TLevelDB
{
public:
    explicit TLevelDB(const std::string& folder)
    {
        leveldb::Options options;
        options.create_if_missing = true;
        leveldb::DB* base = nullptr;
        Require(leveldb::DB::Open(options, folder, &base).ok(), "leveldb");
        m_base.reset(base);
    }
    void Put(const std::string& id, const std::string& name, bool sync)
    {
        leveldb::WriteOptions options;
        options.sync = sync;
        Require(m_base->Put(options, id, name).ok(), "put");
    }
    void Load(TJournalEntries& entries)
    {
        const std::unique_ptr<leveldb::Iterator> place(m_base->NewIterator(leveldb::ReadOptions()));
        const auto view = [](const leveldb::Slice& slice) {
            return std::string_view(slice.data(), slice.size());
        };
        for (place->SeekToFirst(); place->Valid(); place->Next())
            entries.Set(view(place->key()), view(place->value()));
    }
    static std::unique_ptr<TLevelDB> Filled(const std::string& folder, int count)
    {
        auto base = std::make_unique<TLevelDB>(folder);
        for (int i = 0; i < count; ++i)
            base->Put(QvNormalizeResId(IdOf(i)), NameOf(i), false);
        base->m_base->CompactRange(nullptr, nullptr);
        return base;
    }

private:
    std::unique_ptr<leveldb::DB> m_base;
};

// Loading

void LoadStorage(benchmark::State& state, double target, int blocks)
{
    const std::string name = Storage(kMillion, blocks);
    auto storage = Open(name);
    const std::string file = storage->DirFile().toSysStr();
    bench::Compare(
        state, target, [&] { RawRead(file); }, [&] { Require(storage->DoLoadDir(), "DoLoadDir"); },
        [&] { storage = Open(name); });
    state.counters["records"] = static_cast<double>(storage->Dir().size());
}

void Load(benchmark::State& state)
{
    LoadStorage(state, kLoadTarget, 0);
}
BENCHMARK(Load)->UseManualTime()->Iterations(7)->Unit(benchmark::kMillisecond);

void LoadWithBlocks(benchmark::State& state)
{
    LoadStorage(state, kBlocksTarget, kBlocks);
}
BENCHMARK(LoadWithBlocks)->UseManualTime()->Iterations(7)->Unit(benchmark::kMillisecond);

template <class TPeer>
void LoadPeer(benchmark::State& state)
{
    const std::string file = Open(Storage(kMillion, 0))->DirFile().toSysStr();
    const auto peer = TPeer::Filled(Folder() / "load.peer", kMillion);
    TJournalEntries entries;
    bench::Compare(
        state, bench::kNoTarget, [&] { RawRead(file); }, [&] { peer->Load(entries); },
        [&] { entries.Clear(); });
    Require(entries.size() == kMillion, "records of the peer");
    fs::remove_all(Folder() / "load.peer");
}
BENCHMARK(LoadPeer<TSQLite>)->UseManualTime()->Iterations(7)->Unit(benchmark::kMillisecond);
BENCHMARK(LoadPeer<TLevelDB>)->UseManualTime()->Iterations(7)->Unit(benchmark::kMillisecond);

// Rewriting

void RawRewrite(const std::string& file, const std::string& bytes)
{
    const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    Require(descriptor >= 0, "open");
    Require(write(descriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
            "write");
    benchmark::DoNotOptimize(
        crc32_z(0, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
    Require(fdatasync(descriptor) == 0 && close(descriptor) == 0, "fdatasync");
}

void Rewrite(benchmark::State& state)
{
    const auto storage = Open(Storage(kMillion, 0));
    Require(storage->DoLoadDir(), "DoLoadDir");
    std::ifstream stream(storage->DirFile().toSysStr(), std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(stream)), {});
    bench::Compare(
        state, kRewriteTarget, [&] { RawRewrite(Folder() / "raw", bytes); },
        [&] { Require(storage->SaveDir(), "SaveDir"); });
}
BENCHMARK(Rewrite)->UseManualTime()->Iterations(7)->Unit(benchmark::kMillisecond);

// Appending: a few records, each on the disk before the next

template <class TOurs>
void CompareAppends(benchmark::State& state, double target, TOurs&& append)
{
    const int descriptor =
        open((Folder() / "raw.append").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    const std::string line = QvNormalizeResId(IdOf(0)) + "?" + NameOf(0) + "\r\n*00000000\r\n";
    int number = kMillion;
    bench::Compare(
        state, target,
        [&] {
            for (int i = 0; i < kAppends; ++i)
                Require(write(descriptor, line.data(), line.size()) ==
                                static_cast<ssize_t>(line.size()) &&
                            fdatasync(descriptor) == 0,
                        "append");
        },
        [&] {
            for (int i = 0; i < kAppends; ++i, ++number)
                append(number);
        });
    close(descriptor);
}

void Append(benchmark::State& state)
{
    const auto storage = Open(Storage(static_cast<int>(state.range(0)), 0));
    CompareAppends(state, kAppendTarget, [&](int number) {
        Require(storage->AddResourceRecord(IdOf(number), false), "AddResourceRecord");
    });
}
BENCHMARK(Append)->ArgName("records")->Arg(10)->Arg(kMillion)->UseManualTime()->Iterations(101);

void AppendSQLite(benchmark::State& state)
{
    const auto base = TSQLite::Filled(Folder() / "append.sqlite", 10);
    CompareAppends(state, bench::kNoTarget, [&](int number) {
        base->Insert(QvNormalizeResId(IdOf(number)), NameOf(number));
    });
}
BENCHMARK(AppendSQLite)->UseManualTime()->Iterations(101);

void AppendLevelDB(benchmark::State& state)
{
    const auto base = TLevelDB::Filled(Folder() / "append.leveldb", 10);
    CompareAppends(state, bench::kNoTarget, [&](int number) {
        base->Put(QvNormalizeResId(IdOf(number)), NameOf(number), true);
    });
}
BENCHMARK(AppendLevelDB)->UseManualTime()->Iterations(101);
} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    struct statfs status = {};
    Require(statfs(Folder().Path().c_str(), &status) == 0, "statfs");
    if (status.f_type == TMPFS_MAGIC) {
        std::cerr << "appends to memory mean nothing: let TMPDIR name a folder on a disk\n";
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
