// What "qvres journal" does with a storage folder.
//
// Thread-safety: belongs to one thread.
#pragma once

#include <string>

#include "Commands.h"
#include "journal/StorageLocker.h"

struct TJournalCall
{
    std::string Operation; ///< load, verify, add, remove, rebuild or merge
    std::string Folder;
    std::string Id; ///< of add and remove
};

/// Does one call and prints its result, and on standard error what was left out of it. Sets the
/// host's status 1 when verify finds a journal that is not whole. Throws TFailure when the call
/// failed.
void RunJournal(THost& host, const TJournalCall& call, TStorageSettings settings);
