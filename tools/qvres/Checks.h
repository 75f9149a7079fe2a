// Looks before an operation, so that a refusal names the id and the reason.
#pragma once

#include <string>

#include <QvServices/QvServices.h>
#include <QvStd/Message.h>

std::string Quoted(const std::string& text);

/// Throws TFailure unless `id` is a valid absolute id.
void CheckId(const std::string& id);

/// Each throws TFailure unless `id` is valid and there is such a thing. `folderAdvice` says what to
/// do with a folder instead.
void RequireResource(const TResourceManager& tree, const std::string& id,
                     const std::string& folderAdvice = {});
void RequireFolder(const TResourceManager& tree, const std::string& id);
/// A folder that holds something of its own, unlike those that only lead to mount points.
void RequireRealFolder(const TResourceManager& tree, const std::string& id);
/// An id under which a resource can be written: no folder, in a folder that is there.
void RequireTarget(const TResourceManager& tree, const std::string& id);

/// Ends a command with a message of the library; `id` stands before it unless it names that itself.
[[noreturn]] void ThrowNaming(const std::string& id, const TQvMessage& message);

/// Ends a command whose operation answered false: with TQvUserBreak when the user broke it off,
/// else with a TFailure. `error` (an errno) is told when it is one that explains the failure.
[[noreturn]] void ThrowFailed(const std::string& message, int error);
