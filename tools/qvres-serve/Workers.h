// The threads that answer the kernel's requests.
//
// One thread at a time, the reader, waits for requests and answers them itself for as long as it
// keeps up: a thread that is woken for each request would cost more than most requests. More
// threads join when the reader has been at one request for some milliseconds, and, while many
// requests are slower than memory, as soon as another one is waiting.
//
// Thread-safety: belongs to the thread that calls Run.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#define FUSE_USE_VERSION 312
#include <fuse_lowlevel.h>

#include "RequestOrder.h"

class TWorkers
{
public:
    /// From now on the signals that end Run wait for it: in the calling thread, and in those that
    /// it starts.
    explicit TWorkers(fuse_session* session);

    /// Until the session is unmounted, or SIGINT, SIGTERM or SIGHUP arrives. 0, or the errno with
    /// which a request could not be read. What is being answered then is answered first.
    /// After a signal `atSignal` runs first, in a thread of its own, while requests are answered:
    /// it may use the served folder. Its errno is `settled`; ETIMEDOUT when it did not end in 10
    /// seconds.
    int Run(const std::function<int()>& atSignal, int* settled);

private:
    void Work();
    int ReadRequest(fuse_buf* buffer);
    bool IsWaiting() const;
    bool IsHelpWorthwhile() const;
    void NoteTime(const TRequestOrder::TTurn& turn, std::chrono::nanoseconds time);
    bool TakeTurn(const void* self);
    bool KeepTurn(const void* self);
    void PassOn(std::unique_lock<std::mutex>& lock);
    bool Watch(const std::function<bool()>& isEnough);
    int Settle(const std::function<int()>& work);
    int RunAside(const std::function<int()>& work, std::chrono::steady_clock::time_point end);
    bool HasRequests() const;
    bool WaitForSignal(bool isIdle);
    void End();

    fuse_session* const m_session;
    const pthread_t m_watcher;
    TRequestOrder m_order;
    sigset_t m_signals = {};

    std::mutex m_mutex;
    std::condition_variable m_turn;
    const void* m_reader = nullptr; ///< stands for its thread
    std::size_t m_idle = 0;         ///< threads that wait for their turn
    std::vector<std::thread> m_threads;
    std::size_t m_living = 0; ///< threads
    int m_error = 0;

    std::atomic<std::uint64_t> m_steps{0};      ///< of the reader; odd while it is at a request
    std::atomic<bool> m_isWatcherAsleep{false}; ///< nothing happens
    bool m_isSettling = false;                  ///< the watcher looks at every tick
    std::atomic<bool> m_isEnded{false};
    std::atomic<int> m_beingAnswered{0}; ///< requests
    std::atomic<int> m_slowRequests{0};  ///< rises with each slow one, falls with each fast one
};
