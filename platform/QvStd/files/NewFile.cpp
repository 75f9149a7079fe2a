#include "QvStd/NewFile.h"

#include <atomic>
#include <cassert>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <string_view>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "QvStd/Descriptor.h"
#include "QvStd/Files.h"
#include "QvStd/Strings.h"
#include "QvStd/files/ContentCopy.h"
#include "QvStd/files/FileNames.h"
#include "QvStd/files/FileOwner.h"
#include "QvStd/files/UnnamedFile.h"

namespace
{
constexpr mode_t kPermissionBits = 0777;
constexpr mode_t kNewFileBits = 0666;
constexpr std::size_t kMaxComponent = 255;
constexpr std::size_t kRandomDigits = 16;
constexpr std::string_view kTemporarySuffix = ".tmp";
/// What follows the target's name in a temporary name: ".", the digits and the suffix.
constexpr std::size_t kTemporaryEnd = 1 + kRandomDigits + kTemporarySuffix.size();

std::uint64_t NextRandom()
{
    static std::atomic<std::uint64_t> state = [] {
        std::uint64_t seed = 0;
        if (getrandom(&seed, sizeof seed, GRND_NONBLOCK) != sizeof seed)
            seed = static_cast<std::uint64_t>(std::time(nullptr)) << 32 ^
                   static_cast<std::uint64_t>(getpid());
        return seed;
    }();
    // SplitMix64; numbers that repeat (after a fork) only cost another try at the name.
    std::uint64_t value = state += 0x9E3779B97F4A7C15u;
    value = (value ^ value >> 30) * 0xBF58476D1CE4E5B9u;
    value = (value ^ value >> 27) * 0x94D049BB133111EBu;
    return value ^ value >> 31;
}

/// ".<name>.<random>.tmp" in the folder of `target`, the name cut between characters where it is
/// too long.
std::string TemporaryName(const std::string& target)
{
    const std::string folder = QvFolderPart(target);
    const std::string_view name = std::string_view(target).substr(folder.size());
    return (folder + '.')
        .append(QvCutUtf8(name, kMaxComponent - 1 - kTemporaryEnd))
        .append(Korvadel::ssprintf(".%016llx%s", static_cast<unsigned long long>(NextRandom()),
                                   kTemporarySuffix.data()));
}

/// Calls `make` with temporary names in the folder of `target` until it does not answer EEXIST.
template <class TMake>
int MakeTemporary(const std::string& target, std::string* name, const TMake& make)
{
    constexpr int kTries = 100;
    int made = -1;
    for (int i = 0; i < kTries && made < 0 && (i == 0 || errno == EEXIST); ++i) {
        *name = TemporaryName(target);
        made = make(name->c_str());
    }
    return made;
}

/// Whether the folder refuses a new file, or refuses to replace the old one.
bool KeepsItsFiles(int error)
{
    return error == EACCES || error == EPERM || error == EROFS || error == EBUSY;
}
} // namespace

struct TQvNewFile::TState
{
    ~TState()
    {
        const int error = errno;
        if (!Temporary.empty())
            unlink(Temporary.c_str());
        errno = error;
    }

    int Open();
    int OpenTarget();
    int CreateContent();
    int OpenUnnamedBeside(mode_t mode);
    int Dress(int file, bool isNew) const;
    int SetTime(int file) const;
    int Sync();
    int Publish();
    int NameIt();
    int LinkToTarget();
    int HideContent() const;
    int WriteInPlace();
    int DiscardUnclosed();

    TOptions Options;
    std::string Target;     ///< after all links
    TQvPlace Place;         ///< the target in its open folder, as long as that is the right one
    TQvDescriptor Existing; ///< the target, open for writing, with its share lock
    struct stat Old = {};
    bool IsSame = false;
    TQvDescriptor File;
    std::string Temporary; ///< the name that File has; "" while it has none
    bool IsInPlace = false;
    bool IsSynced = false;
    TQvDescriptor Folder; ///< to be synced after the rename
};

int TQvNewFile::TState::Open()
{
    assert(!Options.ExpectsNone || Options.FailIfExists || Options.Permissions);
    if (!Options.ExpectsNone)
        if (const int error = OpenTarget())
            return error;
    return IsSame ? 0 : CreateContent();
}

/// Examines the target.
int TQvNewFile::TState::OpenTarget()
{
    int error = QvOpenRegular(Target, O_WRONLY | O_NOFOLLOW, &Existing, &Old);
    if (error == ELOOP) {
        if (Options.FailIfExists)
            return EEXIST;
        if (!QvFollowLinks(&Target))
            return errno;
        error = QvOpenRegular(Target, O_WRONLY, &Existing, &Old);
    }
    if (error == ENOENT)
        return 0;
    if (Options.FailIfExists)
        return EEXIST;
    // Before the errors: a file that is its own source needs no right to be written.
    struct stat other = {};
    if (Options.NotOnto >= 0 && (error == 0 || stat(Target.c_str(), &Old) == 0)) {
        if (fstat(Options.NotOnto, &other) != 0)
            return errno;
        IsSame = QvIsSameInode(Old, other);
        if (IsSame)
            return 0;
    }
    if (error != 0 || Options.IsLockedByCaller)
        return error;
    return QvTakeShareLock(Existing.Number(), kQvShareAll);
}

/// A descriptor of an unnamed file in the folder of the target; -1 with errno.
int TQvNewFile::TState::OpenUnnamedBeside(mode_t mode)
{
    if (Options.Folder != nullptr && Options.ExpectsNone) {
        Place = Options.Folder->Locate(Target);
        const int file = Place.Folder == AT_FDCWD ? -1 : QvOpenUnnamed({}, mode, Place.Folder);
        if (file >= 0)
            return file;
        Place = {};
    }
    return QvOpenUnnamed(QvFolderPart(Target), mode);
}

int TQvNewFile::TState::CreateContent()
{
    int file = -1;
    if (!Existing)
        file = OpenUnnamedBeside(Options.Permissions.value_or(kNewFileBits));
    // A named file cannot tell, when it gets the target's name, whether there is a target.
    const bool needsUnnamed = Options.ExpectsNone && !Options.FailIfExists;
    const bool lacksUnnamed = file < 0 && !needsUnnamed && QvLacksUnnamedFiles(errno);
    const mode_t mode =
        Options.Permissions.value_or(Existing ? Old.st_mode & kPermissionBits : kNewFileBits);
    if (Existing || lacksUnnamed) {
        file = MakeTemporary(Target, &Temporary, [mode](const char* name) {
            return open(name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
        });
        if (file < 0)
            Temporary.clear();
    }
    if (file < 0 && Existing && KeepsItsFiles(errno)) {
        IsInPlace = true;
        file = QvOpenUnnamed(P_tmpdir, S_IRUSR | S_IWUSR);
    }
    if (file < 0)
        return errno;
    File = TQvDescriptor(file);
    if (!IsInPlace)
        return Dress(file, true);
    return 0;
}

/// Owner, attributes and permission bits, before there is any content that they protect.
int TQvNewFile::TState::Dress(int file, bool isNew) const
{
    const bool keepsOld = !Options.Permissions && Existing && isNew;
    mode_t mode = keepsOld ? Old.st_mode & kPermissionBits : Options.Permissions.value_or(0);
    struct stat owner = Old;
    if (Options.AttributesOf >= 0 && fstat(Options.AttributesOf, &owner) != 0)
        return errno;
    if (keepsOld || Options.AttributesOf >= 0)
        if (const int error = QvCopyOwner(owner, file, &mode))
            return error;
    if (Options.AttributesOf >= 0 && !QvCopyAttributes(Options.AttributesOf, file))
        return errno;
    if (!Options.Permissions && !keepsOld)
        return 0;
    // Not left to the creation: the umask, or a default of the folder, may have taken bits away.
    return fchmod(file, mode) == 0 || QvMayBeLeftOut(errno) ? 0 : errno;
}

int TQvNewFile::TState::SetTime(int file) const
{
    if (!Options.UpdateTime)
        return 0;
    const timespec times[2] = {{0, UTIME_OMIT}, *Options.UpdateTime};
    return futimens(file, times) == 0 ? 0 : errno;
}

int TQvNewFile::TState::Sync()
{
    if (IsSynced || fsync(File.Number()) == 0) {
        IsSynced = true;
        return 0;
    }
    return errno;
}

int TQvNewFile::TState::Publish()
{
    assert(!IsSame); // else the file would be replaced by an empty one
    if (IsInPlace)
        return WriteInPlace();
    if (const int error = SetTime(File.Number()))
        return error;
    if (Options.Synced) {
        if (const int error = Sync())
            return error;
        // Opened first: a folder that cannot be synced is refused while nothing has changed.
        Folder = QvOpenForSync(Target, File.Number());
        if (!Folder)
            return errno;
    }
    if (const int error = NameIt())
        return error;
    return !Options.Synced || QvSyncName(Folder.Number()) ? 0 : errno;
}

/// Gives the unnamed file the name of the target. -1 with errno.
int TQvNewFile::TState::LinkToTarget()
{
    assert(File && Temporary.empty());
    if (Place.Folder != AT_FDCWD &&
        QvLinkUnnamed(File.Number(), Place.Name.c_str(), Place.Folder) == 0)
        return 0;
    // When that fails in the open folder, try the path: there may be another folder now.
    Place = {AT_FDCWD, Target};
    return QvLinkUnnamed(File.Number(), Target.c_str());
}

int TQvNewFile::TState::NameIt()
{
    assert(!Options.Synced || IsSynced);
    if (Temporary.empty()) {
        if (LinkToTarget() == 0)
            return File.Close() ? 0 : DiscardUnclosed();
        if (errno != EEXIST || Options.FailIfExists)
            return errno;
        // Check the target and replace it like any other. When a link leads to another folder, the
        // file has the group and the default access rights of the wrong one.
        const std::string folder = QvFolderPart(Target);
        if (const int error = OpenTarget(); error != 0 || IsSame)
            return error;
        if (Options.ExpectsNone && QvFolderPart(Target) != folder)
            return EXDEV;
        const auto link = [this](const char* name) { return QvLinkUnnamed(File.Number(), name); };
        if (MakeTemporary(Target, &Temporary, link) != 0) {
            const int error = errno;
            Temporary.clear();
            return error;
        }
    }
    assert(!Temporary.empty());
    // Closed first: some file systems report a full disk only then.
    if (!File.Close())
        return errno;
    if (Options.FailIfExists ? QvRenameToFreeName(Temporary, Target)
                             : rename(Temporary.c_str(), Target.c_str()) == 0) {
        Temporary.clear();
        return 0;
    }
    const int error = errno;
    if (!Existing || !KeepsItsFiles(error))
        return error;
    File = TQvDescriptor(open(Temporary.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    return File ? WriteInPlace() : error;
}

/// The content may be incomplete: it must not stay under the name of the target.
int TQvNewFile::TState::DiscardUnclosed()
{
    const int error = errno;
    assert(Temporary.empty()); // the target's name is that of the new file
    if (IsSynced)
        return 0; // nothing was left to be written
    unlinkat(Place.Folder, Place.Name.c_str(), 0);
    return error;
}

/// Before content is written over another file: no user may see more of it than the source shows.
int TQvNewFile::TState::HideContent() const
{
    assert(Existing);
    constexpr mode_t kReadable = S_IRUSR | S_IRGRP | S_IROTH;
    const bool showsMore =
        Options.Permissions && (Old.st_mode & kReadable & ~*Options.Permissions) != 0;
    return !showsMore || fchmod(Existing.Number(), *Options.Permissions & kPermissionBits) == 0
               ? 0
               : errno;
}

int TQvNewFile::TState::WriteInPlace()
{
    assert(File && Existing);
    struct stat status = {};
    if (fstat(File.Number(), &status) != 0)
        return errno;
    if (const int error = HideContent())
        return error;
    if (ftruncate(Existing.Number(), 0) != 0) {
        const int uncut = errno;
        fchmod(Existing.Number(), Old.st_mode & kPermissionBits); // the old content stays
        return uncut;
    }
    TQvCopyReport silent(nullptr, 0);
    const TQvCopyError error = QvCopyContent(File.Number(), status, Existing.Number(), silent);
    if (error)
        return error.Writing != 0 ? error.Writing : error.Reading;
    if (const int undressed = Dress(Existing.Number(), false))
        return undressed;
    // Only the owner may set a time; the content is there nevertheless.
    const int time = SetTime(Existing.Number());
    if (time != 0 && !QvMayBeLeftOut(time))
        return time;
    if (Options.Synced && fsync(Existing.Number()) != 0)
        return errno;
    return Existing.Close() ? 0 : errno;
}

TQvNewFile::TQvNewFile() = default;
TQvNewFile::~TQvNewFile() = default;
TQvNewFile::TQvNewFile(TQvNewFile&&) noexcept = default;
TQvNewFile& TQvNewFile::operator=(TQvNewFile&&) noexcept = default;

TQvResult TQvNewFile::Answer(int error) const
{
    // ENOENT means that the folder is missing, which is a failure here.
    return error == 0 ? TQvResult::Done() : TQvResult::Failed(error, m_path);
}

TQvResult TQvNewFile::Open(const std::string& path, const TOptions& options)
{
    m_path = path;
    m_state = std::make_unique<TState>();
    m_state->Options = options;
    m_state->Target = path;
    const int error = m_state->Open();
    if (error != 0)
        m_state.reset();
    return Answer(error);
}

bool QvIsTemporaryName(std::string_view name)
{
    if (name.size() < 2 + kTemporaryEnd || name.front() != '.')
        return false;
    const std::string_view end = name.substr(name.size() - kTemporaryEnd);
    return end.front() == '.' &&
           end.find_first_not_of("0123456789abcdef", 1) == 1 + kRandomDigits &&
           end.substr(1 + kRandomDigits) == kTemporarySuffix;
}

bool TQvNewFile::IsSameFile() const
{
    return m_state && m_state->IsSame;
}

int TQvNewFile::Descriptor() const
{
    return m_state ? m_state->File.Number() : -1;
}

TQvResult TQvNewFile::Write(const void* bytes, std::size_t count)
{
    const char* next = static_cast<const char*>(bytes);
    while (count > 0) {
        const ssize_t done = QvRetryInterrupted([&] { return write(Descriptor(), next, count); });
        if (done <= 0)
            return Answer(done == 0 ? EIO : errno);
        next += done;
        count -= static_cast<std::size_t>(done);
    }
    return TQvResult::Done();
}

TQvResult TQvNewFile::Sync()
{
    return Answer(m_state ? m_state->Sync() : EBADF);
}

TQvResult TQvNewFile::Publish()
{
    TQvResult result = Answer(m_state ? m_state->Publish() : EBADF);
    m_state.reset();
    return result;
}
