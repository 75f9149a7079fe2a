/// @file
/// Locks between processes (and within one) on a file that stays where it is.
///
/// Thread-safety: one lock object belongs to one thread at a time.
#pragma once

#include <string>
#include <sys/stat.h>
#include <sys/types.h>

#include "QvStd/Export.h"
#include "QvStd/Result.h"
#include "QvStd/Var.h"

/// A shared or exclusive open-file-description lock:
///
///     TQvLockFile lock("/srv/data.lock", true, "host-7", 5000);
///     if (!lock)
///         return Refuse(lock.getHolder(), lock.getError());
///     ... // read, change and write; the destructor releases the lock
///
/// The lock of a killed process is released. The
/// holder writes owner, process id and time into the file, for people to read, and "lock free" when
/// it releases the lock and no other process shares it. Only the lock counts: the note of a killed
/// holder stays. A lock without an owner's name writes nothing, and a file with any other content
/// is locked but never written to.
///
/// The lock excludes others only while its file is the one at the path. This is checked when the
/// lock is gained, and the new file is locked when the old one was replaced or deleted; IsAtPath
/// checks it later.
///
/// Waiters get the lock before new requests do, in no fixed order; a waiting upgrade (Relock) comes
/// first. New requests yield to waiters for 2 s at most, or half of their time-out, since a waiter
/// may be suspended. (So overlapping shared locks that are held longer can still starve a writer,
/// and a time-out of 0 is refused while a conflicting request waits.) A thread that holds a shared
/// lock should not ask for a second one of the same file: it would yield to a writer that waits
/// for the first.
///
/// Only regular files are locked (error -21 for a folder, -22 for others; none of them hangs). A
/// shared lock needs only the right to read, also for waiting in the queue. A forked child that
/// lives on shares the parent's lock until it ends or destroys its copy of the object.
class QVSTD_API TQvLockFile
{
public:
    /// Locks `path` (a raw system path), creating it when missing, waiting up to `timeoutMs`
    /// milliseconds. Exclusive when `forWriting`, else shared. operator bool is false when it was
    /// not gained.
    TQvLockFile(const std::string& path, bool forWriting, const std::string& owner,
                unsigned long timeoutMs);
    /// Releases the lock; the file stays.
    ~TQvLockFile();
    TQvLockFile(const TQvLockFile&) = delete;
    TQvLockFile& operator=(const TQvLockFile&) = delete;

    /// As the constructor, shared.
    static var_a<TQvLockFile*> VCreate(const std::string& path, bool forWriting,
                                       const std::string& owner, unsigned long timeoutMs);

    /// Whether the lock is held.
    explicit operator bool() const { return m_held; }
    /// Whether an exclusive lock is held.
    bool IsExclusive() const { return m_held && m_exclusive; }
    /// Done while the lock is held and its file is the one at the path, as the file system's server
    /// sees it. Failed with ESTALE when it is not, else with why that cannot be found out.
    TQvResult IsAtPath() const;

    /// Changes the kind of the lock, waiting up to the time-out of construction. The upgrade of a
    /// shared lock never releases it, so no writer can get in between; a second upgrade at the same
    /// time is refused at once (both would wait for each other) and keeps its shared lock. Without
    /// a lock, this tries to gain one. False when it was not gained in time, or when the file is no
    /// longer the one at the path; the lock stays as it was. Without `waits` an upgrade is refused
    /// at once when other processes share the lock.
    bool Relock(bool forWriting, bool waits = true);
    /// Releases the lock and takes one of the same kind on the file that is at the path now. False
    /// when it was not gained in time; the object has no lock then.
    bool Renew();

    /// 0, or the failure of the last attempt as a negative errno (-11: another process or object
    /// has the lock; -35: another one waits for an upgrade; -116: the file was replaced).
    int getError() const { return m_error; }
    /// The holder that refused the last attempt, "NAME (process 12, since 2024-03-05T14:07:09Z)" as
    /// the note says; "" when it was not refused or there is no such note. Of several that share
    /// the lock the note names one.
    const std::string& getHolder() const { return m_holder; }

private:
    bool Acquire(bool forWriting);
    int Upgrade(bool waits);
    bool OpenFile(bool forWriting);
    int CompareWithPath() const;
    void Release();
    void CloseFile();
    void ReadHolder();
    void WriteNote();

    std::string m_path;
    std::string m_owner;
    unsigned long m_timeoutMs;
    std::string m_holder;
    int m_descriptor = -1;
    struct stat m_file = {};
    int m_error = 0;
    pid_t m_process = 0; ///< which took the lock; a forked child must not release it
    bool m_held = false;
    bool m_exclusive = false;
    bool m_created = false; ///< the file is new: no other program has written to it
    bool m_noted = false;   ///< the file has no content but notes
};
