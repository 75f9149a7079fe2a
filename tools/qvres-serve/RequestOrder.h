// Delays a read until the writes to the same file that the kernel sent before it are done.
//
// The kernel drops pages of its cache while their write is still on the way here, and may ask for
// them again at once: answered by another thread before the write is done, it would keep the old
// content as the new one.
//
// Thread-safety: Take belongs to the one thread that reads requests, in their order; the other
// calls to any thread.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <vector>

class TRequestOrder
{
public:
    struct TTurn
    {
        std::uint64_t Number = 0; ///< 0 for a request that is neither a read nor a write
        std::uint64_t File = 0;
        bool IsWrite = false;
        std::uint32_t Bytes = 0; ///< to be read or written

        bool IsRead() const { return Number != 0 && !IsWrite; }
    };

    /// `request` as it was read from the kernel.
    TTurn Take(const void* request);
    /// Before the request is answered: a read waits here.
    void Wait(const TTurn& turn);
    /// After it.
    void Finish(const TTurn& turn);

private:
    std::mutex m_mutex;
    std::condition_variable m_written;
    std::uint64_t m_last = 0;
    std::unordered_map<std::uint64_t, std::vector<std::uint64_t>> m_writes; ///< numbers, by file
};
