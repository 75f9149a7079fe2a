// Runs a fuzz target once over each file of the folders that are named: a regression test where no
// fuzzing engine is.
#include <filesystem>
#include <fstream>
#include <iterator>

#include "Fuzz.h"

int main(int count, char** folders)
{
    int files = 0;
    for (int i = 1; i < count; ++i)
        for (const auto& entry : std::filesystem::directory_iterator(folders[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string data((std::istreambuf_iterator<char>(file)), {});
            std::printf("%s\n", entry.path().c_str());
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(data.data()), data.size());
            ++files;
        }
    return files > 0 ? 0 : 1;
}
