#include "profiles/VarFolderLock.h"

#include <cerrno>
#include <map>
#include <memory>
#include <sys/stat.h>
#include <utility>

#include "QvConfig/Config.h"
#include "QvStd/FileLock.h"
#include "QvStd/Files.h"
#include "QvStd/Message.h"
#include "module/ModuleInitializer.h"

namespace
{
constexpr char kLockFile[] = ".lock";

/// A folder, however its path is spelled.
using TFolderKey = std::pair<dev_t, ino_t>;

/// The locks that this thread holds. Another thread has to wait for them as another process does.
std::map<TFolderKey, std::weak_ptr<TQvLockFile>>& HeldLocks()
{
    thread_local std::map<TFolderKey, std::weak_ptr<TQvLockFile>> locks;
    return locks;
}

[[noreturn]] void Throw(const TQvPath& folder, int reason, int* error)
{
    if (error != nullptr)
        *error = reason;
    throw QvLockMessage((folder / kLockFile).toSysStr(), -reason);
}

TFolderKey KeyOfE(const TQvPath& folder, int* error)
{
    struct stat status = {};
    if (stat(folder.toSysStr().c_str(), &status) != 0)
        Throw(folder, errno, error);
    return {status.st_dev, status.st_ino};
}

/// For the note in the lock file; a process id is only unique on its machine.
std::string Owner()
{
    return std::string(program_invocation_short_name) + "@" + TQvConfigData().getComputerName();
}
} // namespace

TQvVarFolderLock::TQvVarFolderLock(const TQvPath& varFolder, unsigned long timeoutMs, int* error)
{
    if (error != nullptr)
        *error = EINVAL;
    if (!varFolder.isPathValid())
        throw TQvMessage(QvResourceString("global.MustSetVarFolder"));
    // The lock file needs the folder; the first set-up creates both.
    if (const TQvResult made = QvForceDirectories(varFolder.toSysStr(), true); !made)
        Throw(varFolder, made.Error(), error);
    // Weak, so that the last user of the lock on this thread releases it.
    std::weak_ptr<TQvLockFile>& held = HeldLocks()[KeyOfE(varFolder, error)];
    m_lock = held.lock();
    // A second lock of this thread would wait for the first one until the time-out.
    if (m_lock)
        return;
    const std::string file = (varFolder / kLockFile).toSysStr();
    m_lock = TQvLockFile::VCreate(file, true, Owner(), timeoutMs);
    if (!*m_lock)
        Throw(varFolder, -m_lock->getError(), error);
    held = m_lock;
}

TQvVarFolderLock::~TQvVarFolderLock() = default;
