#include "journal/ResStorage.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <string_view>
#include <vector>

#include "QvStd/Files.h"
#include "QvStd/Log.h"
#include "QvStd/Message.h"
#include "QvStd/Strings.h"
#include "journal/JournalBlock.h"
#include "journal/JournalFormat.h"
#include "journal/StorageMessages.h"
#include "resid/ResAttrib.h"
#include "resid/ResId.h"

namespace
{
bool HasMetaExtension(const std::string& name)
{
    constexpr std::string_view kSuffix = kSidecarSuffix;
    return name.size() >= kSuffix.size() &&
           toupper_locale(name.substr(name.size() - kSuffix.size())) == toupper_locale(kSuffix);
}
} // namespace

/// Keeps the replaced journal and logs one warning with what was lost: a rebuild loses the
/// creators' spelling of names and every record without content.
bool TResStorage::Repair(const TLocker& locker, const TJournalFile& read)
{
    const TJournalReading broken = m_reading;
    TLocker exclusive = locker;
    const bool isMissing = broken.State == TJournalState::Missing;
    // An empty journal has nothing to be kept.
    const bool keeps = !isMissing && read.Size() != 0;
    // Listed under the exclusive lock: a resource that another process adds meanwhile would be
    // missing in the new journal.
    if (!Lock(&exclusive, true, TMessages::RecreateDir) || !ListContent() ||
        !Save(exclusive, &read, keeps))
        return false;
    if (isMissing && m_dir->empty())
        return true; // a new storage
    const std::string kept = DirFile().toSysStr() + kDamagedJournalSuffix;
    QvLogWriteWarning(TQvMessage("TResStorage::LoadDir(): Storage (%1%) was broken (%2%) and "
                                 "rebuilt from its content: %3% records were sealed in %4% bytes, "
                                 "%5% are there now%6%")
                          << Name << JournalFinding(broken) << broken.SealedRecords
                          << broken.SealedBytes << m_dir->size()
                          << (keeps ? "; the old journal is kept as " + kept : ""),
                      kLevelWarning, 0);
    return true;
}

bool TResStorage::RecreateDir(const TLocker& given)
{
    const TLocker locker = Begin(given, true, TMessages::RecreateDir);
    return locker && ListContent() && Save(locker, nullptr, false);
}

bool TResStorage::ListContent()
{
    const std::string content =
        QvIncludeTrailingBackslash(TQvPath(Folder)).toSysStr() + kStorageContentName;
    m_dir->Clear();
    m_failure = TakeContent(content);
    if (m_failure)
        return true;
    QvLogWriteInfo(QvMsg_helper("Err_ReadFolder_name")
                       << m_failure.Name() << QvErrorText(m_failure.Error()),
                   kLevelWrite, 0);
    m_dir->Clear(); // an incomplete listing must not become the journal
    return false;
}

TQvResult TResStorage::TakeContent(const std::string& content)
{
    // The result matters only when no folder is there afterwards: mostly it exists already.
    const TQvResult made = QvCreateDirectory(content);
    bool isFolder = false;
    const TQvResult there = QvFileDirExists(content, &isFolder);
    if (there.HasFailed() || (there && !isFolder))
        return TQvResult::Failed(there ? ENOTDIR : there.Error(), content);
    if (!there) // a link to a volume that is not mounted is no empty folder
        return TQvResult::Failed(made.Error() == EEXIST ? ENOENT : made.Error(), content);
    std::vector<std::string> found;
    TQvResult result = QvSearchFiles(content, "*", true, true, &found);
    for (std::size_t i = 0; result && i < found.size(); ++i)
        result = TakeFound(found[i], content.size());
    return result;
}

TQvResult TResStorage::TakeFound(const std::string& path, std::size_t contentLength)
{
    assert(path.size() > contentLength && path[contentLength] == '/');
    std::string id = path.substr(contentLength);
    // Sidecars belong to their resources and have no records.
    if (HasMetaExtension(id))
        return TQvResult::Done();
    // The names of a storage separate folders by backslashes. Where a path has none, the name is
    // the whole relative part with its leading "/": readers of rebuilt journals expect that.
    std::string name = id.substr(id.rfind('\\') + 1);
    if (!IsStorable(id)) {
        QvLogWriteWarning(TQvMessage(TMessages::RecreateDir.Refused) << Name << id, kLevelWarning,
                          0);
        return TQvResult::Done();
    }
    bool isFolder = false;
    const TQvResult there = QvFileDirExists(path, &isFolder);
    if (there.HasFailed() && !QvIsSymLink(path)) // a dangling link is recorded, too
        return there.Named(path);
    if (isFolder)
        id += '/';
    // After the name was taken from it: the journal separates the folders of an id by "/" only.
    std::replace(id.begin(), id.end(), '\\', '/');
    m_dir->Set(QvNormalizeResId(id), name);
    return TQvResult::Done();
}
