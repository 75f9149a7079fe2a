// The folder from which a VAR folder copies published profiles.
#pragma once

#include <string>

#include <QvStd/Path.h>

/// Whether the folder is there and has no list of published profiles yet.
bool PublishesNothingYet(const TQvPath& repository);
/// Gives such a folder an empty list. Throws TFailure when that cannot be written.
void StartPublishing(const TQvPath& repository);

/// Why the folder cannot serve as a repository; "" when it can.
std::string RepositoryProblem(const TQvPath& repository);
