// What the operations of a storage log: the texts, and the levels of the log.
//
// Thread-safety: constants.
#pragma once

inline constexpr int kLevelRead = 3; ///< retries and read failures
inline constexpr int kLevelWrite = 5;
inline constexpr int kLevelWarning = 6;

/// What an operation logs. Only operations that open the journal themselves have more than
/// NotLocked.
struct TStorageMessages
{
    const char* NotLocked;
    const char* Busy = nullptr;
    const char* NotOpened = nullptr; ///< or not read or written
    const char* Refused = nullptr;

    static const TStorageMessages LoadDir;
    static const TStorageMessages DoLoadDir;
    static const TStorageMessages RecreateDir;
    static const TStorageMessages SaveDir;
    static const TStorageMessages AddResourceRecord;
    static const TStorageMessages DeleteResourceRecord;
    static const TStorageMessages CutTornTail;
    static const TStorageMessages MergeDir;
};
