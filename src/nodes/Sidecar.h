// The sidecar of a resource on disk: the file of that name with ".meta" appended.
//
// A "sidecar" here is a path that SidecarOf answered; "" stands for none. Results name the id that
// was passed, since paths of the disk mean nothing to a caller of the tree.
//
// Thread-safety: callable from any thread.
#pragma once

#include <string>

#include "QvStd/Descriptor.h"
#include "QvStd/FileStream.h"
#include "QvStd/Result.h"

/// "" where there is no sidecar: a folder's path has none.
std::string SidecarOf(const std::string& path);

/// Whether `path` is the sidecar of `resource`, perhaps by another way to the same folder.
bool IsSidecarOf(const std::string& path, const std::string& resource);

/// Done when `path` is a file or a link to one.
TQvResult RequireResource(const std::string& path, const std::string& id);

/// "Nothing" also for a folder, which is no sidecar, and for a resource whose name leaves no room
/// for the suffix.
TQvResult SidecarExists(const std::string& sidecar, const std::string& id);

/// Done when there is room for the name and no folder of that name.
TQvResult RequireRoomForSidecar(const std::string& sidecar, const std::string& id);

/// What to do with the file that has the name of a sidecar of a folder.
enum class TFolderSidecar
{
    Kept,
    Deleted
};

/// Deletes `sidecar` when there is no resource at `path`: a new resource must not get the sidecar
/// of an earlier one. A file that cannot be examined may exist, and keeps its sidecar; so does a
/// resource that is being moved, since the moving process has the sidecar locked.
void DeleteStaleSidecar(const std::string& path, const std::string& sidecar,
                        TFolderSidecar ofFolder);

/// Deletes a resource and then its sidecar, so that a failure in between leaves a sidecar that the
/// next opener deletes. `place` is that of `path`; without `mayHaveSidecar` none is looked for.
TQvResult DeleteWithSidecar(TQvPlace place, const std::string& path, const std::string& id,
                            bool mayHaveSidecar);

/// Locks the sidecar as shared, as long as `hold` is open: for the time of a move. 0 when that is
/// done, or when no process can lock it. ENOENT when there is none; EACCES when another opener
/// holds it exclusively, which the removal of a stale sidecar does for a moment only.
int ShareSidecar(const std::string& sidecar, TQvFileStream& hold);
