// Handing a journal call over to the program that does it.
//
// Thread-safety: belongs to one thread.
#pragma once

#include "JournalCommand.h"

/// Replaces this process by qvres-journal, which lies beside this installation (or in this build).
/// Returns only by throwing a std::runtime_error, when the program cannot be run.
[[noreturn]] void ExecJournal(const TJournalCall& call);
