#include "QvStd/LockFile.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <chrono>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QvStd/FreshFile.h"
#include "QvStd/process/LockNote.h"

namespace
{
// The lock itself is one byte of the file. Waiters lock one of the next two, so that new requests
// yield to them: a waiting upgrade the first; of all others, one writer or any number of readers
// the second. None of these bytes needs to exist, and locking it never changes it.
constexpr off_t kLockByte = 0;
constexpr off_t kUpgradeByte = 1;
constexpr off_t kTurnByte = 2;

constexpr double kPatienceMs = 2000;
/// How often a lock is retried because its file was replaced meanwhile.
constexpr int kReplacedAtMost = 100;

/// Waits in sleeps that grow, so that a short lock is noticed soon and waiting for a long one is
/// cheap.
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

    /// After a long wait a request yields to no other: the process before it may be suspended.
    bool IsPatient() const { return m_left > m_impatientFrom; }
    /// Starts again with short sleeps.
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
/// it is refused, the old lock stays. 0 or a negative errno.
int SetLock(int descriptor, off_t byte, short kind)
{
    assert(descriptor >= 0 && byte >= kLockByte && byte <= kTurnByte);
    struct flock lock = {};
    lock.l_type = kind;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    return fcntl(descriptor, F_OFD_SETLK, &lock) == 0 ? 0 : -errno;
}

/// Takes the lock unless another process waits for one that conflicts with it: overlapping readers
/// could starve a writer, and a process that takes the lock again and again could starve all
/// others. Readers do not yield to readers. 0 or a negative errno.
int TakeUnlessOthersWait(int descriptor, short kind)
{
    struct flock waiting = {};
    waiting.l_type = kind;
    waiting.l_whence = SEEK_SET;
    waiting.l_start = kUpgradeByte;
    waiting.l_len = kTurnByte - kUpgradeByte + 1;
    // After an error the lock is tried all the same: that fails with the same error and reports it.
    if (fcntl(descriptor, F_OFD_GETLK, &waiting) == 0 && waiting.l_type != F_UNLCK)
        return -EAGAIN;
    return SetLock(descriptor, kLockByte, kind);
}

/// Waits in a queue; the head of the queue takes the lock as soon as it is free. Readers queue with
/// a shared lock, which needs no right to write. 0 or a negative errno.
int TakeInTurn(int descriptor, short kind, TWaiting* waiting)
{
    bool isHead = false;
    int error = -EAGAIN;
    while (error == -EAGAIN && waiting->Sleep()) {
        if (!isHead && SetLock(descriptor, kTurnByte, kind) == 0) {
            isHead = true;
            waiting->SleepShortly();
        }
        error = waiting->IsPatient() ? TakeUnlessOthersWait(descriptor, kind)
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
        if (descriptor < 0 && errno == EEXIST) // another process was faster
            descriptor = open(path.c_str(), O_RDWR | kFlags);
    }
    const int refused = descriptor < 0 ? errno : 0;
    if (readOnlyWillDo && (refused == EACCES || refused == EPERM || refused == EROFS)) {
        descriptor = open(path.c_str(), O_RDONLY | kFlags);
        if (descriptor < 0 && errno == ENOENT)
            errno = refused; // the reason why it could not be created is more useful than ENOENT
    }
    return descriptor;
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
    Release();
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
    m_holder.clear();
    m_error = forWriting ? Upgrade(waits) : SetLock(m_descriptor, kLockByte, F_RDLCK);
    if (m_error != 0)
        return false;
    m_exclusive = forWriting;
    WriteNote();
    return true;
}

/// Released first: its file is not the one at the path any more, so that it excludes no new
/// request.
bool TQvLockFile::Renew()
{
    Release();
    return Acquire(m_exclusive);
}

/// Each round locks the file that is at the path now: a lock on a replaced file protects nothing.
bool TQvLockFile::Acquire(bool forWriting)
{
    const short kind = forWriting ? F_WRLCK : F_RDLCK;
    TWaiting waiting(m_timeoutMs);
    m_holder.clear();
    for (int replaced = 0; replaced < kReplacedAtMost; ++replaced) {
        if (!OpenFile(forWriting))
            return false;
        m_error = TakeUnlessOthersWait(m_descriptor, kind);
        if (m_error == -EAGAIN)
            m_error = TakeInTurn(m_descriptor, kind, &waiting);
        if (m_error == -EAGAIN)
            ReadHolder();
        if (m_error == 0)
            m_error = CompareWithPath();
        if (m_error == 0)
            break;
        CloseFile();
        if (m_error != -ESTALE)
            return false;
    }
    m_held = m_error == 0;
    m_exclusive = forWriting;
    if (m_held)
        WriteNote();
    return m_held;
}

/// 0, -ESTALE when the locked file is not the one at the path, or why that cannot be found out.
int TQvLockFile::CompareWithPath() const
{
    return -QvCompareWithPath(m_path, m_file);
}

TQvResult TQvLockFile::IsAtPath() const
{
    const int error = m_held ? CompareWithPath() : -ESTALE;
    return error == 0 ? TQvResult::Done() : TQvResult::Failed(-error, m_path);
}

int TQvLockFile::Upgrade(bool waits)
{
    assert(m_held && !m_exclusive);
    int error = SetLock(m_descriptor, kLockByte, F_WRLCK);
    if (error == -EAGAIN && waits) {
        // Two upgrades would wait for each other's shared lock: the second one is refused here.
        error = SetLock(m_descriptor, kUpgradeByte, F_WRLCK);
        if (error != 0)
            return error == -EAGAIN ? -EDEADLK : error;
        TWaiting waiting(m_timeoutMs);
        do {
            error = SetLock(m_descriptor, kLockByte, F_WRLCK);
        } while (error == -EAGAIN && waiting.Sleep());
        SetLock(m_descriptor, kUpgradeByte, F_UNLCK);
    }
    if (error == -EAGAIN)
        ReadHolder();
    if (error == 0 && (error = CompareWithPath()) != 0)
        SetLock(m_descriptor, kLockByte, F_RDLCK);
    // EBADF: the file could only be opened for reading.
    return error == -EBADF ? -EACCES : error;
}

bool TQvLockFile::OpenFile(bool forWriting)
{
    assert(m_descriptor < 0); // else the old descriptor would keep its lock
    const bool isPath = m_path.find('\0') == std::string::npos;
    m_created = m_noted = false;
    m_process = getpid();
    if (isPath)
        m_descriptor = OpenOrCreate(m_path, !forWriting, &m_created);
    if (!isPath)
        m_error = -EINVAL;
    else if (m_descriptor < 0 || fstat(m_descriptor, &m_file) != 0)
        m_error = errno == ENXIO ? -EINVAL : -errno; // ENXIO: a socket
    else if (!S_ISREG(m_file.st_mode))
        m_error = S_ISDIR(m_file.st_mode) ? -EISDIR : -EINVAL;
    else
        return true;
    CloseFile();
    return false;
}

void TQvLockFile::Release()
{
    // Only the last holder writes that the lock is free. A forked child shares the parent's lock
    // and must change neither the lock nor the note.
    if (m_held && m_noted && m_process == getpid() &&
        (m_exclusive || SetLock(m_descriptor, kLockByte, F_WRLCK) == 0)) {
        const std::string& free = QvFreeLockNote();
        [[maybe_unused]] const ssize_t ignored = pwrite(m_descriptor, free.data(), free.size(), 0);
    }
    CloseFile();
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

void TQvLockFile::ReadHolder()
{
    const TQvLockHolder holder = QvReadLockHolder(QvReadLockNote(m_descriptor));
    // This process's own note of a shared lock does not name the other holders.
    if (!m_held || holder.Process != getpid())
        m_holder = holder.Text;
}

void TQvLockFile::WriteNote()
{
    assert(m_held); // else the note would replace that of the holder
    if (m_owner.empty())
        return;
    // An empty file that existed before may belong to another program.
    const std::string old = QvReadLockNote(m_descriptor);
    m_noted = m_noted || (old.empty() ? m_created : QvIsLockNote(old));
    if (!m_noted)
        return;
    // Not checked: the note is for people only, and the lock is valid without it (full disk, file
    // opened for reading only).
    const std::string note = QvMakeLockNote(m_owner);
    [[maybe_unused]] const ssize_t ignored = pwrite(m_descriptor, note.data(), note.size(), 0);
}
