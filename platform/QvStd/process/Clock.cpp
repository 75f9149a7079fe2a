#include "QvStd/Clock.h"

#include <cerrno>
#include <ctime>

std::uint32_t QvGetTickCount()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(now.tv_sec) * 1000u +
                                      static_cast<std::uint64_t>(now.tv_nsec) / 1000000u);
}

void QvSleep(std::uint32_t milliseconds)
{
    timespec left{static_cast<time_t>(milliseconds / 1000),
                  static_cast<long>(milliseconds % 1000) * 1000000L};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}
