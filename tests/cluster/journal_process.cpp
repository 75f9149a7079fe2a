// One process of the cluster tests that works on a storage's journal until it is done. TIMEOUT is
// that of the lock, in milliseconds. Why something was refused goes to standard error.
//   journal_process FOLDER TIMEOUT append PREFIX COUNT
//     prints a line for each record: "done ID" or "refused ID"
//   journal_process FOLDER TIMEOUT merge
//     until SIGTERM; prints a line for each merge: "done -" or "refused -"
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "QvStd/Clock.h"
#include "journal/ResStorage.h"

namespace
{
constexpr int kPauseBetweenMerges = 50; ///< milliseconds

volatile std::sig_atomic_t g_ended = 0;

/// Printed at once: what was acknowledged counts also when this process is killed.
void Report(bool done, const std::string& id, const TResStorage& storage)
{
    std::printf("%s %s\n", done ? "done" : "refused", id.c_str());
    std::fflush(stdout);
    if (!done)
        std::fprintf(stderr, "%s: %s\n", storage.Failure().Name().c_str(),
                     QvErrorText(storage.Failure().Error()).c_str());
}

void Append(TResStorage& storage, const std::string& prefix, int count)
{
    for (int i = 0; i < count; ++i) {
        const std::string id = "/" + prefix + "/R" + std::to_string(i);
        Report(storage.AddResourceRecord(id, false), id, storage);
    }
}

void Merge(TResStorage& storage)
{
    std::signal(SIGTERM, [](int) { g_ended = 1; });
    while (g_ended == 0) {
        Report(storage.MergeDir(), "-", storage);
        QvSleep(kPauseBetweenMerges);
    }
}
} // namespace

int main(int argc, char** argv)
{
    const std::string operation = argc > 3 ? argv[3] : "";
    if ((operation != "append" || argc != 6) && operation != "merge")
        return 2;
    TStorageSettings settings;
    settings.LockTimeout = static_cast<std::uint32_t>(std::atoi(argv[2]));
    settings.Owner = "journal_process";
    TResStorage storage(settings);
    storage.Name = storage.Folder = argv[1];
    if (operation == "append")
        Append(storage, argv[4], std::atoi(argv[5]));
    else
        Merge(storage);
}
