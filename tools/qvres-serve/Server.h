// One served tree: mounted, shown until it is stopped, flushed and closed.
#pragma once

#include "../qvres/ServeCommand.h"

/// Serves the started ResourceManager. Returns when the server was stopped; without
/// `options.Foreground` in a process of its own, while the calling one ends with status 0 as soon
/// as the tree can be used. Throws TFailure when it cannot be served, and when something that was
/// written could not be brought to the disk at the end.
void Serve(const TServeOptions& options);
