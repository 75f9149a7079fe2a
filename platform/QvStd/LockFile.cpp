#include "QvStd/LockFile.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <string_view>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QvStd/Strings.h"

namespace
{
// The lock itself is one byte of the file. Those who wait hold one of the next two, so that
// newcomers let them pass: a waiting upgrade the first, one of all others the second. None of these
// bytes needs to exist, and locking it never changes it.
constexpr off_t kLockByte = 0;
constexpr off_t kUpgradeByte = 1;
constexpr off_t kTurnByte = 2;

constexpr char kNotePrefix[] = "lock held by ";
/// All notes are of one length, filled up with blanks: those who share a lock write at once, and a
/// long note must leave nothing behind a short one.
constexpr std::size_t kNoteLength = 256;
constexpr std::size_t kMaxOwner = 180;
constexpr double kPatienceMs = 2000;

/// Waits in short sleeps that grow, so that a short hold is noticed soon and a long one is cheap.
class TWaiting
{
public:
    explicit TWaiting(unsigned long timeoutMs)
        : m_left(static_cast<double>(timeoutMs)),
          m_impatientFrom(m_left - std::min(kPatienceMs, m_left / 2))
    {
    }

    /// Sleeps; false without a sleep when the time is over.
    bool Sleep()
    {
        // The clock is first asked here, so that an uncontended lock never does.
        const TClock::time_point now = TClock::now();
        if (m_before != TClock::time_point())
            m_left -= TMilliseconds(now - m_before).count();
        m_before = now;
        if (m_left <= 0)
            return false;
        std::this_thread::sleep_for(TMilliseconds(std::min(m_pause, m_left)));
        m_pause = std::min(m_pause * 2, kLongest);
        return true;
    }

    /// Who has waited for long lets nobody pass any more: the one before him may have been stopped.
    bool IsPatient() const { return m_left > m_impatientFrom; }
    /// The sleeps grow anew.
    void SleepShortly() { m_pause = kShortest; }

private:
    using TClock = std::chrono::steady_clock;
    using TMilliseconds = std::chrono::duration<double, std::milli>;
    static constexpr double kShortest = 0.05;
    static constexpr double kLongest = 10;
    TClock::time_point m_before;
    double m_left;
    double m_impatientFrom;
    double m_pause = kShortest;
};

/// Takes, changes or drops (F_UNLCK) the lock on one byte without waiting. A change is atomic: when
/// it is refused, what was held stays held. 0 or a negative errno.
int SetLock(int descriptor, off_t byte, short kind)
{
    struct flock lock = {};
    lock.l_type = kind;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return fcntl(descriptor, F_OFD_SETLK, &lock) == 0 ? 0 : -errno;
}

/// Takes the lock unless somebody else waits for it: overlapping readers could keep a writer out
/// for ever, and one who takes the lock again and again everybody. 0 or a negative errno.
int TakeUnlessOthersWait(int descriptor, short kind)
{
    struct flock waiting = {};
    waiting.l_type = F_WRLCK;
    waiting.l_whence = SEEK_SET;
    waiting.l_start = kUpgradeByte;
    waiting.l_len = kTurnByte - kUpgradeByte + 1;
    // An error counts as nobody: taking the lock meets it again and tells.
    if (fcntl(descriptor, F_OFD_GETLK, &waiting) == 0 && waiting.l_type != F_UNLCK)
        return -EAGAIN;
    return SetLock(descriptor, kLockByte, kind);
}

/// Waits in a queue, whose head takes the lock as soon as it is free. 0 or a negative errno.
int TakeInTurn(int descriptor, short kind, unsigned long timeoutMs)
{
    TWaiting waiting(timeoutMs);
    bool isHead = false; // never with a descriptor for reading only
    int error = -EAGAIN;
    while (error == -EAGAIN && waiting.Sleep()) {
        if (!isHead && SetLock(descriptor, kTurnByte, F_WRLCK) == 0) {
            isHead = true;
            waiting.SleepShortly();
        }
        error = waiting.IsPatient() ? TakeUnlessOthersWait(descriptor, kind)
                                    : SetLock(descriptor, kLockByte, kind);
    }
    if (isHead)
        SetLock(descriptor, kTurnByte, F_UNLCK);
    return error;
}

int OpenOrCreate(const std::string& path, bool readOnlyWillDo, bool* created)
{
    // O_NONBLOCK, so that a FIFO or a device answers at once. Creating is a second try: with
    // O_CREAT the kernel refuses to open other people's files in shared temporary folders.
    constexpr int kFlags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    int descriptor = open(path.c_str(), O_RDWR | kFlags);
    if (descriptor < 0 && errno == ENOENT) {
        descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | kFlags, 0666);
        *created = descriptor >= 0;
        if (descriptor < 0 && errno == EEXIST) // somebody was quicker
            descriptor = open(path.c_str(), O_RDWR | kFlags);
    }
    const int refused = descriptor < 0 ? errno : 0;
    if (readOnlyWillDo && (refused == EACCES || refused == EPERM || refused == EROFS)) {
        descriptor = open(path.c_str(), O_RDONLY | kFlags);
        if (descriptor < 0 && errno == ENOENT)
            errno = refused; // why it could not be created tells more than that it is not there
    }
    return descriptor;
}

/// Whether all of it is a note, so that nothing of others is overwritten.
bool IsNote(std::string_view content)
{
    return content.size() == kNoteLength &&
           content.substr(0, sizeof kNotePrefix - 1) == kNotePrefix &&
           content.find('\n') == content.size() - 1 &&
           content.find(" pid=") != std::string_view::npos &&
           content.find(" time=") != std::string_view::npos;
}

std::string MakeNote(const std::string& owner)
{
    std::string name = owner.substr(0, kMaxOwner);
    std::replace_if(
        name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, '?');
    const std::time_t now = std::time(nullptr);
    std::tm parts = {};
    gmtime_r(&now, &parts);
    // Not strftime, which looks at the time zone's file each time.
    std::string note =
        Korvadel::ssprintf("%sowner=%s pid=%d time=%04d-%02d-%02dT%02d:%02d:%02dZ", kNotePrefix,
                           name.c_str(), getpid(), parts.tm_year + 1900, parts.tm_mon + 1,
                           parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    note.resize(kNoteLength - 1, ' ');
    return note += '\n';
}
} // namespace

TQvLockFile::TQvLockFile(const std::string& path, bool forWriting, const std::string& owner,
                         unsigned long timeoutMs)
    : m_path(path), m_owner(owner), m_timeoutMs(timeoutMs)
{
    Acquire(forWriting);
}

TQvLockFile::~TQvLockFile()
{
    CloseFile();
}

var_a<TQvLockFile*> TQvLockFile::VCreate(const std::string& path, bool forWriting,
                                         const std::string& owner, unsigned long timeoutMs)
{
    return make_var<TQvLockFile>(path, forWriting, owner, timeoutMs);
}

bool TQvLockFile::Relock(bool forWriting, bool waits)
{
    if (!m_held)
        return Acquire(forWriting);
    if (m_exclusive == forWriting) {
        m_error = 0;
        return true;
    }
    m_error = forWriting ? Upgrade(waits) : SetLock(m_descriptor, kLockByte, F_RDLCK);
    if (m_error != 0)
        return false;
    m_exclusive = forWriting;
    WriteNote();
    return true;
}

bool TQvLockFile::Acquire(bool forWriting)
{
    if (!OpenFile(forWriting))
        return false;
    const short kind = forWriting ? F_WRLCK : F_RDLCK;
    m_error = TakeUnlessOthersWait(m_descriptor, kind);
    if (m_error == -EAGAIN)
        m_error = TakeInTurn(m_descriptor, kind, m_timeoutMs);
    if (m_error != 0) {
        CloseFile();
        return false;
    }
    m_held = true;
    m_exclusive = forWriting;
    WriteNote();
    return true;
}

int TQvLockFile::Upgrade(bool waits)
{
    int error = SetLock(m_descriptor, kLockByte, F_WRLCK);
    if (error == -EAGAIN && waits) {
        // Two upgrades would wait for each other's shared hold: the second one is refused here.
        error = SetLock(m_descriptor, kUpgradeByte, F_WRLCK);
        if (error != 0)
            return error == -EAGAIN ? -EDEADLK : error;
        TWaiting waiting(m_timeoutMs);
        do {
            error = SetLock(m_descriptor, kLockByte, F_WRLCK);
        } while (error == -EAGAIN && waiting.Sleep());
        SetLock(m_descriptor, kUpgradeByte, F_UNLCK);
    }
    // What the kernel says of a descriptor that could only be opened for reading.
    return error == -EBADF ? -EACCES : error;
}

bool TQvLockFile::OpenFile(bool forWriting)
{
    const bool isPath = m_path.find('\0') == std::string::npos;
    if (isPath)
        m_descriptor = OpenOrCreate(m_path, !forWriting, &m_created);
    struct stat status = {};
    if (!isPath || (m_descriptor < 0 && errno == ENXIO)) // of a socket
        m_error = -EINVAL;
    else if (m_descriptor < 0 || fstat(m_descriptor, &status) != 0)
        m_error = -errno;
    else if (S_ISDIR(status.st_mode))
        m_error = -EISDIR;
    else if (!S_ISREG(status.st_mode))
        m_error = -EINVAL;
    else
        return true;
    CloseFile();
    return false;
}

void TQvLockFile::CloseFile()
{
    // Closing releases the lock. It is not unlocked before, because a forked child that destroys
    // its copy of this object must not take the lock from its parent.
    if (m_descriptor >= 0)
        close(m_descriptor);
    m_descriptor = -1;
    m_held = false;
}

void TQvLockFile::WriteNote()
{
    if (m_owner.empty())
        return;
    char old[kNoteLength + 1];
    const ssize_t oldLength = pread(m_descriptor, old, sizeof old, 0);
    if (oldLength < 0)
        return;
    const std::string_view content(old, static_cast<std::size_t>(oldLength));
    // An empty file that was there before may be somebody's empty file.
    if (content.empty() ? !m_created : !IsNote(content))
        return;

    const std::string note = MakeNote(m_owner);
    if (content == note) // of the same second: a write would make the next sync a longer one
        return;
    // Not checked: the note is for people only, and a full disk or a file that could only be opened
    // for reading takes nothing from the lock.
    [[maybe_unused]] const ssize_t ignored = pwrite(m_descriptor, note.data(), note.size(), 0);
}
