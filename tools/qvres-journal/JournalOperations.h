// What "qvres journal" does.
//
// Thread-safety: belongs to one thread.
#pragma once

#include <string>

#include "JournalCommand.h"

/// One line on standard error, whatever ids and file names hold.
void PrintError(std::string message);

/// Does one call and prints its result, and on standard error what was left out of it; the exit
/// status. Throws a std::exception that says why when it failed.
int RunJournal(const TJournalCall& call);
