#include "LogWarnings.h"

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <vector>

#include <QvStd/Log.h>

#include "Output.h"

namespace
{
constexpr int kLeastLevel = 6; ///< below, it is for developers

std::mutex g_mutex;
std::vector<std::string> g_warnings;

void Keep(TQvLogKind kind, const TQvMessage& message, int level)
{
    std::string text = message.what();
    if (kind != TQvLogKind::Warning || level < kLeastLevel || text.empty())
        return;
    if (text.back() == '.')
        text.pop_back();
    const std::lock_guard<std::mutex> guard(g_mutex);
    if (std::find(g_warnings.begin(), g_warnings.end(), text) == g_warnings.end())
        g_warnings.push_back(text);
}
} // namespace

void LogWarnings::Collect()
{
    const char* const level = std::getenv("QV_LOG_LEVEL");
    if (level == nullptr || *level == '\0')
        QvSetLogSink(&Keep);
}

std::string LogWarnings::WithLast(std::string message)
{
    const std::lock_guard<std::mutex> guard(g_mutex);
    if (g_warnings.empty())
        return message;
    if (!message.empty() && message.back() == '.')
        message.pop_back();
    return message + ": " + g_warnings.back();
}

void LogWarnings::PrintUnsaid()
{
    const std::lock_guard<std::mutex> guard(g_mutex);
    for (const std::string& text : g_warnings)
        if (!WasPrinted(text))
            PrintError("warning: " + text);
    g_warnings.clear();
}

void LogWarnings::Drop(const std::string& cause)
{
    const std::lock_guard<std::mutex> guard(g_mutex);
    g_warnings.erase(std::remove_if(g_warnings.begin(), g_warnings.end(),
                                    [&cause](const std::string& warning) {
                                        return warning.find(cause) != std::string::npos;
                                    }),
                     g_warnings.end());
}
