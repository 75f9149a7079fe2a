// Calls on whole folder trees: searching and removing.
#include "QvStd/Files.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "QvStd/Descriptor.h"
#include "QvStd/FolderReader.h"
#include "QvStd/Message.h"
#include "QvStd/Strings.h"
#include "QvStd/files/FileNames.h"

namespace
{
struct TEntry
{
    std::string Name;
    unsigned char Type; ///< DT_...
};

/// The type of the entry `name` of `folder`; DT_UNKNOWN when it does not exist or cannot be
/// examined.
unsigned char TypeOf(int folder, const char* name, int flags)
{
    struct stat status = {};
    if (fstatat(folder, name, &status, flags) != 0)
        return DT_UNKNOWN;
    return static_cast<unsigned char>(IFTODT(status.st_mode));
}

TQvResult ReadEntries(TQvFolderReader& folder, std::vector<TEntry>* entries,
                      TQvProgressHandler* progress)
{
    TQvFolderEntry entry;
    while (folder.Next(&entry)) {
        QvPollProgress(progress);
        const unsigned char type =
            entry.Type != DT_UNKNOWN
                ? entry.Type
                : TypeOf(folder.Descriptor(), entry.Name.data(), AT_SYMLINK_NOFOLLOW);
        entries->push_back({std::string(entry.Name), type});
    }
    return folder.Result();
}

struct TSearch
{
    std::string Mask;
    bool MatchesAll;
    bool WithFolders;
    bool Recursive;
    TQvProgressHandler* Progress;
    std::vector<std::string>* Found;
};

bool IsListed(const TSearch& search, int folder, const TEntry& entry)
{
    if (!search.MatchesAll && !QvMatchesWildcards(entry.Name, search.Mask))
        return false;
    if (search.WithFolders)
        return true;
    const unsigned char type =
        entry.Type == DT_LNK ? TypeOf(folder, entry.Name.c_str(), 0) : entry.Type;
    return type != DT_DIR;
}

/// Only the top may be a link: others are listed and not entered, so that there are no loops.
TQvResult SearchFolder(TSearch& search, const std::string& path, bool isTop)
{
    TQvFolderReader folder;
    TQvResult result = folder.OpenAt(AT_FDCWD, path.c_str(), isTop);
    if (result.IsNothing())
        return TQvResult::Done();
    std::vector<TEntry> entries;
    if (result)
        result = ReadEntries(folder, &entries, search.Progress);
    if (!result)
        return TQvResult::Failed(result.Error(), path);
    std::sort(entries.begin(), entries.end(),
              [](const TEntry& a, const TEntry& b) { return a.Name < b.Name; });
    // Decided while the folder is open: a link is examined by its name in it.
    std::vector<bool> listed;
    listed.reserve(entries.size());
    for (const TEntry& entry : entries)
        listed.push_back(IsListed(search, folder.Descriptor(), entry));
    folder.Close(); // the depth of a tree must not be bounded by the open files of a process

    const std::string start = path.back() == '/' ? path : path + '/';
    for (std::size_t i = 0; result && i < entries.size(); ++i) {
        std::string full = start + entries[i].Name;
        if (listed[i])
            search.Found->push_back(full);
        // Found folders come before what is in them, as the sorted names do.
        if (search.Recursive && entries[i].Type == DT_DIR)
            result = SearchFolder(search, full, false);
    }
    return result;
}

/// Lets the owner list, enter and change a folder. When that is refused, the call that needs it
/// fails and reports the error.
void MakeUsable(int folder)
{
    struct stat status = {};
    if (fstat(folder, &status) != 0 || (status.st_mode & S_IRWXU) == S_IRWXU)
        return;
    // Nothing is taken away: others lose no access to a folder that is not removed in the end.
    const mode_t mode = (status.st_mode & 07777) | S_IRWXU;
    // A descriptor opened with O_PATH needs this detour.
    if (fchmod(folder, mode) != 0 && errno == EBADF)
        chmod(("/proc/self/fd/" + std::to_string(folder)).c_str(), mode);
}

/// Removes trees by folder descriptors and names, never by paths: a folder that is exchanged for a
/// link meanwhile is not followed. Every `path` is for messages only.
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
            m_errorText = '"' + path + "\": " + QvErrorText(error);
        }
        return false;
    }

    bool Unlink(int parent, const char* name, int flags, const std::string& path)
    {
        // Another process may have removed it already.
        return unlinkat(parent, name, flags) == 0 || errno == ENOENT || Note(errno, path);
    }

    /// A folder with everything in it. Only the descriptors of the deepest levels stay open, so
    /// that the depth is not bounded by the open files of a process.
    void RemoveFolder(int parent, const char* name, const std::string& path)
    {
        assert(m_levels.empty());
        m_path = path;
        Enter(parent, name);
        while (!m_levels.empty()) {
            TLevel& level = m_levels.back();
            if (level.Next < level.Entries.size())
                RemoveEntry(level.Entries[level.Next++]);
            else if (!Leave(parent))
                m_levels.clear();
        }
    }

private:
    struct TLevel
    {
        std::string Name;
        std::size_t PathLength = 0; ///< of the folder's own path
        TQvFolderReader Folder;     ///< closed while deeper levels need the descriptors
        TQvDescriptor Reopened;     ///< in its place after the return from there
        struct stat Status = {};
        std::vector<TEntry> Entries;
        std::size_t Next = 0;
        bool IsEmptied = true;

        int Number() const { return Folder ? Folder.Descriptor() : Reopened.Number(); }
    };

    void RemoveEntry(const TEntry& entry)
    {
        assert(entry.Name.find('/') == std::string::npos); // it would lead out of the folder
        const std::size_t length = m_path.size();
        m_path.append(1, '/').append(entry.Name);
        const int folder = m_levels.back().Number();
        const char* name = entry.Name.c_str();
        const std::size_t depth = m_levels.size();
        const bool done =
            entry.Type == DT_DIR ? Enter(folder, name) : Unlink(folder, name, 0, m_path);
        if (m_levels.size() == depth) {
            m_levels.back().IsEmptied &= done;
            m_path.resize(length);
        }
    }

    /// Opens and reads a folder and makes it the deepest level. True, too, when it has vanished.
    bool Enter(int parent, const char* name)
    {
        TLevel level;
        level.Name = name;
        level.PathLength = m_path.size();
        TQvResult result = Open(parent, name, level.Folder);
        if (result.IsNothing())
            return true;
        // Read to the end before anything is removed: reading a folder that changes may skip
        // entries.
        if (result && fstat(level.Number(), &level.Status) != 0)
            result = TQvResult::FromErrno();
        if (result)
            result = ReadEntries(level.Folder, &level.Entries, nullptr);
        if (!result)
            return Note(result.Error(), m_path);
        m_levels.push_back(std::move(level));
        // Most trees are less deep, and need no folder to be opened twice.
        constexpr std::size_t kOpenLevels = 16;
        if (m_levels.size() > kOpenLevels) {
            TLevel& upper = m_levels[m_levels.size() - 1 - kOpenLevels];
            upper.Folder.Close();
            upper.Reopened = TQvDescriptor();
        }
        return true;
    }

    /// Leaves the deepest level and removes it when it is empty. False when the level above cannot
    /// be opened again.
    bool Leave(int top)
    {
        assert(!m_levels.empty());
        const TLevel level = std::move(m_levels.back());
        m_levels.pop_back();
        if (!m_levels.empty() && m_levels.back().Number() < 0 && !Reopen(level.Number()))
            return Note(errno, m_path);
        const bool removed =
            level.IsEmptied && Unlink(m_levels.empty() ? top : m_levels.back().Number(),
                                      level.Name.c_str(), AT_REMOVEDIR, m_path);
        if (!m_levels.empty()) {
            m_levels.back().IsEmptied &= removed;
            assert(m_levels.back().PathLength <= m_path.size());
            m_path.resize(m_levels.back().PathLength);
        }
        return true;
    }

    /// The level above by its "..", unless the folder was moved meanwhile.
    bool Reopen(int below)
    {
        assert(!m_levels.empty() && below >= 0);
        TLevel& level = m_levels.back();
        // By "..", since the path may name another folder by now.
        TQvDescriptor upper(openat(below, "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
        struct stat status = {};
        if (!upper || fstat(upper.Number(), &status) != 0)
            return false;
        if (!QvIsSameInode(status, level.Status)) {
            errno = ESTALE;
            return false;
        }
        level.Reopened = std::move(upper);
        return true;
    }

    TQvResult Open(int parent, const char* name, TQvFolderReader& folder) const
    {
        TQvResult result = folder.OpenAt(parent, name, false);
        // Without force the rights of a folder decide, as for any other program.
        if (!m_force)
            return result;
        if (result.Error() == EACCES) {
            constexpr int kByName = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
            const TQvDescriptor named(openat(parent, name, kByName));
            if (!named)
                return TQvResult::FromErrno();
            MakeUsable(named.Number());
            result = folder.OpenAt(parent, name, false);
        }
        if (result)
            MakeUsable(folder.Descriptor());
        return result;
    }

    bool m_force;
    std::vector<TLevel> m_levels; ///< the folders on the way down, the deepest last
    std::string m_path;           ///< of what is worked on, for messages
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
    assert(path.empty() || path.back() != '/'); // else a link would be followed
    struct stat status = {};
    if (!MayBeRemoved(path))
        remover.Note(EINVAL, path);
    else if (lstat(path.c_str(), &status) != 0)
        remover.Note(errno, path);
    // Only the link is removed: its target may be in use.
    else if (S_ISLNK(status.st_mode))
        remover.Unlink(AT_FDCWD, path.c_str(), 0, path);
    else if (recursive && S_ISDIR(status.st_mode))
        remover.RemoveFolder(AT_FDCWD, path.c_str(), path);
    else
        remover.Unlink(AT_FDCWD, path.c_str(), AT_REMOVEDIR, path);
}
} // namespace

TQvResult QvRemoveDirectoryEx(const std::string& path, bool recursive, bool force,
                              std::string* errorText)
{
    const std::string plain = path.substr(0, path.find_last_not_of('/') + 1);
    TTreeRemover remover(force);
    RemoveTop(remover, plain, recursive);
    if (remover.Error() == 0)
        return TQvResult::Done();
    if (errorText != nullptr)
        *errorText = remover.ErrorText();
    errno = remover.Error();
    return TQvResult::Failed(remover.Error());
}

std::vector<std::string> QvFindFiles(const std::string& folder, const std::string& mask,
                                     bool withFolders, bool recursive, TQvProgressHandler* progress)
{
    std::vector<std::string> found;
    const TQvResult searched =
        QvSearchFiles(folder, mask, withFolders, recursive, &found, progress);
    if (!searched)
        throw QvMsg_helper("Err_ReadFolder_name")
            << searched.Name() << QvErrorText(searched.Error());
    return found;
}

TQvResult QvSearchFiles(const std::string& folder, const std::string& mask, bool withFolders,
                        bool recursive, std::vector<std::string>* found,
                        TQvProgressHandler* progress)
{
    TSearch search{mask, mask == "*" || mask == "*.*", withFolders, recursive, progress, found};
    return SearchFolder(search, folder, true);
}
