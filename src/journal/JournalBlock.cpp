#include "journal/JournalBlock.h"

#include <algorithm>

namespace
{
bool IsControl(char c)
{
    return static_cast<unsigned char>(c) < 0x20;
}
} // namespace

bool IsStorable(const std::string& id)
{
    return id.find(kNameMark) == std::string::npos && std::none_of(id.begin(), id.end(), IsControl);
}

std::string Checkpoint(std::uint32_t checksum)
{
    return Korvadel::ssprintf("%c%08X", kCheckpointMark, checksum).append(kLineEnd);
}
