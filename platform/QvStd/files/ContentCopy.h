// The bytes of one open file into another.
//
// Thread-safety: as the descriptors.
#pragma once

#include <cstdint>
#include <sys/stat.h>

#include "QvStd/Progress.h"

/// Reports the progress of a copy of `size` bytes to a handler (may be null). Throws TQvUserBreak.
class TQvCopyReport
{
public:
    TQvCopyReport(TQvProgressHandler* handler, std::uint64_t size)
        : m_progress(handler), m_size(size)
    {
    }

    void Advance(std::uint64_t bytes);
    void Whole();

private:
    TQvProgress m_progress;
    std::uint64_t m_size;
    std::uint64_t m_done = 0;
    std::uint64_t m_reported = 0;
};

/// How a copy ended: 0, or the errno of the side that failed.
struct TQvCopyError
{
    int Reading = 0;
    int Writing = 0;

    explicit operator bool() const { return Reading != 0 || Writing != 0; }
};

/// Copies the content of `from`, a regular file of which `status` was read, to the start of the
/// empty file `to`: by a reflink, else inside the kernel, else in blocks of 256 KiB. Holes stay
/// holes. When the source is truncated meanwhile, the copy ends at its new end. The positions of
/// both are undefined afterwards.
TQvCopyError QvCopyContent(int from, const struct stat& status, int to, TQvCopyReport& report);
