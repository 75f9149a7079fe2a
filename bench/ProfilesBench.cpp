// Loading and saving the state of all profiles: the time grows with their number, not faster.
#include <QvServices/QvServices.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "BenchFolder.h"
#include "Ratio.h"

namespace
{
namespace fs = std::filesystem;
using bench::Require;

constexpr int kNodes = 20;
constexpr int kFew = 100;
constexpr int kMany = 1000;
constexpr double kTarget = 12; // ten times the profiles, and a fifth more

/// A VAR folder of that many profiles, the configured one while it lives. In memory where that can
/// be: the time that a disk takes to sync says nothing about the code.
class TVarFolder
{
public:
    explicit TVarFolder(int profiles)
    {
        std::string text = "[profile]\nremote=0\n";
        for (int i = 0; i < kNodes; ++i)
            text += "[mount]\nnode=/N" + std::to_string(i) + "\npath=/usr\n[/mount]\n";
        text += "[/profile]\n";
        for (int i = 0; i < profiles; ++i)
            Write("P" + std::to_string(i), text);
    }
    void Configure() const { setenv("QV_VAR_FOLDER", m_folder.Path().c_str(), 1); }

private:
    void Write(const std::string& name, const std::string& text) const
    {
        const fs::path folder = fs::path(m_folder.Path()) / "Profiles" / name;
        fs::create_directories(folder);
        std::ofstream file(folder / "profile.x-ini", std::ios::binary);
        Require(static_cast<bool>((file << text).flush()), "write");
    }

    bench::TFolder m_folder{fs::exists("/dev/shm") ? "/dev/shm" : fs::temp_directory_path()};
};

void Load(const TVarFolder& folder, TQvCPUtils::TCPState& state, std::size_t count)
{
    folder.Configure();
    TQvCPUtils::ReloadState(state, nullptr);
    Require(state.Profiles.size() == count, "ReloadState");
}

void LoadState(benchmark::State& state)
{
    const TVarFolder few(kFew);
    const TVarFolder many(kMany);
    TQvCPUtils::TCPState loaded;
    bench::Compare(
        state, kTarget, [&] { Load(few, loaded, kFew); }, [&] { Load(many, loaded, kMany); });
}
BENCHMARK(LoadState)->UseManualTime();

void SaveState(benchmark::State& state)
{
    const TVarFolder few(kFew);
    const TVarFolder many(kMany);
    TQvCPUtils::TCPState fewLoaded;
    TQvCPUtils::TCPState manyLoaded;
    Load(few, fewLoaded, kFew);
    Load(many, manyLoaded, kMany);
    bench::Compare(
        state, kTarget, [&] { TQvCPUtils::SaveState(fewLoaded); },
        [&] { TQvCPUtils::SaveState(manyLoaded); });
}
BENCHMARK(SaveState)->UseManualTime();
} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    Init_QvServices();
    benchmark::RunSpecifiedBenchmarks();
    Deinit_QvServices();
}
