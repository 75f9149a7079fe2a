// Retrying while the caches of a network file system refer to a file that another machine has
// replaced (QvIsStale).
//
// Thread-safety: one object belongs to one thread.
#pragma once

#include <chrono>
#include <thread>

class TStaleRetry
{
public:
    /// Sleeps before the next attempt. False, without a sleep, when all caches have expired: the
    /// failure has another cause then.
    bool Wait() const
    {
        constexpr std::chrono::milliseconds kPause(50);
        if (std::chrono::steady_clock::now() > m_end)
            return false;
        std::this_thread::sleep_for(kPause);
        return true;
    }

private:
    static constexpr std::chrono::seconds kCachesLast{5};
    std::chrono::steady_clock::time_point m_end = std::chrono::steady_clock::now() + kCachesLast;
};
