// The library's warnings. Many of them say why an operation fails that only answers false: the
// error takes them over, and each is said once.
//
// Thread-safety: belongs to one thread; the library may warn on any.
#pragma once

#include <string>

namespace LogWarnings
{
/// From now on warnings are kept. Where QV_LOG_LEVEL is set the library goes on writing its log.
void Collect();

/// The last one, without the "." at its end; "" when there is none.
std::string Last();

/// Prints those that no error has said.
void PrintUnsaid();
} // namespace LogWarnings
