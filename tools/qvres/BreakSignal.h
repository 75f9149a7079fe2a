// Ctrl-C: the first SIGINT or SIGTERM only sets a flag, so that the operation can end cleanly; the
// second one ends the process as if nothing were installed.
//
// Thread-safety: the flag may be read on any thread.
#pragma once

#include <csignal>

namespace BreakSignal
{
extern volatile std::sig_atomic_t g_wanted;

/// Installs the handlers. A signal that the caller of the process ignores stays ignored. System
/// calls that wait are interrupted (EINTR).
void Install();

/// From now on a break ends the process at once, unless it is ignored. Throws TQvUserBreak when one
/// came before.
void Remove();

inline bool Wanted() noexcept
{
    return g_wanted != 0;
}

/// Throws TQvUserBreak when a break is wanted.
void ThrowIfWanted();

/// Waits until a read of the descriptor would not wait; throws TQvUserBreak when a break is wanted.
void WaitForInput(int descriptor);
} // namespace BreakSignal
