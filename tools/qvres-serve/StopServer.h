// Ends a server from outside.
#pragma once

#include <string>

/// Stops the server of `folder` and waits until it has flushed and closed its files. The mount
/// point that a killed server has left is freed. Throws TFailure when nothing is served there, or
/// it cannot be stopped, also when it had to be cut off because it did not end in time.
void StopServer(const std::string& folder);

/// Whether a tree is shown at `folder`, as the system knows it: without links.
bool IsServed(const std::string& folder);
