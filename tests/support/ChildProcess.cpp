#include "support/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

TChildProcess::TChildProcess(const std::function<int()>& body) : m_process(fork())
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

TChildProcess::~TChildProcess()
{
    if (m_process > 0) {
        Kill();
        Wait();
    }
}

int TChildProcess::Wait()
{
    int status = 0;
    while (waitpid(m_process, &status, 0) < 0 && errno == EINTR) {
    }
    m_process = -1;
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

void TChildProcess::Kill()
{
    kill(m_process, SIGKILL);
}

bool PassesInChild(const std::function<void()>& body)
{
    return TChildProcess([&] { return body(), testing::Test::HasFailure() ? 1 : 0; }).Wait() == 0;
}

bool WaitUntil(const std::function<bool()>& condition)
{
    for (int i = 0; i < 10000; ++i) {
        if (condition())
            return true;
        usleep(1000);
    }
    return false;
}

void LimitFileSize(std::size_t bytes)
{
    const rlimit limit = {bytes, bytes};
    signal(SIGXFSZ, SIG_IGN);
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0)
        throw std::runtime_error("setrlimit failed");
}
