#include "Workers.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <poll.h>

namespace
{
constexpr std::size_t kMaxThreads = 16;
constexpr long kTick = 4000000; ///< ns
constexpr int kTicksUntilSleep = 12;
constexpr int kManySlowRequests = 16;
constexpr int kWake = SIGUSR1;

extern "C" void Ignore(int) {}

/// Interrupts a system call, and does nothing else.
void SetWakeHandler()
{
    struct sigaction action = {};
    action.sa_handler = &Ignore;
    sigaction(kWake, &action, nullptr);
}
} // namespace

TWorkers::TWorkers(fuse_session* session) : m_session(session), m_watcher(pthread_self())
{
    sigemptyset(&m_signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, kWake})
        sigaddset(&m_signals, signal);
    pthread_sigmask(SIG_BLOCK, &m_signals, nullptr);
}

int TWorkers::Run(const std::function<int()>& atSignal, int* settled)
{
    SetWakeHandler();
    std::signal(SIGPIPE, SIG_IGN);
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        PassOn(lock);
    }
    *settled = Watch([] { return false; }) ? Settle(atSignal) : 0;
    End();
    return m_error;
}

/// Whether one more request can be read at once.
bool TWorkers::IsWaiting() const
{
    pollfd device{fuse_session_fd(m_session), POLLIN, 0};
    return poll(&device, 1, 0) == 1;
}

/// While requests are answered from memory, one thread is the fastest; several are faster when they
/// wait for a disk.
bool TWorkers::IsHelpWorthwhile() const
{
    return m_slowRequests > kManySlowRequests / 2;
}

void TWorkers::NoteTime(const TRequestOrder::TTurn& turn, std::chrono::nanoseconds time)
{
    constexpr std::int64_t kBytesInNanosecond = 4; // slower than memory, faster than disks
    constexpr std::int64_t kOverhead = 100000;
    const bool isSlow = time.count() > kOverhead + turn.Bytes / kBytesInNanosecond;
    const int now = m_slowRequests;
    // Threads that count at once may lose a step, which does not matter.
    m_slowRequests = std::clamp(now + (isSlow ? 1 : -1), 0, kManySlowRequests);
}

/// Waits until there is no reader. False at the end.
bool TWorkers::TakeTurn(const void* self)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    ++m_idle;
    m_turn.wait(lock, [this] { return m_reader == nullptr || m_isEnded; });
    --m_idle;
    m_reader = self;
    m_steps = (m_steps | 1) + 1;
    return !m_isEnded;
}

/// After a request: whether this thread goes on reading.
bool TWorkers::KeepTurn(const void* self)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_reader != self && m_reader != nullptr)
        return false;
    m_reader = self;
    m_steps = (m_steps | 1) + 1;
    return true;
}

/// Lets another thread read, if there is or may be one.
void TWorkers::PassOn(std::unique_lock<std::mutex>&)
{
    m_reader = nullptr;
    if (m_idle > 0)
        m_turn.notify_one();
    else if (m_threads.size() < kMaxThreads && !m_isEnded) {
        m_threads.emplace_back([this] { Work(); });
        ++m_living;
    }
}

int TWorkers::ReadRequest(fuse_buf* buffer)
{
    for (;;) {
        const int size = fuse_session_receive_buf(m_session, buffer);
        if (size > 0 && !m_isEnded)
            return size;
        if (size != -EINTR || m_isEnded)
            return size > 0 ? 0 : size;
    }
}

void TWorkers::Work()
{
    sigset_t wake;
    sigemptyset(&wake);
    sigaddset(&wake, kWake);
    pthread_sigmask(SIG_UNBLOCK, &wake, nullptr);
    fuse_buf buffer = {};
    while (TakeTurn(&buffer)) {
        do {
            const int size = ReadRequest(&buffer);
            if (size <= 0) {
                const std::lock_guard<std::mutex> lock(m_mutex);
                m_error = -size;
                m_isEnded = true;
                m_turn.notify_all();
                break;
            }
            ++m_beingAnswered;
            // Before the turn can be passed on: requests are taken in their order.
            const TRequestOrder::TTurn turn = m_order.Take(buffer.mem);
            ++m_steps;
            if (m_isWatcherAsleep.exchange(false))
                pthread_kill(m_watcher, kWake);
            if (IsHelpWorthwhile() && IsWaiting()) {
                std::unique_lock<std::mutex> lock(m_mutex);
                if (m_reader == &buffer)
                    PassOn(lock);
            }
            m_order.Wait(turn);
            const auto start = std::chrono::steady_clock::now();
            fuse_session_process_buf(m_session, &buffer);
            --m_beingAnswered;
            NoteTime(turn, std::chrono::steady_clock::now() - start);
            m_order.Finish(turn);
        } while (KeepTurn(&buffer));
    }
    std::free(buffer.mem);
    const std::lock_guard<std::mutex> lock(m_mutex);
    --m_living;
    pthread_kill(m_watcher, kWake);
}

/// False when a signal ends the session.
bool TWorkers::WaitForSignal(bool isIdle)
{
    const timespec tick{0, kTick};
    const int signal =
        isIdle ? sigwaitinfo(&m_signals, nullptr) : sigtimedwait(&m_signals, nullptr, &tick);
    return signal < 0 || signal == kWake;
}

/// Until the session or `isEnough` ends it: false; until a signal does: true.
bool TWorkers::Watch(const std::function<bool()>& isEnough)
{
    std::uint64_t seen = 0;
    int quietTicks = 0;
    while (!m_isEnded && !isEnough()) {
        m_isWatcherAsleep = quietTicks >= kTicksUntilSleep && !m_isSettling;
        // A request that came just before would not wake anybody.
        const bool isIdle = m_isWatcherAsleep && m_steps == seen;
        if (!WaitForSignal(isIdle))
            return true;
        m_isWatcherAsleep = false;
        const std::uint64_t now = m_steps;
        const bool isBusy = now % 2 == 1;
        quietTicks = now == seen && !isBusy && !isIdle ? quietTicks + 1 : 0;
        if (now == seen && isBusy) {
            std::unique_lock<std::mutex> lock(m_mutex);
            if (m_steps == now && m_reader != nullptr)
                PassOn(lock);
        }
        seen = now;
    }
    return false;
}

bool TWorkers::HasRequests() const
{
    return m_beingAnswered > 0 || IsWaiting();
}

/// Twice: what the first call has set off has its result when its requests are answered. A second
/// signal ends it at once.
int TWorkers::Settle(const std::function<int()>& work)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    m_isSettling = true;
    const int error = RunAside(work, end);
    return error != 0 ? error : RunAside(work, end);
}

int TWorkers::RunAside(const std::function<int()>& work, std::chrono::steady_clock::time_point end)
{
    constexpr int kQuiet = 3; ///< ticks without a request
    constexpr int kRunning = -1;
    // The thread may outlive this call: in the kernel it cannot be interrupted.
    const auto result = std::make_shared<std::atomic<int>>(kRunning);
    std::thread([result, work] { *result = work(); }).detach();
    int quiet = 0;
    const bool isCancelled = Watch([&] {
        quiet = *result != kRunning && !HasRequests() ? quiet + 1 : 0;
        return quiet == kQuiet || std::chrono::steady_clock::now() > end;
    });
    if (isCancelled)
        return ECANCELED;
    return quiet == kQuiet ? result->load() : ETIMEDOUT;
}

/// A thread that is about to read misses the signal: it is sent until all have ended.
void TWorkers::End()
{
    m_isEnded = true;
    fuse_session_exit(m_session);
    std::unique_lock<std::mutex> lock(m_mutex);
    while (m_living > 0) {
        for (std::thread& thread : m_threads)
            pthread_kill(thread.native_handle(), kWake);
        m_turn.notify_all();
        m_turn.wait_for(lock, std::chrono::nanoseconds(kTick));
    }
    lock.unlock();
    for (std::thread& thread : m_threads)
        thread.join();
}
