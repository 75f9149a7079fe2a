/// @file
/// The stream over a regular file.
///
/// Thread-safety: one stream belongs to one thread at a time.
#pragma once

#include <memory>
#include <string>

#include "QvStd/Path.h"
#include "QvStd/Stream.h"
#include "QvStd/Var.h"

/// Opens regular files only: a folder, FIFO, socket or device does not open (error -21 for a
/// folder, -22 for the others) and none of them hangs. Descriptors are close-on-exec. The share
/// mode is a shared or exclusive flock, never waited for: a refusal is error -13; a file system
/// without locks counts as granted. kQvOpenCreate truncates only after the lock is held.
///
/// Writes, and reads of 4 KiB and more, go straight to the system; smaller reads use a buffer that
/// is made on first need and dropped by a write: of 16 KiB, of 64 KiB when the reads go on.
class QVSTD_API TQvFileStream : public virtual TQvStream
{
public:
    TQvFileStream() = default;
    /// As Open; operator bool is the result.
    TQvFileStream(const TQvPath& path, qvOpenMode mode, qvShareMode share)
    {
        Open(path.toSysStr(), mode, share);
    }
    ~TQvFileStream() override;

    /// A new stream; its operator bool is false when it did not open.
    static var_a<TQvFileStream*> VCreate(const std::string& path, qvOpenMode mode,
                                         qvShareMode share);
    /// The same for a path.
    static var_a<TQvFileStream*> VCreate(const TQvPath& path, qvOpenMode mode, qvShareMode share)
    {
        return VCreate(path.toSysStr(), mode, share);
    }

    /// Opens `path` (a raw system path); a file that was open before is closed first, and errors of
    /// that are not reported. False with getError. A file that a creating mode has made stays, also
    /// when the lock is refused then.
    bool Open(const std::string& path, qvOpenMode mode, qvShareMode share);
    /// The same of a text that ends with a byte 0.
    bool Open(const char* path, qvOpenMode mode, qvShareMode share);

    /// The descriptor of the open file, which the stream still owns; -1 when none is open.
    int Descriptor() const { return m_descriptor; }
    explicit operator bool() const override { return m_descriptor >= 0; }
    /// As in TQvStream. Calls are repeated after signals and short reads.
    std::size_t Read(void* buffer, std::size_t count) override;
    /// As in TQvStream. Not buffered: other processes see the bytes when this returns, and they
    /// survive the end of the process.
    std::size_t Write(const void* buffer, std::size_t count) override;
    /// The size in bytes now, as other writers have made it.
    std::uint64_t getSize() const override;
    /// As in TQvStream; -27 (EFBIG) beyond the largest file size.
    bool setSize(std::uint64_t size) override;
    std::uint64_t getPosition() const override { return m_position; }
    /// As in TQvStream; -22 (EINVAL) beyond 2^63 - 1.
    bool setPosition(std::uint64_t position) override;
    /// As in TQvStream. For a file that was empty or missing when it was opened, its name in the
    /// folder is synced, too.
    bool Flush() override;
    /// Closes the file and releases its share lock. The stream can open another file then.
    bool Close() override;
    int getError() const override { return m_error; }

private:
    std::size_t ReadBuffered(char* buffer, std::size_t count);
    std::size_t ReadStraight(char* buffer, std::size_t count);
    std::size_t ReadAt(char* buffer, std::size_t count, std::uint64_t position) const;
    bool FillBuffer();
    bool Fail(int errorNumber) const;

    int m_descriptor = -1;
    mutable int m_error = 0;
    std::string m_unsyncedName; ///< of a file that may be new; "" once its folder was synced
    std::uint64_t m_position = 0;
    std::unique_ptr<char[]> m_buffer; ///< bytes of the file from m_bufferStart on
    std::uint64_t m_bufferStart = 0;
    std::size_t m_bufferLength = 0;
    std::size_t m_bufferSize = 0;
};
