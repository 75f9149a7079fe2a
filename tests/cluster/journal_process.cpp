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
} // namespace

int main(int, char** arguments)
{
    TStorageSettings settings;
    settings.LockTimeout = static_cast<std::uint32_t>(std::atoi(arguments[2]));
    settings.Owner = "journal_process";
    TResStorage storage(settings);
    storage.Name = storage.Folder = arguments[1];
    if (arguments[3] == std::string("append")) {
        for (int i = 0; i < std::atoi(arguments[5]); ++i) {
            const std::string id = std::string("/") + arguments[4] + "/R" + std::to_string(i);
            Report(storage.AddResourceRecord(id, false), id, storage);
        }
        return 0;
    }
    std::signal(SIGTERM, [](int) { g_ended = 1; });
    for (; g_ended == 0; QvSleep(50))
        Report(storage.MergeDir(), "-", storage);
}
