// Collects what is logged while it lives.
#pragma once

#include <string>
#include <vector>

#include "QvStd/Log.h"

class TLogCapture
{
public:
    TLogCapture();
    ~TLogCapture();
    TLogCapture(const TLogCapture&) = delete;
    TLogCapture& operator=(const TLogCapture&) = delete;

    struct TEntry
    {
        TQvLogKind Kind;
        std::string Text;  ///< as written, places unfilled
        std::string Shown; ///< as a person reads it
        int Level;
    };
    std::vector<TEntry> Entries;

private:
    TQvLogSink m_before;
};
