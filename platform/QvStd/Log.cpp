#include "QvStd/Log.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace
{
constexpr int kDefaultLevel = 5;

std::mutex& SinkMutex()
{
    static std::mutex mutex;
    return mutex;
}

TQvLogSink& Sink()
{
    static TQvLogSink sink;
    return sink;
}

void WriteToStandardError(TQvLogKind kind, const TQvMessage& message, int level)
{
    const char* setting = std::getenv("QV_LOG_LEVEL");
    if (level <= (setting != nullptr ? std::atoi(setting) : kDefaultLevel))
        return;
    std::fprintf(stderr, "%s(%d): %s\n", kind == TQvLogKind::Info ? "info" : "warning", level,
                 message.what());
}

void Write(TQvLogKind kind, const TQvMessage& message, int level) noexcept
{
    try {
        const std::lock_guard<std::mutex> guard(SinkMutex());
        if (Sink())
            Sink()(kind, message, level);
        else
            WriteToStandardError(kind, message, level);
    } catch (...) {
        // A log that cannot be written must not end the work that it tells about.
    }
}
} // namespace

TQvLogSink QvSetLogSink(TQvLogSink sink)
{
    const std::lock_guard<std::mutex> guard(SinkMutex());
    std::swap(Sink(), sink);
    return sink;
}

void QvLogWriteInfo(const TQvMessage& message, int level, int) noexcept
{
    Write(TQvLogKind::Info, message, level);
}

void QvLogWriteWarning(const TQvMessage& message, int level, int) noexcept
{
    Write(TQvLogKind::Warning, message, level);
}
