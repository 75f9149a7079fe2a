// Calls on whole folder trees: searching and removing.
#include "QvStd/Files.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "QvStd/Message.h"

namespace
{
struct TCloseFolder
{
    void operator()(DIR* folder) const
    {
        const int error = errno;
        closedir(folder);
        errno = error;
    }
};
using TFolder = std::unique_ptr<DIR, TCloseFolder>;

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

/// Null with errno when it does not open.
TFolder OpenFolder(int parent, const char* name, int flags)
{
    const int file = openat(parent, name, flags);
    if (file < 0)
        return nullptr;
    TFolder folder(fdopendir(file));
    if (folder == nullptr) {
        const int error = errno;
        close(file);
        errno = error;
    }
    return folder;
}

std::string SystemText(int error)
{
    return std::generic_category().message(error);
}

struct TEntry
{
    std::string Name;
    unsigned char Type; ///< DT_...
};

/// The type of what `folder` holds under `name`; DT_UNKNOWN when it is gone or cannot be asked.
unsigned char TypeOf(int folder, const char* name, int flags)
{
    struct stat status = {};
    if (fstatat(folder, name, &status, flags) != 0)
        return DT_UNKNOWN;
    return static_cast<unsigned char>(IFTODT(status.st_mode));
}

/// Everything in a folder but "." and "..".
bool ReadEntries(DIR* folder, std::vector<TEntry>* entries, TQvProgressHandler* progress)
{
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(folder);
        if (entry == nullptr)
            return errno == 0;
        QvPollProgress(progress);
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        // Not every file system tells the type with the name.
        const unsigned char type = entry->d_type != DT_UNKNOWN
                                       ? entry->d_type
                                       : TypeOf(dirfd(folder), entry->d_name, AT_SYMLINK_NOFOLLOW);
        entries->push_back({std::string(name), type});
    }
}

/// The length of the character that `text` begins with.
std::size_t CharacterLength(std::string_view text)
{
    std::size_t length = 1;
    while (length < text.size() && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80)
        ++length;
    return length;
}

bool MatchesMask(std::string_view name, std::string_view mask)
{
    std::size_t atName = 0;
    std::size_t atMask = 0;
    std::size_t retryName = 0;
    std::size_t afterStar = std::string_view::npos;
    while (atName < name.size()) {
        if (atMask < mask.size() && mask[atMask] == '*') {
            afterStar = ++atMask;
            retryName = atName;
        } else if (atMask < mask.size() && mask[atMask] == '?') {
            ++atMask;
            atName += CharacterLength(name.substr(atName));
        } else if (atMask < mask.size() && mask[atMask] == name[atName]) {
            ++atMask;
            ++atName;
        } else if (afterStar != std::string_view::npos) {
            // The last star takes one character more; earlier ones never need to.
            atMask = afterStar;
            retryName += CharacterLength(name.substr(retryName));
            atName = retryName;
        } else {
            return false;
        }
    }
    return mask.find_first_not_of('*', atMask) == std::string_view::npos;
}

struct TSearch
{
    std::string Mask;
    bool MatchesAll;
    bool WithFolders;
    bool Recursive;
    TQvProgressHandler* Progress;
    std::vector<std::string> Found;
};

bool IsListed(const TSearch& search, int folder, const TEntry& entry)
{
    if (!search.MatchesAll && !MatchesMask(entry.Name, search.Mask))
        return false;
    if (search.WithFolders)
        return true;
    const unsigned char type =
        entry.Type == DT_LNK ? TypeOf(folder, entry.Name.c_str(), 0) : entry.Type;
    return type != DT_DIR;
}

[[noreturn]] void ThrowUnreadable(const std::string& path, int error)
{
    throw QvMsg_helper("Err_ReadFolder_name") << path << SystemText(error);
}

void SearchFolder(TSearch& search, const std::string& path, int flags)
{
    TFolder folder = OpenFolder(AT_FDCWD, path.c_str(), flags);
    if (folder == nullptr && errno == ENOENT)
        return;
    std::vector<TEntry> entries;
    if (folder == nullptr || !ReadEntries(folder.get(), &entries, search.Progress))
        ThrowUnreadable(path, errno);
    std::sort(entries.begin(), entries.end(),
              [](const TEntry& a, const TEntry& b) { return a.Name < b.Name; });
    std::vector<bool> listed;
    for (const TEntry& entry : entries)
        listed.push_back(IsListed(search, dirfd(folder.get()), entry));
    folder.reset(); // the depth of a tree must not be bounded by the open files of a process

    const std::string start = path.back() == '/' ? path : path + '/';
    for (std::size_t i = 0; i < entries.size(); ++i) {
        std::string full = start + entries[i].Name;
        if (search.Recursive && entries[i].Type == DT_DIR) {
            if (listed[i])
                search.Found.push_back(full);
            SearchFolder(search, full, kOpenFolder | O_NOFOLLOW);
        } else if (listed[i]) {
            search.Found.push_back(std::move(full));
        }
    }
}

/// Lets the owner list, enter and change a folder. Where that is refused, the call that needed it
/// fails, and tells.
void MakeUsable(int folder)
{
    struct stat status = {};
    if (fstat(folder, &status) != 0 || (status.st_mode & S_IRWXU) == S_IRWXU)
        return;
    const mode_t mode = (status.st_mode & 07777) | S_IRWXU;
    // A descriptor that only names the folder takes the detour.
    if (fchmod(folder, mode) != 0 && errno == EBADF)
        chmod(("/proc/self/fd/" + std::to_string(folder)).c_str(), mode);
}

/// Removes trees by folder descriptors and names, never by paths: whoever exchanges a folder for a
/// link meanwhile cannot lead it elsewhere. Every `path` is for messages only.
class TTreeRemover
{
public:
    explicit TTreeRemover(bool force) : m_force(force) {}

    /// The first failure.
    int Error() const { return m_error; }
    const std::string& ErrorText() const { return m_errorText; }

    bool Note(int error, const std::string& path)
    {
        if (m_error == 0) {
            m_error = error;
            m_errorText = '"' + path + "\": " + SystemText(error);
        }
        return false;
    }

    bool Unlink(int parent, const char* name, int flags, const std::string& path)
    {
        // What somebody else removed meanwhile is removed.
        return unlinkat(parent, name, flags) == 0 || errno == ENOENT || Note(errno, path);
    }

    bool RemoveFolder(int parent, const char* name, std::string& path)
    {
        // Deeper than any path reaches: such a tree could only exhaust the stack.
        constexpr int kMaxDepth = 2048;
        if (m_depth == kMaxDepth)
            return Note(ENAMETOOLONG, path);
        ++m_depth;
        const bool emptied = RemoveContents(parent, name, path);
        --m_depth;
        return emptied && Unlink(parent, name, AT_REMOVEDIR, path);
    }

private:
    bool RemoveContents(int parent, const char* name, std::string& path)
    {
        const TFolder folder = Open(parent, name);
        if (folder == nullptr)
            return errno == ENOENT || Note(errno, path);
        // Read to the end before anything goes: a listing of a changing folder may skip entries.
        std::vector<TEntry> entries;
        if (!ReadEntries(folder.get(), &entries, nullptr))
            return Note(errno, path);
        bool emptied = true;
        const std::size_t length = path.size();
        for (const TEntry& entry : entries) {
            path.append(1, '/').append(entry.Name);
            const char* entryName = entry.Name.c_str();
            emptied &= entry.Type == DT_DIR ? RemoveFolder(dirfd(folder.get()), entryName, path)
                                            : Unlink(dirfd(folder.get()), entryName, 0, path);
            path.resize(length);
        }
        return emptied;
    }

    TFolder Open(int parent, const char* name) const
    {
        TFolder folder = OpenFolder(parent, name, kOpenFolder | O_NOFOLLOW);
        if (!m_force)
            return folder;
        if (folder == nullptr && errno == EACCES) {
            const int named = openat(parent, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (named < 0)
                return nullptr;
            MakeUsable(named);
            close(named);
            folder = OpenFolder(parent, name, kOpenFolder | O_NOFOLLOW);
        }
        if (folder != nullptr)
            MakeUsable(dirfd(folder.get()));
        return folder;
    }

    bool m_force;
    int m_depth = 0;
    int m_error = 0;
    std::string m_errorText;
};

/// Whether a path, without trailing separators, names a folder that may be removed as a whole.
bool MayBeRemoved(const std::string& path)
{
    const std::string last = path.substr(path.rfind('/') + 1);
    return !last.empty() && last != "." && last != ".." && path.find('\0') == std::string::npos;
}

void RemoveTop(TTreeRemover& remover, const std::string& path, bool recursive)
{
    std::string shown = path; // grows and moves while the tree is walked
    struct stat status = {};
    if (!MayBeRemoved(path))
        remover.Note(EINVAL, path);
    else if (lstat(path.c_str(), &status) != 0)
        remover.Note(errno, path);
    else if (S_ISLNK(status.st_mode))
        remover.Unlink(AT_FDCWD, path.c_str(), 0, path);
    else if (recursive && S_ISDIR(status.st_mode))
        remover.RemoveFolder(AT_FDCWD, path.c_str(), shown);
    else
        remover.Unlink(AT_FDCWD, path.c_str(), AT_REMOVEDIR, path);
}
} // namespace

bool QvRemoveDirectoryEx(const std::string& path, bool recursive, bool force,
                         std::string* errorText)
{
    const std::string plain = path.substr(0, path.find_last_not_of('/') + 1);
    TTreeRemover remover(force);
    RemoveTop(remover, plain, recursive);
    if (remover.Error() == 0)
        return true;
    if (errorText != nullptr)
        *errorText = remover.ErrorText();
    errno = remover.Error();
    return false;
}

std::vector<std::string> QvFindFiles(const std::string& folder, const std::string& mask,
                                     bool withFolders, bool recursive, TQvProgressHandler* progress)
{
    TSearch search{mask, mask == "*" || mask == "*.*", withFolders, recursive, progress, {}};
    SearchFolder(search, folder, kOpenFolder);
    return std::move(search.Found);
}
