/// @file
/// Symbol visibility of libQvStd: everything is hidden unless it carries QVSTD_API. The attribute
/// is the same for the library and for its users, so that type information (exceptions, dynamic
/// casts) is shared across library borders.
#pragma once

/// What this library exports.
#define QVSTD_API __attribute__((visibility("default")))
