/// @file
/// Symbol visibility of libQvServices: everything is hidden unless it carries QVSERVICES_API. The
/// attribute is the same for the library and for its users, so that type information is shared
/// across library borders.
#pragma once

/// What this library exports.
#define QVSERVICES_API __attribute__((visibility("default")))
