// The storage journal's format: what its reader and its writer must agree on.
//
// Thread-safety: constants.
#pragma once

#include <cstddef>
#include <string_view>

/// Names of the files of a storage folder.
inline constexpr char kJournalFileName[] = "$QvStorage.list";
inline constexpr char kStorageXIniFileName[] = "$QvStorage.x-ini";
inline constexpr char kStorageContentName[] = "content";
/// The suffix of the journal that a repair has replaced.
inline constexpr char kDamagedJournalSuffix[] = ".damaged";
/// Appended to the folder as it is. The backslash is part of the file's name: the lock file is in
/// the parent folder, is named after the folder, and every user of a storage uses that path.
inline constexpr char kStorageLockSuffix[] = "\\$QvStorage.lock";

/// The first character says what a line is. Other lines are ignored.
inline constexpr char kStampMark = ':';
inline constexpr char kRecordMark = '/';
inline constexpr char kRemovalMark = '-';
inline constexpr char kCheckpointMark = '*';
inline constexpr char kNameMark = '?'; ///< between the id and the name of a record

inline constexpr std::string_view kLineEnd = "\r\n";

/// The signature line; it follows the stamp line of 1 + 8 + 2 bytes.
inline constexpr const char* StorageSgn = ";QV5Dir\r\n";
inline constexpr std::size_t kSignatureOffset = 11;
