// A child process, for tests of several processes.
#pragma once

#include <cerrno>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

class TChildProcess
{
public:
    /// Forks; the child runs `body` and exits with its result (99 when it throws).
    explicit TChildProcess(const std::function<int()>& body) : m_process(fork())
    {
        if (m_process < 0)
            throw std::runtime_error("fork failed");
        if (m_process > 0)
            return;
        try {
            _exit(body());
        } catch (...) {
            _exit(99);
        }
    }
    /// Kills the child unless Wait was called.
    ~TChildProcess()
    {
        if (m_process > 0) {
            Kill();
            Wait();
        }
    }
    TChildProcess(const TChildProcess&) = delete;

    /// The exit status, or -signal.
    int Wait()
    {
        int status = 0;
        while (waitpid(m_process, &status, 0) < 0 && errno == EINTR) {
        }
        m_process = -1;
        return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    }
    void Kill() { kill(m_process, SIGKILL); }

private:
    pid_t m_process;
};

/// Whether all expectations of `body` hold in a child process.
inline bool PassesInChild(const std::function<void()>& body)
{
    const auto failures = [&body] {
        body();
        return testing::Test::HasFailure() ? 1 : 0;
    };
    return TChildProcess(failures).Wait() == 0;
}

/// Whether `condition` becomes true within ten seconds.
inline bool WaitUntil(const std::function<bool()>& condition)
{
    for (int i = 0; i < 10000; ++i) {
        if (condition())
            return true;
        usleep(1000);
    }
    return false;
}

/// From now on files of this process cannot grow beyond `bytes` (EFBIG), as on a full disk.
inline void LimitFileSize(std::size_t bytes)
{
    const rlimit limit = {bytes, bytes};
    signal(SIGXFSZ, SIG_IGN);
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0)
        throw std::runtime_error("setrlimit failed");
}
