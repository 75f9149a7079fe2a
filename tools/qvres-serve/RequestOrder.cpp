#include "RequestOrder.h"

#include <algorithm>
#include <linux/fuse.h>

TRequestOrder::TTurn TRequestOrder::Take(const void* request)
{
    const auto& header = *static_cast<const fuse_in_header*>(request);
    if (header.opcode != FUSE_READ && header.opcode != FUSE_WRITE)
        return {};
    const std::lock_guard<std::mutex> lock(m_mutex);
    TTurn turn{++m_last, header.nodeid, header.opcode == FUSE_WRITE};
    // A write begins with the same fields.
    turn.Bytes = reinterpret_cast<const fuse_read_in*>(&header + 1)->size;
    if (turn.IsWrite)
        m_writes[turn.File].push_back(turn.Number);
    return turn;
}

void TRequestOrder::Wait(const TTurn& turn)
{
    if (!turn.IsRead())
        return;
    std::unique_lock<std::mutex> lock(m_mutex);
    m_written.wait(lock, [&] {
        const auto writes = m_writes.find(turn.File);
        return writes == m_writes.end() ||
               std::none_of(writes->second.begin(), writes->second.end(),
                            [&](std::uint64_t number) { return number < turn.Number; });
    });
}

void TRequestOrder::Finish(const TTurn& turn)
{
    if (!turn.IsWrite)
        return;
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto writes = m_writes.find(turn.File);
    auto& numbers = writes->second;
    numbers.erase(std::find(numbers.begin(), numbers.end(), turn.Number));
    if (numbers.empty())
        m_writes.erase(writes);
    m_written.notify_all();
}
