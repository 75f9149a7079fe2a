// Lets the kernel look up several names of one folder at once.
#pragma once

#define FUSE_USE_VERSION 312
#include <fuse_lowlevel.h>

/// After the session is mounted, before its first request is read. False with errno.
bool AllowParallelLookups(fuse_session* session);
