// Turns the kernel's requests into operations of a TFileSystem, and their results into replies.
#pragma once

#define FUSE_USE_VERSION 312
#include <fuse_lowlevel.h>

#include "FileSystem.h"

/// The state that the requests of a session share.
struct TServed
{
    TFileSystem Files;
    double Timeout; ///< seconds that the kernel may keep names and attributes
};

/// The operations of a session whose user data is a TServed.
const fuse_lowlevel_ops& ServeCallbacks();
