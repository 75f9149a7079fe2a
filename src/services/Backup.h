/// @file
/// Backups stamped with the time of the content, a bounded number of them.
///
/// Thread-safety: as the manager's operations on the resource.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "QvServicesExport.h"
#include "resid/ResAttrib.h"

/// Moves the resource into the folder "backup" in its own folder, as
/// "<name>.<YYYY-MM-DD.hh-mm-ss><extension>" of its last modification in local time, after deleting
/// the oldest backups of it so that at most `keep` remain. With `keep` 0 the resource is deleted
/// and nothing else happens. Throws a TQvMessage when there is no such resource or the folder
/// cannot be made. A backup that cannot be deleted and a move that fails only show in
/// TResourceManager::LastFailure. Backups of names that begin with "." or end in ".meta" are not
/// listed, and so never deleted.
QVSERVICES_API void BackupResource(const std::string& resId, std::size_t keep);
/// As BackupResource; answers the id of the backup, "" when none was made.
QVSERVICES_API std::string MakeResourceBackup(const std::string& resId, std::size_t keep);

/// The backups of a resource, whether or not it is there itself, with their attributes, the oldest
/// content first. LastFailure has the cause when not all of them could be found. Throws a
/// TQvMessage for an id that is not valid or that no mount node answers for.
QVSERVICES_API std::vector<TQvResFindItem> FindResourceBackups(const std::string& resId);
