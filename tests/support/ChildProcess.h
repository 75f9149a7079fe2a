// Another process for a test of what processes do to each other.
#pragma once

#include <cstddef>
#include <functional>
#include <sys/types.h>

class TChildProcess
{
public:
    /// Forks; the child runs `body` and exits with its result (99 when it throws).
    explicit TChildProcess(const std::function<int()>& body);
    /// Kills the child when nobody waited for it.
    ~TChildProcess();
    TChildProcess(const TChildProcess&) = delete;

    /// The exit status, or -signal.
    int Wait();
    void Kill();

private:
    pid_t m_process;
};

/// Whether `body`, run in another process, meets no failed expectation.
bool PassesInChild(const std::function<void()>& body);
/// Whether `condition` becomes true within ten seconds.
bool WaitUntil(const std::function<bool()>& condition);
/// From now on a file of this process that grows further meets a full disk (EFBIG).
void LimitFileSize(std::size_t bytes);
