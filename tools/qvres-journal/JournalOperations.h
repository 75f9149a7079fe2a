// What "qvres journal" does.
//
// Thread-safety: belongs to one thread.
#pragma once

#include "JournalCommand.h"

/// Does one call and prints its result; the exit status. Throws a std::exception that says why
/// when it failed.
int RunJournal(const TJournalCall& call);
