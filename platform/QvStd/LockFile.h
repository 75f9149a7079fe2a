// Locks between processes (and within one) on a file that stays where it is.
//
// Thread-safety: one lock object belongs to one thread at a time.
#pragma once

#include <string>

#include "QvStd/Export.h"
#include "QvStd/Var.h"

/// A shared or exclusive open-file-description lock. The lock of a killed holder is gone with it.
/// The holder writes owner, process id and time into the file, for people to read; one without an
/// owner's name writes nothing, and a file that holds anything else than such a note is locked but
/// never written to.
///
/// Those who wait get the lock one after another before newcomers do, in no fixed order; a waiting
/// upgrade (Relock) comes first. Newcomers step back for 2 s, or half of their time-out: no longer,
/// because who waits may have been stopped. (So overlapping shared holds that last longer can still
/// keep a writer out, and a time-out of 0 is refused for as long as anybody waits.) A thread that
/// holds a shared lock should not ask for a second one of the same file: it would step back for a
/// writer who waits for it.
///
/// Only regular files are locked (error -21 for a folder, -22 for others; none of them hangs). A
/// shared lock works on a file that can only be read. A forked child that lives on shares the
/// parent's hold until it ends or destroys its copy of the object.
class QVSTD_API TQvLockFile
{
public:
    /// Locks `path` (a raw system path), creating it when missing, waiting up to `timeoutMs`
    /// milliseconds. Exclusive when `forWriting`, else shared. operator bool tells the outcome.
    TQvLockFile(const std::string& path, bool forWriting, const std::string& owner,
                unsigned long timeoutMs);
    /// Releases the lock; the file stays.
    ~TQvLockFile();
    TQvLockFile(const TQvLockFile&) = delete;
    TQvLockFile& operator=(const TQvLockFile&) = delete;

    static var_a<TQvLockFile*> VCreate(const std::string& path, bool forWriting,
                                       const std::string& owner, unsigned long timeoutMs);

    /// Whether the lock is held.
    explicit operator bool() const { return m_held; }
    bool IsExclusive() const { return m_held && m_exclusive; }

    /// Changes the kind of the lock, waiting up to the time-out of construction. A shared hold
    /// becomes an exclusive one without ever being let go, so that no writer slips in between; a
    /// second holder that asks for the same meanwhile is refused at once (both would wait for each
    /// other) and keeps its shared hold. When nothing is held, this tries to gain the lock anew.
    /// False when it was not gained in time; what was held stays held. Without `waits` a shared
    /// hold beside others is refused at once.
    bool Relock(bool forWriting, bool waits = true);

    /// 0, or the failure of the last attempt as a negative errno (-11: somebody else held it;
    /// -35: somebody else waits for an upgrade).
    int getError() const { return m_error; }

private:
    bool Acquire(bool forWriting);
    int Upgrade(bool waits);
    bool OpenFile(bool forWriting);
    void CloseFile();
    void WriteNote();

    std::string m_path;
    std::string m_owner;
    unsigned long m_timeoutMs;
    int m_descriptor = -1;
    int m_error = 0;
    bool m_held = false;
    bool m_exclusive = false;
    bool m_created = false; ///< the file is new: nothing of others is in it
};
