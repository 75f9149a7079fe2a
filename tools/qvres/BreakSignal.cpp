#include "BreakSignal.h"

#include <poll.h>

#include <QvStd/Message.h>
#include <QvStd/Progress.h>

namespace BreakSignal
{
volatile std::sig_atomic_t g_wanted = 0;
}

namespace
{
constexpr int kSignals[] = {SIGINT, SIGTERM};

void OnSignal(int)
{
    // The rest is done by polling. A second signal ends the process, when the first one is not
    // polled for.
    BreakSignal::g_wanted = 1;
    for (const int signalNumber : kSignals)
        std::signal(signalNumber, SIG_DFL);
}
} // namespace

void BreakSignal::Install()
{
    for (const int signalNumber : kSignals) {
        struct sigaction before = {};
        // Started by nohup, or in the background: then it is to be ignored.
        if (sigaction(signalNumber, nullptr, &before) == 0 && before.sa_handler == SIG_IGN)
            continue;
        struct sigaction action = {};
        // Without SA_RESTART, so that a waiting call returns and the break is seen.
        action.sa_handler = OnSignal;
        sigemptyset(&action.sa_mask);
        sigaction(signalNumber, &action, nullptr);
    }
}

void BreakSignal::Remove()
{
    for (const int signalNumber : kSignals) {
        struct sigaction now = {};
        if (sigaction(signalNumber, nullptr, &now) == 0 && now.sa_handler == OnSignal)
            std::signal(signalNumber, SIG_DFL);
    }
    ThrowIfWanted();
}

void BreakSignal::ThrowIfWanted()
{
    if (Wanted())
        throw TQvUserBreak();
}

void BreakSignal::WaitForInput(int descriptor)
{
    sigset_t breaks;
    sigset_t before;
    sigemptyset(&breaks);
    for (const int signalNumber : kSignals)
        sigaddset(&breaks, signalNumber);
    // A signal between the check of the flag and a plain read would leave the read waiting.
    sigprocmask(SIG_BLOCK, &breaks, &before);
    pollfd input = {descriptor, POLLIN, 0};
    if (!Wanted())
        ppoll(&input, 1, nullptr, &before);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    ThrowIfWanted();
}
