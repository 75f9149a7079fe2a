// Checks before an operation, so that a refusal names the id and the reason.
#pragma once

#include <string>

#include <QvServices/QvServices.h>
#include <QvStd/Message.h>

#include "Failure.h"

std::string Quoted(const std::string& text);

/// Without "." and "..", also at the end. An id above the root keeps its "..".
std::string CompactedId(const std::string& id);

/// What is wrong with the text of an id ("it contains "*""), or of a name, in which "/" is not
/// allowed either; "" when nothing is.
std::string IdProblem(const std::string& id);
std::string NameProblem(const std::string& name);

/// Throws TFailure unless `id` is a valid absolute id and not above the root.
void CheckId(const std::string& id);

/// Throws TFailure for an id above the root.
void CheckClimb(const std::string& id);

/// Whether it is a resource or a folder. Throws TFailure when nothing is there, or when that cannot
/// be found out; the message begins with `what` and the id then.
unsigned RequireExisting(const TResourceManager& tree, const std::string& id,
                         const std::string& what = {});

/// Each throws TFailure unless `id` is valid and there is such a thing. `folderAdvice` says what to
/// do with a folder instead.
void RequireResource(const TResourceManager& tree, const std::string& id,
                     const std::string& folderAdvice = {});
void RequireFolder(const TResourceManager& tree, const std::string& id);
/// A folder on the disk, unlike those that only contain mount points.
void RequireRealFolder(const TResourceManager& tree, const std::string& id);
/// An id under which a resource can be written: no folder, and its parent folder exists.
void RequireTarget(const TResourceManager& tree, const std::string& id);

/// What a listing shows at `id`, where a folder that the disk does not have may contain mount
/// points. Throws TFailure when that cannot be found out.
unsigned ShownKind(const TResourceManager& tree, const std::string& id);

/// Of two paths or normalized ids; a "/" at the end of either does not count.
bool IsAtOrBelow(const std::string& path, const std::string& folder);

/// An open resource. Throws TFailure with the cause.
var_a<TQvStream*> OpenForReading(const TResourceManager& tree, const std::string& id);

/// Ends a command with a message of the library, preceded by `id` unless the message names it.
[[noreturn]] void ThrowNaming(const std::string& id, const TQvMessage& message);

/// The text of an errno; that of a lock that could not be had says so.
std::string CauseText(int error);

/// The message followed by the cause, which names its id when the message does not. `id` is what
/// the failure is about, where that is not the cause's.
TFailure WithCause(const std::string& message, const TQvFailure& cause, const std::string& id = {});

/// The text of a message of the library, followed by the cause of its last operation unless the
/// text has it.
TFailure WithMissingCause(const TQvMessage& message);

/// Ends a command whose operation failed: with TQvUserBreak when the user cancelled it, else with a
/// TFailure. The cause is `error` (an errno; 0 for none), or else that of the library's last
/// operation.
[[noreturn]] void ThrowFailed(const std::string& message, int error, const std::string& id = {});
[[noreturn]] void ThrowFailed(const std::string& message);
