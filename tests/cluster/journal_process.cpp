// One process of the cluster tests that works on a storage's journal until it is done:
//   journal_process FOLDER append PREFIX COUNT   one line a record: "done ID" or "refused ID"
//   journal_process FOLDER merge                 until SIGTERM; one line each: "done" or "refused"
// Why something was refused is what the library logs to standard error.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "QvStd/Clock.h"
#include "manager/QvServicesModule.h"
#include "manager/ResourceManager.h"
#include "storage/ResStorage.h"

namespace
{
constexpr int kPauseBetweenMerges = 50; ///< milliseconds

volatile std::sig_atomic_t g_ended = 0;

/// Printed at once: what was acknowledged counts also when this process is killed.
void Report(bool done, const std::string& id)
{
    std::printf("%s %s\n", done ? "done" : "refused", id.c_str());
    std::fflush(stdout);
}

void Append(TResStorage& storage, const std::string& prefix, int count)
{
    for (int i = 0; i < count; ++i) {
        const std::string id = "/" + prefix + "/R" + std::to_string(i);
        Report(storage.AddResourceRecord(id, false), id);
    }
}

void Merge(TResStorage& storage)
{
    std::signal(SIGTERM, [](int) { g_ended = 1; });
    while (g_ended == 0) {
        Report(storage.MergeDir(), "");
        QvSleep(kPauseBetweenMerges);
    }
}
} // namespace

int main(int argc, char** argv)
{
    const std::string operation = argc > 2 ? argv[2] : "";
    if ((operation != "append" || argc != 5) && operation != "merge")
        return 2;
    Init_QvServices();
    ResourceManager.Init();
    TResStorage storage;
    storage.Name = storage.Folder = argv[1];
    if (operation == "append")
        Append(storage, argv[3], std::atoi(argv[4]));
    else
        Merge(storage);
    Deinit_QvServices();
}
