#include "QvStd/Registry.h"

#include <cerrno>
#include <cstdlib>

#include "QvStd/FileLock.h"
#include "QvStd/Files.h"
#include "QvStd/LockFile.h"
#include "QvStd/Log.h"
#include "QvStd/Message.h"
#include "QvStd/Result.h"
#include "QvStd/Strings.h"
#include "QvStd/XIniTree.h"
#include "QvStd/XIniWriter.h"

namespace
{
using Kind = TQvXIniEntry::Kind;

/// A change takes milliseconds: after this time its process is suspended, or the server does not
/// answer.
constexpr unsigned long kLockTimeoutMs = 10000;
constexpr int kWarningLevel = 6;

const TQvXIniEntry* Find(const TQvXIniEntry& section, const std::string& name, Kind kind)
{
    const std::string upper = toupper_locale(name);
    for (const auto& entry : section.Children) {
        if (entry->Type == kind && toupper_locale(entry->Name) == upper)
            return entry.get();
    }
    return nullptr;
}

const TQvXIniEntry* FindValue(const TQvXIniTree& tree, const std::string& key,
                              const std::string& valueName)
{
    const TQvXIniEntry* section = Find(tree.Root, key, Kind::Section);
    return section != nullptr ? Find(*section, valueName, Kind::Key) : nullptr;
}

/// A missing file reads as an empty tree. An unusable one is logged and gives no tree, so that it
/// is never overwritten unread; `failure` (may be null) receives the errno then.
var_a<TQvXIniTree*> ReadFile(const std::string& path, int* failure = nullptr)
{
    std::string content;
    std::string error;
    if (path.empty()) // no home folder
        return make_var<TQvXIniTree>();
    if (!QvReadWholeFile(path, &content)) {
        if (errno == ENOENT || errno == ENOTDIR)
            return make_var<TQvXIniTree>();
        const int unread = errno;
        if (failure != nullptr)
            *failure = unread;
        QvLogWriteWarning(TQvMessage("Err_ReadFile_name") << path << QvErrorText(unread),
                          kWarningLevel, 0);
        return nullptr;
    }
    var_a<TQvXIniTree*> tree = QvParseXIniTree(content, &error);
    if (!tree) {
        if (failure != nullptr)
            *failure = EBADMSG;
        QvLogWriteWarning(TQvMessage("Err_XIniParse_name") << path << error, kWarningLevel, 0);
    }
    return tree;
}

bool WriteFile(const std::string& path, const TQvXIniTree& tree)
{
    if (QvWriteFileAtomically(path, QvFormatXIniTree(tree)))
        return true;
    QvLogWriteWarning(TQvMessage("Err_WriteFile_name") << path << QvErrorText(errno), kWarningLevel,
                      0);
    return false;
}

std::string LockPath(const std::string& path)
{
    return path + ".lock";
}

/// The tree for a change, read under the lock; empty, and logged, when it cannot be read.
var_a<TQvXIniTree*> ReadForWriting(const std::string& path, const TQvLockFile& lock)
{
    if (lock)
        return ReadFile(path);
    QvLogWriteWarning(QvLockMessage(LockPath(path), lock.getError()), kWarningLevel, 0);
    return nullptr;
}

/// Opens the section of a key. The writer compares names byte for byte, so it is given the spelling
/// that the file has.
bool OpenKey(TQvXIniTreeWriter& writer, const TQvXIniTree& tree, const std::string& key,
             bool create)
{
    const TQvXIniEntry* section = Find(tree.Root, key, Kind::Section);
    if (section == nullptr && !create)
        return false;
    const std::string name = section != nullptr ? section->Name : key;
    return writer.OpenSection(writer.FindCreateF(name, Kind::Section));
}
} // namespace

TQvPath TQvRegMan::filePath(TQvRegKey root)
{
    const bool isCommon = root == TQvRegKey::Common;
    const char* folder = std::getenv("QV_REGISTRY_DIR");
    if (folder != nullptr && *folder != '\0')
        return TQvPath(folder) / (isCommon ? "common.x-ini" : "user.x-ini");
    if (isCommon)
        return TQvPath("/etc/velmor/registry.x-ini");
    const TQvPath home = TQvPath::homeDir();
    return home.isPathEmpty() ? home : home / ".config/velmor/registry.x-ini";
}

std::string TQvRegMan::readString(TQvRegKey root, const std::string& key,
                                  const std::string& valueName)
{
    std::string value;
    readString(root, key, valueName, &value);
    return value;
}

TQvResult TQvRegMan::readString(TQvRegKey root, const std::string& key,
                                const std::string& valueName, std::string* value)
{
    // Without a lock: the file is only ever replaced as a whole.
    int error = 0;
    const std::string path = filePath(root).toSysStr();
    const var_a<TQvXIniTree*> tree = ReadFile(path, &error);
    if (!tree)
        return TQvResult::Failed(error, path);
    const TQvXIniEntry* found = FindValue(*tree, key, valueName);
    if (found == nullptr)
        return TQvResult::Nothing(path);
    *value = found->Value;
    return TQvResult::Done();
}

/// The folder is made first, since the lock file is in it; the tree is read under the lock.
bool TQvRegMan::writeString(TQvRegKey root, const std::string& key, const std::string& valueName,
                            const std::string& value, bool create)
{
    const std::string path = filePath(root).toSysStr();
    if (path.empty()) {
        QvLogWriteWarning(TQvMessage("Err_NoHomeFolder"), kWarningLevel, 0);
        return false;
    }
    // Neither folder nor lock file are made for a change that has nothing to change.
    if (!create && !QvFileExists(path))
        return false;
    if (const TQvResult made = QvForceDirectories(path.substr(0, path.rfind('/')), true); !made) {
        QvLogWriteWarning(TQvMessage("Err_WriteFile_name") << path << QvErrorText(made.Error()),
                          kWarningLevel, 0);
        return false;
    }

    const TQvLockFile lock(LockPath(path), true, "registry", kLockTimeoutMs);
    const var_a<TQvXIniTree*> tree = ReadForWriting(path, lock);
    if (!tree)
        return false;
    TQvXIniTreeWriter writer(tree);
    if (!OpenKey(writer, *tree, key, create))
        return false;
    const TQvXIniEntry* old = FindValue(*tree, key, valueName);
    const int position = writer.FindCreateF(old != nullptr ? old->Name : valueName);
    return writer.Write(position, value) && WriteFile(path, *tree);
}

bool TQvRegMan::removeEntry(TQvRegKey root, const std::string& key, const std::string& valueName)
{
    const std::string path = filePath(root).toSysStr();
    // Looked up first: when there is nothing to remove, no write permission is needed.
    var_a<TQvXIniTree*> tree = ReadFile(path);
    if (!tree)
        return false;
    if (FindValue(*tree, key, valueName) == nullptr)
        return true;

    const TQvLockFile lock(LockPath(path), true, "registry", kLockTimeoutMs);
    tree = ReadForWriting(path, lock);
    if (!tree)
        return false;
    TQvXIniTreeWriter writer(tree);
    // Another process has removed it meanwhile.
    if (!OpenKey(writer, *tree, key, false))
        return true;
    // All of them: in a file written by hand a second one would become effective.
    while (const TQvXIniEntry* value = FindValue(*tree, key, valueName)) {
        if (!writer.Delete(writer.FindF(value->Name)))
            return false;
    }
    return WriteFile(path, *tree);
}
