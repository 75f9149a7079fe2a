// Collects what is logged while it lives.
#pragma once

#include <string>
#include <vector>

#include "QvStd/Log.h"

class TLogCapture
{
public:
    TLogCapture() = default;
    TLogCapture(const TLogCapture&) = delete;
    ~TLogCapture() { QvSetLogSink(m_before); }

    struct TEntry
    {
        TQvLogKind Kind;
        std::string Text;  ///< as written, places unfilled
        std::string Shown; ///< as a person reads it
        int Level;
    };
    std::vector<TEntry> Entries;

private:
    TQvLogSink m_before =
        QvSetLogSink([this](TQvLogKind kind, const TQvMessage& message, int level) {
            Entries.push_back({kind, message.text(), message.what(), level});
        });
};
