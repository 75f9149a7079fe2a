/// @file
/// Done markers: a marker, whose name is that of a resource or URL with ".done" appended, says
/// whether a step on it succeeded.
///
/// A marker contains exactly "ok" or "fail". The functions that read and write take the marker's
/// own id or URL. None throws on a missing or unreadable marker.
///
/// Thread-safety: as the manager's operations on the marker.
#pragma once

#include <string>

#include "QvServicesExport.h"
#include "QvStd/URL.h"

/// The id of the marker of a resource: `resId` and ".done".
QVSERVICES_API std::string GetDoneResId(const std::string& resId);
/// The URL of the marker of the resource at `url`.
QVSERVICES_API TQvURL GetDoneURL(const TQvURL& url);

/// True when the marker was read; `*ok` is its content, and false otherwise. Its first 15 bytes
/// count.
QVSERVICES_API bool GetResDoneResult(const std::string& doneResId, bool* ok);
/// The same for a URL of any scheme.
QVSERVICES_API bool GetDoneResult(const TQvURL& doneUrl, bool* ok);

/// True when the marker is written and on the disk.
QVSERVICES_API bool SetResDoneResult(const std::string& doneResId, bool ok);
/// The same for a URL of any scheme.
QVSERVICES_API bool SetDoneResult(const TQvURL& doneUrl, bool ok);
