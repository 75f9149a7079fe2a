#include "JournalExec.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include <unistd.h>

void ExecJournal(const TJournalCall& call)
{
    namespace fs = std::filesystem;
    const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
    std::vector<std::string> arguments = {"qvres-journal"};
    if (call.Json)
        arguments.push_back("--json");
    // A folder or an id may begin with "-".
    arguments.insert(arguments.end(), {call.Operation, "--", call.Folder});
    if (call.HasId)
        arguments.push_back(call.Id);
    if (!call.VarFolder.empty())
        setenv("QV_VAR_FOLDER", fs::absolute(call.VarFolder).c_str(), 1);

    std::vector<char*> pointers;
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);

    const fs::path installed = here / QVRES_JOURNAL_INSTALLED;
    execv(installed.c_str(), pointers.data());
    if (errno == ENOENT)
        execv((here / QVRES_JOURNAL_BUILT).c_str(), pointers.data());
    throw std::runtime_error("cannot run " + installed.string() + ": " + std::strerror(errno));
}
