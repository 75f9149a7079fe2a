/// @file
/// Reading the entries of one folder.
///
/// Thread-safety: one reader belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>

#include "QvStd/Export.h"
#include "QvStd/Result.h"

/// One entry of a folder.
struct TQvFolderEntry
{
    std::string_view Name;  ///< ends with a byte 0; valid until the next entry is read
    unsigned char Type = 0; ///< DT_...; DT_UNKNOWN where the file system does not report it
    ino_t Number = 0;       ///< of the inode
};

/// Reads a folder in the order of the file system, "." and ".." left out. Next is false at the end
/// and after a failure, and Result says which it was:
///
///     TQvFolderReader folder;
///     TQvResult result = folder.Open("/srv");
///     for (TQvFolderEntry entry; result && folder.Next(&entry);)
///         Use(entry.Name);
///     if (result)
///         result = folder.Result();
class QVSTD_API TQvFolderReader
{
public:
    TQvFolderReader() = default;
    /// Reads into a buffer of the caller, aligned for a dirent64, which must outlive the reader: 32
    /// KiB on the stack cost less time than on the heap.
    TQvFolderReader(char* buffer, std::size_t size) : m_buffer(buffer), m_bufferSize(size) {}
    ~TQvFolderReader();
    /// The other reader is closed then.
    TQvFolderReader(TQvFolderReader&& other) noexcept;
    /// Closes its own folder first; the other reader is closed then.
    TQvFolderReader& operator=(TQvFolderReader&& other) noexcept;

    /// Opens the folder `path` (a raw system path); a symbolic link is followed.
    TQvResult Open(const std::string& path);
    /// Opens the folder `name` of an open folder; a symbolic link fails (ELOOP or ENOTDIR) unless
    /// `followsLink`.
    TQvResult OpenAt(int folderDescriptor, const char* name, bool followsLink);
    /// Whether a folder is open.
    explicit operator bool() const { return m_descriptor >= 0; }
    /// Of the open folder, for `...at` calls; -1 when none is open.
    int Descriptor() const { return m_descriptor; }
    /// Frees the descriptor; the reader can open another folder.
    void Close();
    /// Next begins anew, with the entries that the folder has then.
    TQvResult Rewind();

    /// Fills `entry` with the next entry; false at the end and after a failure (Result).
    bool Next(TQvFolderEntry* entry);
    /// Done unless reading has failed.
    const TQvResult& Result() const { return m_result; }

private:
    bool Fill();

    int m_descriptor = -1;
    std::unique_ptr<char[]> m_ownBuffer;
    char* m_buffer = nullptr;
    std::size_t m_bufferSize = 0;
    std::size_t m_length = 0;
    std::size_t m_next = 0;
    TQvResult m_result;
};
