/// @file
/// The tick counter and sleeping.
///
/// Thread-safety: callable from any thread.
#pragma once

#include <cstdint>

#include "QvStd/Export.h"

/// Milliseconds of a monotonic clock, modulo 2^32: subtract two values as uint32_t for a duration.
QVSTD_API std::uint32_t QvGetTickCount();

/// Sleeps for at least `milliseconds`; signals do not shorten it.
QVSTD_API void QvSleep(std::uint32_t milliseconds);
