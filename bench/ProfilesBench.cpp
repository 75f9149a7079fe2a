// Loading and saving the state of all profiles: the time grows with their number, not faster.
#include <QvServices/QvServices.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "Ratio.h"

namespace
{
namespace fs = std::filesystem;

constexpr int kNodes = 20;
constexpr int kFew = 100;
constexpr int kMany = 1000;
constexpr double kTarget = 12; // ten times the profiles, and a fifth more

[[noreturn]] void Die(const std::string& what)
{
    std::cerr << "benchmark failed: " << what << '\n';
    std::exit(1);
}

/// A VAR folder of that many profiles, the configured one while it lives. In memory where that can
/// be: the time that a disk takes to sync says nothing about the code.
class TVarFolder
{
public:
    explicit TVarFolder(int profiles)
    {
        const fs::path memory = "/dev/shm";
        m_path = ((fs::exists(memory) ? memory : fs::temp_directory_path()) / "qvbench.XXXXXX");
        if (mkdtemp(m_path.data()) == nullptr)
            Die("mkdtemp");
        std::string text = "[profile]\nremote=0\n";
        for (int i = 0; i < kNodes; ++i)
            text += "[mount]\nnode=/N" + std::to_string(i) + "\npath=/usr\n[/mount]\n";
        text += "[/profile]\n";
        for (int i = 0; i < profiles; ++i)
            Write("P" + std::to_string(i), text);
    }
    ~TVarFolder() { fs::remove_all(m_path); }
    TVarFolder(const TVarFolder&) = delete;
    TVarFolder& operator=(const TVarFolder&) = delete;

    void Configure() const { setenv("QV_VAR_FOLDER", m_path.c_str(), 1); }

private:
    void Write(const std::string& name, const std::string& text) const
    {
        const fs::path folder = fs::path(m_path) / "Profiles" / name;
        fs::create_directories(folder);
        std::ofstream file(folder / "profile.x-ini", std::ios::binary);
        if (!(file << text).flush())
            Die("write");
    }

    std::string m_path;
};

void Load(const TVarFolder& folder, TQvCPUtils::TCPState& state, std::size_t count)
{
    folder.Configure();
    TQvCPUtils::ReloadState(state, nullptr);
    if (state.Profiles.size() != count)
        Die("ReloadState");
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
