/// @file
/// Streams: the abstract stream, open and share modes, copying between streams.
///
/// Thread-safety: one stream belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "QvStd/Export.h"
#include "QvStd/Progress.h"

/// How a stream opens. Any other number never opens (error -22).
using qvOpenMode = int;
/// Writes from position 0, creating when missing, content kept: an append sets the position first.
inline constexpr qvOpenMode kQvOpenWriteOrCreate = 7;
inline constexpr qvOpenMode kQvOpenWrite = 8;  ///< write, must exist
inline constexpr qvOpenMode kQvOpenCreate = 9; ///< read and write, created or truncated
inline constexpr qvOpenMode kQvOpenRead = 10;  ///< read, must exist
inline constexpr qvOpenMode kQvOpenCreateNew =
    11; ///< read and write, created; fails when it exists
inline constexpr qvOpenMode kQvOpenReadWrite =
    12; ///< read and write, creating when missing, content kept

/// What other openers may do meanwhile. All bits set: they may share the file when they set all
/// bits, too; anything less locks the file exclusively. Applies between openers of this library, in
/// one process or in several.
using qvShareMode = std::uint32_t;
/// Shares the file with all openers that share it, too.
inline constexpr qvShareMode kQvShareAll = 0xFFFFFFFFu;

/// A sequence of bytes with a current position for reads and writes. Failures are in the results,
/// and getError has the last one:
///
///     char block[4096];
///     for (std::size_t count = 0; (count = stream->Read(block, sizeof block)) != 0;) {
///         if (count == TQvStream::invalid_value)
///             throw TQvMessage("@%1%") << QvErrorText(-stream->getError());
///         Use(block, count);
///     }
///
/// Destruction closes the stream and reports no errors: writers call Flush or Close first.
class QVSTD_API TQvStream
{
public:
    /// What Read and Write answer on failure.
    static constexpr std::size_t invalid_value = static_cast<std::size_t>(-1);
    /// What getSize answers on failure.
    static constexpr std::uint64_t invalid_value64 = static_cast<std::uint64_t>(-1);

    TQvStream() = default;
    TQvStream(const TQvStream&) = delete;
    TQvStream& operator=(const TQvStream&) = delete;
    virtual ~TQvStream();

    /// Whether the stream is open.
    virtual explicit operator bool() const = 0;
    /// Bytes read at the position, fewer than `count` only at the end of the stream or after an
    /// error that came after some bytes; `invalid_value` when nothing could be read because of an
    /// error.
    virtual std::size_t Read(void* buffer, std::size_t count) = 0;
    /// Bytes written at the position, fewer than `count` when an error came after some bytes (see
    /// getError); `invalid_value` when none could be written.
    virtual std::size_t Write(const void* buffer, std::size_t count) = 0;
    /// The size in bytes; `invalid_value64` on failure.
    virtual std::uint64_t getSize() const = 0;
    /// Truncates or extends (with zero bytes); the position is unchanged. False with getError.
    virtual bool setSize(std::uint64_t size) = 0;
    /// The position of the next read or write, in bytes from the start.
    virtual std::uint64_t getPosition() const = 0;
    /// Sets that position, also beyond the end; false on a closed stream.
    virtual bool setPosition(std::uint64_t position) = 0;
    /// Syncs what was written: after true the bytes, and the name of a new file, survive a power
    /// cut. False with getError.
    virtual bool Flush() = 0;
    /// Closes; false when closing reported an error, or nothing was open.
    virtual bool Close() = 0;
    /// 0, or the last failure as a negative errno.
    virtual int getError() const = 0;

    /// The name that messages about this stream show.
    const std::string& InfoName() const { return m_infoName ? *m_infoName : DefaultInfoName(); }
    /// Sets that name; openers do, to a resource's URL, for example.
    void SetInfoName(std::string name) { m_infoName = std::move(name); }

protected:
    /// The default name, until one is set: none.
    virtual const std::string& DefaultInfoName() const;

private:
    std::optional<std::string> m_infoName;
};

/// Passes everything from the position of `from` to its end to `take`, in blocks of at most 256
/// KiB. False on a read error (getError of `from`), or when `take` answers false. Polls `progress`
/// (may be null) at least every 8 MiB and reports positions when it is active; the last report is
/// always the whole. Throws TQvUserBreak.
QVSTD_API bool QvReadBlocks(TQvStream& from,
                            const std::function<bool(const char* bytes, std::size_t count)>& take,
                            TQvProgressHandler* progress);

/// Copies everything from the position of `from` to its end to the position of `to`. False on a
/// read or write error, a short write, or a user break; what was written until then stays in `to`.
/// Reflinks or in-kernel copies are not promised; blocks and progress are those of QvReadBlocks.
QVSTD_API bool QvCopyStream(TQvStream* from, TQvStream* to, TQvProgressHandler* progress);
