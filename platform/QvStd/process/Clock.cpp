#include "QvStd/Clock.h"

#include <chrono>
#include <thread>

std::uint32_t QvGetTickCount()
{
    using namespace std::chrono;
    const auto now = steady_clock::now().time_since_epoch();
    return static_cast<std::uint32_t>(duration_cast<milliseconds>(now).count());
}

void QvSleep(std::uint32_t milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}
