/// @file
/// The log: events and failures that no result shows. A host sets a sink to show or store the
/// entries:
///
///     QvSetLogSink([](TQvLogKind kind, const TQvMessage& message, int level) {
///         if (level >= 5 || kind == TQvLogKind::Warning)
///             Append(message.what());
///     });
///
/// Thread-safety: writing is callable from any thread; lines are never mixed. A sink must not set
/// sinks. It is called under the log's lock; what it logs itself is dropped.
#pragma once

#include <functional>
#include <string>

#include "QvStd/Export.h"
#include "QvStd/Message.h"

/// What an entry is.
enum class TQvLogKind
{
    Info,   ///< what happened
    Warning ///< what failed although the work continued
};

/// Receives each entry; a higher `level` is more important.
using TQvLogSink = std::function<void(TQvLogKind kind, const TQvMessage& message, int level)>;

/// Replaces the sink and returns the one before. An empty sink means the default: standard error,
/// one line a message, for levels above the number in QV_LOG_LEVEL (5 when that is not set).
QVSTD_API TQvLogSink QvSetLogSink(TQvLogSink sink);

/// Writes one entry. The last argument is reserved and always 0. Never throws.
QVSTD_API void QvLogWriteInfo(const TQvMessage& message, int level, int reserved) noexcept;
/// As QvLogWriteInfo.
QVSTD_API void QvLogWriteWarning(const TQvMessage& message, int level, int reserved) noexcept;
