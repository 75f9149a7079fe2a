#include "QvStd/Log.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace
{
constexpr long kDefaultLevel = 5;

std::mutex& SinkMutex()
{
    static std::mutex mutex;
    return mutex;
}

TQvLogSink& Sink()
{
    // Never destroyed: destructors of other modules may still log.
    static TQvLogSink& sink = *new TQvLogSink;
    return sink;
}

/// A value that is no number counts as not set.
long LevelSetting()
{
    const char* setting = std::getenv("QV_LOG_LEVEL");
    if (setting == nullptr)
        return kDefaultLevel;
    char* end = nullptr;
    const long level = std::strtol(setting, &end, 10);
    return end != setting && *end == '\0' ? level : kDefaultLevel;
}

void WriteToStandardError(TQvLogKind kind, const TQvMessage& message, int level)
{
    if (level <= LevelSetting())
        return;
    // One line for each message, whatever bytes a file name in it has.
    std::string text = message.what();
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, ' ');
    std::fprintf(stderr, "%s(%d): %s\n", kind == TQvLogKind::Info ? "info" : "warning", level,
                 text.c_str());
}

void Write(TQvLogKind kind, const TQvMessage& message, int level) noexcept
{
    // Entries that a sink itself logs, such as by looking up a text, are dropped: they would
    // deadlock.
    thread_local bool isWriting = false;
    if (isWriting)
        return;
    isWriting = true;
    try {
        const std::lock_guard<std::mutex> guard(SinkMutex());
        if (Sink())
            Sink()(kind, message, level);
        else
            WriteToStandardError(kind, message, level);
    } catch (...) {
        // A log that cannot be written must not end the work that it reports on.
    }
    isWriting = false;
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
