// The library's warnings. Many of them are the reason of an operation that only answers false: they
// become part of the error, and each is printed once.
//
// Thread-safety: belongs to one thread; the library may warn on any.
#pragma once

#include <string>

namespace LogWarnings
{
/// From now on warnings are kept. When QV_LOG_LEVEL is set, the library still writes its log.
void Collect();

/// The message with the last one as its cause, without the "." at their ends; unchanged when there
/// is none.
std::string WithLast(std::string message);

/// Prints those that were in no error.
void PrintUnsaid();

/// Those with this text are not printed.
void Drop(const std::string& cause);
} // namespace LogWarnings
