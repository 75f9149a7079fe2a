// An open file: a stream of the library, which respects the library's other openers, and the
// descriptor by which several threads read and write it at any offset at once.
//
// Thread-safety: callable from any thread, Close as the last call.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include <QvServices/QvServices.h>
#include <QvStd/Descriptor.h>
#include <QvStd/FileStream.h>

class TFileHandle
{
public:
    /// Opens with the access mode and O_TRUNC of `flags`. 0 or an errno.
    static int Open(const std::string& id, int flags, std::unique_ptr<TFileHandle>* handle);
    /// Opens what `descriptor` has open once more; it needs no name any more.
    static int Reopen(int descriptor, int flags, std::unique_ptr<TFileHandle>* handle);
    /// A new empty file, for reading and writing; EEXIST when the name is taken.
    static int Create(const std::string& id, std::unique_ptr<TFileHandle>* handle);

    int Descriptor() const { return m_both ? m_both.Number() : m_file->Descriptor(); }
    bool IsWritable() const { return m_isWritable; }
    /// Whether an error may show when a program closes the file that it has opened with `flags`:
    /// one that the disk has delayed, or that of a mapping, whose changes are written then.
    bool MayFailAtClose(int flags) const;

    // 0 or an errno each.
    /// All of it, unless the end of the file comes first. Less is never the answer to an error: the
    /// kernel would take it for the end.
    int Read(char* bytes, std::size_t count, off_t offset, std::size_t* got);
    /// `written` counts what was written before an error, too.
    int Write(const char* bytes, std::size_t count, off_t offset, bool atEnd, std::size_t* written);
    int Truncate(off_t size);
    /// Brings the content to the disk, with the name of a file that may be new; unless `dataOnly`
    /// the times and bits, too.
    int Flush(bool dataOnly);
    /// Closes the file and reports an error that the file system has delayed until then.
    int Check();
    int Close();

private:
    static int Take(var_a<TQvStream*> stream, int error, bool isWritable,
                    std::unique_ptr<TFileHandle>* handle);
    int Prepare(int flags);
    int AddReading();

    var_a<TQvStream*> m_stream;
    TQvFileStream* m_file = nullptr; ///< m_stream
    TQvDescriptor m_both; ///< the same file for reading and writing, if that was asked for
    bool m_isWritable = false;
    std::mutex m_streamMutex; ///< a stream belongs to one thread at a time
};
