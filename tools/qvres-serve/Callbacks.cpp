#include "Callbacks.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "Identity.h"

namespace
{
TServed& Served(fuse_req_t request)
{
    return *static_cast<TServed*>(fuse_req_userdata(request));
}

TFileSystem& Files(fuse_req_t request)
{
    return Served(request).Files;
}

TInode& InodeOf(fuse_req_t request, fuse_ino_t number)
{
    return number == FUSE_ROOT_ID ? Files(request).Root() : *reinterpret_cast<TInode*>(number);
}

TFileHandle* HandleOf(const fuse_file_info* info)
{
    return info != nullptr ? reinterpret_cast<TFileHandle*>(info->fh) : nullptr;
}

TFolderHandle& FolderOf(const fuse_file_info* info)
{
    return *reinterpret_cast<TFolderHandle*>(info->fh);
}

/// Runs `work`, which replies itself when it answers 0. No exception leaves a callback.
template <class TWork>
void Answer(fuse_req_t request, const TWork& work)
{
    int error = EIO;
    try {
        error = work();
    } catch (const std::bad_alloc&) {
        error = ENOMEM;
    } catch (const std::system_error& failure) {
        error = failure.code().value();
    } catch (const std::exception&) {
        error = EIO;
    }
    if (error != 0)
        fuse_reply_err(request, error);
}

/// For what works by name: the disk checks the rights of the sender.
template <class TWork>
void AnswerAsCaller(fuse_req_t request, const TWork& work)
{
    Answer(request, [&] {
        const TCallerIdentity caller(request);
        return work();
    });
}

/// For what has no other result than its error.
template <class TWork>
void AnswerError(fuse_req_t request, const TWork& work)
{
    Answer(request, [&] {
        const int error = work();
        if (error == 0)
            fuse_reply_err(request, 0);
        return error;
    });
}

template <class TWork>
void AnswerErrorAsCaller(fuse_req_t request, const TWork& work)
{
    AnswerError(request, [&] {
        const TCallerIdentity caller(request);
        return work();
    });
}

fuse_entry_param EntryParam(fuse_req_t request, const TEntry& entry)
{
    fuse_entry_param param = {};
    param.ino = reinterpret_cast<fuse_ino_t>(entry.Inode);
    param.attr = entry.Status;
    param.attr_timeout = param.entry_timeout = Served(request).Timeout;
    return param;
}

/// When the reply does not reach the kernel, the kernel will not forget the inode later: do it
/// here.
int ReplyEntry(fuse_req_t request, const TEntry& entry)
{
    TFileSystem& files = Files(request);
    const fuse_entry_param param = EntryParam(request, entry);
    if (fuse_reply_entry(request, &param) != 0)
        files.Forget(*entry.Inode, 1);
    return 0;
}

void LookUp(fuse_req_t request, fuse_ino_t parent, const char* name)
{
    AnswerAsCaller(request, [&] {
        TEntry entry;
        const int error = Files(request).LookUp(InodeOf(request, parent), name, &entry);
        return error != 0 ? error : ReplyEntry(request, entry);
    });
}

void Forget(fuse_req_t request, fuse_ino_t inode, std::uint64_t count)
{
    Files(request).Forget(InodeOf(request, inode), count);
    fuse_reply_none(request);
}

void ForgetMany(fuse_req_t request, std::size_t count, fuse_forget_data* forgets)
{
    for (std::size_t i = 0; i < count; ++i)
        Files(request).Forget(InodeOf(request, forgets[i].ino), forgets[i].nlookup);
    fuse_reply_none(request);
}

void GetAttributes(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info)
{
    AnswerAsCaller(request, [&] {
        struct stat status = {};
        const int error =
            Files(request).GetStatus(InodeOf(request, inode), HandleOf(info), &status);
        if (error == 0)
            fuse_reply_attr(request, &status, Served(request).Timeout);
        return error;
    });
}

timespec TimeOf(int set, int now, int given, const timespec& time)
{
    timespec result = time;
    if ((set & now) != 0)
        result.tv_nsec = UTIME_NOW;
    else if ((set & given) == 0)
        result.tv_nsec = UTIME_OMIT;
    return result;
}

TChange ChangeOf(const struct stat& wanted, int set)
{
    TChange change;
    change.HasMode = (set & FUSE_SET_ATTR_MODE) != 0;
    change.Mode = wanted.st_mode & 07777;
    change.HasOwner = (set & (FUSE_SET_ATTR_UID | FUSE_SET_ATTR_GID)) != 0;
    if ((set & FUSE_SET_ATTR_UID) != 0)
        change.User = wanted.st_uid;
    if ((set & FUSE_SET_ATTR_GID) != 0)
        change.Group = wanted.st_gid;
    change.HasSize = (set & FUSE_SET_ATTR_SIZE) != 0;
    change.Size = wanted.st_size;
    change.HasTimes = (set & (FUSE_SET_ATTR_ATIME | FUSE_SET_ATTR_MTIME)) != 0;
    change.Times[0] = TimeOf(set, FUSE_SET_ATTR_ATIME_NOW, FUSE_SET_ATTR_ATIME, wanted.st_atim);
    change.Times[1] = TimeOf(set, FUSE_SET_ATTR_MTIME_NOW, FUSE_SET_ATTR_MTIME, wanted.st_mtim);
    return change;
}

void SetAttributes(fuse_req_t request, fuse_ino_t inode, struct stat* wanted, int set,
                   fuse_file_info* info)
{
    AnswerAsCaller(request, [&] {
        struct stat status = {};
        const int error = Files(request).Change(InodeOf(request, inode), HandleOf(info),
                                                ChangeOf(*wanted, set), &status);
        if (error == 0)
            fuse_reply_attr(request, &status, Served(request).Timeout);
        return error;
    });
}

void ReadLink(fuse_req_t request, fuse_ino_t inode)
{
    AnswerAsCaller(request, [&] {
        std::string target;
        const int error = Files(request).ReadLink(InodeOf(request, inode), &target);
        if (error == 0)
            fuse_reply_readlink(request, target.c_str());
        return error;
    });
}

void MakeNode(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode, dev_t)
{
    AnswerAsCaller(request, [&]() -> int {
        if (!S_ISREG(mode))
            return EPERM;
        TFileSystem& files = Files(request);
        TEntry entry;
        TFileHandle* handle = nullptr;
        int error = files.Create(InodeOf(request, parent), name, BitsFor(request, mode),
                                 O_RDWR | O_EXCL, &entry, &handle);
        if (error != 0)
            return error;
        error = files.Close(*entry.Inode, handle);
        if (error == 0)
            return ReplyEntry(request, entry);
        files.Forget(*entry.Inode, 1);
        return error;
    });
}

void MakeFolder(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode)
{
    AnswerAsCaller(request, [&] {
        TEntry entry;
        const int error = Files(request).MakeFolder(InodeOf(request, parent), name,
                                                    BitsFor(request, mode), &entry);
        return error != 0 ? error : ReplyEntry(request, entry);
    });
}

void Unlink(fuse_req_t request, fuse_ino_t parent, const char* name)
{
    AnswerErrorAsCaller(request,
                        [&] { return Files(request).Unlink(InodeOf(request, parent), name); });
}

void RemoveFolder(fuse_req_t request, fuse_ino_t parent, const char* name)
{
    AnswerErrorAsCaller(
        request, [&] { return Files(request).RemoveFolder(InodeOf(request, parent), name); });
}

/// The tree has no links.
void MakeSymLink(fuse_req_t request, const char*, fuse_ino_t, const char*)
{
    fuse_reply_err(request, EPERM);
}

void MakeHardLink(fuse_req_t request, fuse_ino_t, fuse_ino_t, const char*)
{
    fuse_reply_err(request, EPERM);
}

void Rename(fuse_req_t request, fuse_ino_t parent, const char* name, fuse_ino_t newParent,
            const char* newName, unsigned flags)
{
    AnswerErrorAsCaller(request, [&] {
        return Files(request).Rename(InodeOf(request, parent), name, InodeOf(request, newParent),
                                     newName, flags);
    });
}

void SetHandle(fuse_file_info* info, TFileHandle* handle)
{
    info->fh = reinterpret_cast<std::uint64_t>(handle);
    info->noflush = !handle->MayFailAtClose(info->flags);
}

void Open(fuse_req_t request, fuse_ino_t number, fuse_file_info* info)
{
    AnswerAsCaller(request, [&] {
        TFileSystem& files = Files(request);
        TInode& inode = InodeOf(request, number);
        TFileHandle* handle = nullptr;
        if (const int error = files.Open(inode, info->flags, &handle))
            return error;
        SetHandle(info, handle);
        if (fuse_reply_open(request, info) != 0)
            files.Close(inode, handle);
        return 0;
    });
}

void Create(fuse_req_t request, fuse_ino_t parent, const char* name, mode_t mode,
            fuse_file_info* info)
{
    AnswerAsCaller(request, [&] {
        TFileSystem& files = Files(request);
        TEntry entry;
        TFileHandle* handle = nullptr;
        const int error = files.Create(InodeOf(request, parent), name, BitsFor(request, mode),
                                       info->flags, &entry, &handle);
        if (error != 0)
            return error;
        SetHandle(info, handle);
        const fuse_entry_param param = EntryParam(request, entry);
        if (fuse_reply_create(request, &param, info) != 0) {
            files.Close(*entry.Inode, handle);
            files.Forget(*entry.Inode, 1);
        }
        return 0;
    });
}

void Read(fuse_req_t request, fuse_ino_t, std::size_t size, off_t offset, fuse_file_info* info)
{
    // One copy more than a splice, but faster than its pipes.
    thread_local std::vector<char> buffer;
    Answer(request, [&] {
        if (buffer.size() < size)
            buffer.resize(size);
        std::size_t got = 0;
        const int error = HandleOf(info)->Read(buffer.data(), size, offset, &got);
        if (error == 0)
            fuse_reply_buf(request, buffer.data(), got);
        return error;
    });
}

void Write(fuse_req_t request, fuse_ino_t, const char* bytes, std::size_t size, off_t offset,
           fuse_file_info* info)
{
    Answer(request, [&] {
        // A page of a shared mapping has its place, whatever handle it comes with.
        const bool isOfMapping = info->writepage != 0;
        const bool atEnd = (info->flags & O_APPEND) != 0 && !isOfMapping;
        std::size_t written = 0;
        const int error = HandleOf(info)->Write(bytes, size, offset, atEnd, &written);
        // A program sees that less was written. For a mapping only an error shows it.
        if (error != 0 && (written == 0 || isOfMapping))
            return error;
        fuse_reply_write(request, written);
        return 0;
    });
}

void Flush(fuse_req_t request, fuse_ino_t, fuse_file_info* info)
{
    AnswerError(request,
                [&] { return HandleOf(info)->IsWritable() ? HandleOf(info)->Check() : 0; });
}

void Release(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info)
{
    AnswerError(request,
                [&] { return Files(request).Close(InodeOf(request, inode), HandleOf(info)); });
}

void Sync(fuse_req_t request, fuse_ino_t, int dataOnly, fuse_file_info* info)
{
    AnswerError(request, [&] { return HandleOf(info)->Flush(dataOnly != 0); });
}

void Allocate(fuse_req_t request, fuse_ino_t, int mode, off_t offset, off_t length,
              fuse_file_info* info)
{
    AnswerError(request, [&] {
        return fallocate(HandleOf(info)->Descriptor(), mode, offset, length) == 0 ? 0 : errno;
    });
}

void Seek(fuse_req_t request, fuse_ino_t, off_t offset, int whence, fuse_file_info* info)
{
    Answer(request, [&] {
        const off_t found = lseek(HandleOf(info)->Descriptor(), offset, whence);
        if (found < 0)
            return errno;
        fuse_reply_lseek(request, found);
        return 0;
    });
}

void CopyRange(fuse_req_t request, fuse_ino_t, off_t fromOffset, fuse_file_info* from, fuse_ino_t,
               off_t toOffset, fuse_file_info* to, std::size_t length, int flags)
{
    Answer(request, [&] {
        const ssize_t copied =
            copy_file_range(HandleOf(from)->Descriptor(), &fromOffset, HandleOf(to)->Descriptor(),
                            &toOffset, length, static_cast<unsigned>(flags));
        if (copied < 0)
            return errno;
        fuse_reply_write(request, static_cast<std::size_t>(copied));
        return 0;
    });
}

void OpenFolder(fuse_req_t request, fuse_ino_t inode, fuse_file_info* info)
{
    AnswerAsCaller(request, [&] {
        std::unique_ptr<TFolderHandle> folder;
        if (const int error = Files(request).OpenFolder(InodeOf(request, inode), &folder))
            return error;
        // Not touched after the reply: another thread may close it by then.
        TFolderHandle* const opened = folder.release();
        info->fh = reinterpret_cast<std::uint64_t>(opened);
        if (fuse_reply_open(request, info) != 0)
            delete opened;
        return 0;
    });
}

/// The part of a listing that fits into one reply.
class TListing
{
public:
    TListing(fuse_req_t request, TInode& inode, TFolderHandle& folder, std::size_t room)
        : m_request(request), m_inode(inode), m_folder(folder), m_room(room)
    {
        if (m_buffer.size() < room)
            m_buffer.resize(room);
    }

    int Fill(std::size_t start)
    {
        for (std::size_t i = start; i < m_folder.Names.size() + kOwn; ++i)
            if (!(i < kOwn ? AddOwn(i) : AddName(m_folder.Names[i - kOwn], i + 1)))
                break;
        // The listed names come first, then the error of the rest.
        return m_used == 0 ? m_folder.Error : 0;
    }

    void Reply() { fuse_reply_buf(m_request, m_buffer.data(), m_used); }

private:
    static constexpr std::size_t kOwn = 2; ///< "." and ".."

    bool AddOwn(std::size_t index)
    {
        fuse_entry_param param = {};
        param.attr.st_mode = S_IFDIR;
        param.attr.st_ino = index + 1;
        return Add(index == 0 ? "." : "..", param, index + 1);
    }

    bool AddName(const TFolderHandle::TName& listed, std::size_t next)
    {
        const std::string& name = listed.Name;
        TEntry entry;
        int error = -1;
        if (m_folder.HasAttributes)
            error = Files(m_request).LookUpListed(m_inode, m_folder, name, &entry);
        if (error == ENOENT)
            return true; // vanished since it was listed
        // A name that cannot be resolved here is still a name of the folder.
        fuse_entry_param param = {};
        param.attr.st_ino = listed.Number != 0 ? listed.Number : next;
        param.attr.st_mode = listed.Kind;
        if (error == 0)
            param = EntryParam(m_request, entry);
        if (Add(name.c_str(), param, next))
            return true;
        if (error == 0)
            Files(m_request).Forget(*entry.Inode, 1);
        return false;
    }

    bool Add(const char* name, const fuse_entry_param& param, std::size_t next)
    {
        const std::size_t room = m_room - m_used;
        const std::size_t size = fuse_add_direntry_plus(m_request, m_buffer.data() + m_used, room,
                                                        name, &param, static_cast<off_t>(next));
        if (size > room)
            return false;
        m_used += size;
        return true;
    }

    fuse_req_t m_request;
    TInode& m_inode;
    TFolderHandle& m_folder;
    const std::size_t m_room;
    std::size_t m_used = 0;
    static thread_local std::vector<char> m_buffer; ///< making one for each reply costs more
};

thread_local std::vector<char> TListing::m_buffer;

void ReadFolder(fuse_req_t request, fuse_ino_t number, std::size_t size, off_t offset,
                fuse_file_info* info)
{
    AnswerAsCaller(request, [&] {
        TFolderHandle& folder = FolderOf(info);
        TInode& inode = InodeOf(request, number);
        TListing listing(request, inode, folder, size);
        int error = 0;
        {
            const std::lock_guard<std::mutex> lock(folder.Mutex);
            if (offset == 0)
                error = Files(request).ReadFolder(inode, folder);
            if (error == 0)
                error = listing.Fill(static_cast<std::size_t>(offset));
        }
        // After the lock is released: once the reply is sent, another thread may close the folder.
        if (error == 0)
            listing.Reply();
        return error;
    });
}

void ReleaseFolder(fuse_req_t request, fuse_ino_t, fuse_file_info* info)
{
    delete &FolderOf(info);
    fuse_reply_err(request, 0);
}

void SyncFolder(fuse_req_t request, fuse_ino_t, int, fuse_file_info* info)
{
    AnswerError(request, [&] {
        const TQvFolderReader& reader = FolderOf(info).Reader;
        return !reader || fsync(reader.Descriptor()) == 0 ? 0 : errno;
    });
}

void GetSpace(fuse_req_t request, fuse_ino_t inode)
{
    AnswerAsCaller(request, [&] {
        struct statvfs space = {};
        const int error = Files(request).GetSpace(InodeOf(request, inode), &space);
        if (error == 0)
            fuse_reply_statfs(request, &space);
        return error;
    });
}

void GetExtended(fuse_req_t request, fuse_ino_t inode, const char* name, std::size_t size)
{
    AnswerAsCaller(request, [&]() -> int {
        std::string value;
        if (const int error = Files(request).GetExtended(InodeOf(request, inode), name, &value))
            return error;
        if (size == 0)
            fuse_reply_xattr(request, value.size());
        else if (value.size() > size)
            return ERANGE;
        else
            fuse_reply_buf(request, value.data(), value.size());
        return 0;
    });
}

/// None is listed: tools that copy extended attributes would carry the computed ones along.
void ListExtended(fuse_req_t request, fuse_ino_t, std::size_t size)
{
    if (size == 0)
        fuse_reply_xattr(request, 0);
    else
        fuse_reply_buf(request, nullptr, 0);
}

void SetExtended(fuse_req_t request, fuse_ino_t, const char*, const char*, std::size_t, int)
{
    fuse_reply_err(request, ENOTSUP);
}

void RemoveExtended(fuse_req_t request, fuse_ino_t, const char*)
{
    fuse_reply_err(request, ENOTSUP);
}

void Start(void*, fuse_conn_info* connection)
{
    // The kernel itself takes set-user-id bits off a file that is written: a server of root would
    // leave them.
    connection->want &= ~static_cast<unsigned>(FUSE_CAP_HANDLE_KILLPRIV);
    // When attributes are worth their price is decided here (TInodes::WantsAttributes).
    connection->want &= ~static_cast<unsigned>(FUSE_CAP_READDIRPLUS_AUTO);
    // Written content is in memory already when it arrives.
    connection->want &= ~static_cast<unsigned>(FUSE_CAP_SPLICE_READ);
}

fuse_lowlevel_ops MakeCallbacks()
{
    fuse_lowlevel_ops callbacks = {};
    callbacks.init = &Start;
    callbacks.lookup = &LookUp;
    callbacks.forget = &Forget;
    callbacks.forget_multi = &ForgetMany;
    callbacks.getattr = &GetAttributes;
    callbacks.setattr = &SetAttributes;
    callbacks.readlink = &ReadLink;
    callbacks.mknod = &MakeNode;
    callbacks.mkdir = &MakeFolder;
    callbacks.unlink = &Unlink;
    callbacks.rmdir = &RemoveFolder;
    callbacks.symlink = &MakeSymLink;
    callbacks.link = &MakeHardLink;
    callbacks.rename = &Rename;
    callbacks.open = &Open;
    callbacks.create = &Create;
    callbacks.read = &Read;
    callbacks.write = &Write;
    callbacks.flush = &Flush;
    callbacks.release = &Release;
    callbacks.fsync = &Sync;
    callbacks.fallocate = &Allocate;
    callbacks.lseek = &Seek;
    callbacks.copy_file_range = &CopyRange;
    callbacks.opendir = &OpenFolder;
    callbacks.readdirplus = &ReadFolder;
    callbacks.releasedir = &ReleaseFolder;
    callbacks.fsyncdir = &SyncFolder;
    callbacks.statfs = &GetSpace;
    callbacks.getxattr = &GetExtended;
    callbacks.listxattr = &ListExtended;
    callbacks.setxattr = &SetExtended;
    callbacks.removexattr = &RemoveExtended;
    return callbacks;
}
} // namespace

const fuse_lowlevel_ops& ServeCallbacks()
{
    static const fuse_lowlevel_ops callbacks = MakeCallbacks();
    return callbacks;
}
