// Opening and closing files, and making new ones.
#include "FileSystem.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

int TFileSystem::Keep(TInode& inode, std::unique_ptr<TFileHandle> opened, TFileHandle** handle)
{
    *handle = opened.get();
    {
        const std::lock_guard<std::mutex> lock(m_handlesMutex);
        m_handles.insert(opened.get());
    }
    m_inodes.AddHandle(inode, *opened.release());
    return 0;
}

int TFileSystem::Open(TInode& inode, int flags, TFileHandle** handle)
{
    TNameHold hold;
    TPlace place;
    std::unique_ptr<TFileHandle> opened;
    // Truncated only after the check that it is the right file.
    const bool cuts = (flags & O_TRUNC) != 0;
    const bool isForReading = (flags & O_ACCMODE) == O_RDONLY;
    const int access = cuts && isForReading ? O_RDWR : flags & O_ACCMODE;
    struct stat status = {};
    int error = HoldName(inode, &hold, &place);
    if (error == ESTALE) {
        // Without a name it can be opened for as long as it is open anywhere.
        const TQvDescriptor copy = m_inodes.CopyDescriptor(inode);
        error = copy ? TFileHandle::Reopen(copy.Number(), access, &opened) : ESTALE;
    } else if (error == 0) {
        error = TFileHandle::Open(place.Id, access, &opened);
        if (error == 0 && fstat(opened->Descriptor(), &status) != 0)
            error = errno;
        if (error == 0 && !IsSame(inode, status))
            error = ESTALE;
    }
    if (error == 0 && cuts)
        error = opened->Truncate(0);
    return error != 0 ? error : Keep(inode, std::move(opened), handle);
}

int TFileSystem::Close(TInode& inode, TFileHandle* handle)
{
    {
        const std::lock_guard<std::mutex> lock(m_handlesMutex);
        m_handles.erase(handle);
    }
    m_inodes.RemoveHandle(inode, *handle);
    const std::unique_ptr<TFileHandle> closing(handle);
    return closing->Close();
}

int TFileSystem::CloseAll()
{
    const std::lock_guard<std::mutex> lock(m_handlesMutex);
    int first = 0;
    const auto note = [&first](int error) { first = first != 0 ? first : error; };
    for (TFileHandle* const handle : m_handles) {
        const std::unique_ptr<TFileHandle> closing(handle);
        note(closing->IsWritable() ? closing->Flush(false) : 0);
        note(closing->Close());
    }
    m_handles.clear();
    return first;
}

int TFileSystem::Create(TInode& parent, const std::string& name, mode_t mode, int flags,
                        TEntry* entry, TFileHandle** handle)
{
    TNameHold hold;
    TPlace place;
    if (const int error = HoldName(parent, name, &hold, &place))
        return error == ENOENT ? EPERM : error;
    if (parent.IsVirtual)
        return EROFS;
    std::unique_ptr<TFileHandle> opened;
    // Another process has just made it: the kernel then looks the name up again, and checks whether
    // it may be opened.
    if (const int error = TFileHandle::Create(place.Id, &opened))
        return error == EEXIST && (flags & O_EXCL) == 0 ? ESTALE : error;
    // The server's mask lets its owner alone see the file until it has its bits. A disk without
    // such bits refuses them (EPERM), and the file has those of the disk.
    if (fchmod(opened->Descriptor(), mode & 07777) != 0 && errno != EPERM)
        return errno;
    struct stat status = {};
    if (fstat(opened->Descriptor(), &status) != 0)
        return errno;
    *entry = Enter(parent, place, status);
    return Keep(*entry->Inode, std::move(opened), handle);
}
