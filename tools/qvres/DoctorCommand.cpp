// doctor: finds leftovers of earlier work and damage in a part of the tree.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <set>
#include <unistd.h>
#include <vector>

#include <CLI/CLI.hpp>
#include <QvStd/FileLock.h>
#include <QvStd/FileStream.h>
#include <QvStd/Files.h>
#include <QvStd/NewFile.h>
#include <QvStd/XIniTree.h>

#include "Checks.h"
#include "Commands.h"
#include "IsoTime.h"
#include "Labels.h"

namespace
{
constexpr char kMarkerSuffix[] = ".done";
constexpr char kDamagedSuffix[] = ".damaged";
/// As the library waits for the lock of a sidecar.
constexpr unsigned long kLockTimeoutMs = 10000;
/// No errno: what was found stays, because nothing was to be repaired or nothing can be.
constexpr int kNotTried = -1;

bool EndsWith(const std::string& text, const std::string& end)
{
    return text.size() > end.size() &&
           text.compare(text.size() - end.size(), std::string::npos, end) == 0;
}

bool IsOlderThanADay(TQvDateTime time)
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto day = std::chrono::hours(24);
    return time.Milliseconds() <
           std::chrono::duration_cast<std::chrono::milliseconds>(now - day).count();
}

class TDoctor
{
public:
    TDoctor(THost& host, bool repairs)
        : m_host(host), m_tree(host.Session.Tree()), m_repairs(repairs)
    {
    }

    void Examine(const std::string& id);

private:
    void ExamineMounts(const std::string& id);
    std::vector<std::string> FoldersBelow(const std::string& id);
    void ExamineFolder(const std::string& id, const std::string& onlyName);
    void ExamineFile(const std::string& id, const std::string& path);
    void ExamineTemporary(const std::string& id, const std::string& path);
    void ExamineSidecar(const std::string& id, const std::string& path);
    void ExamineDocument(const std::string& id, const std::string& path);
    void ExamineOrphan(const std::string& id, const std::string& path);
    /// Whether it is damaged, or cannot be read; that is reported as `problem` then.
    bool ExamineForm(const std::string& id, const std::string& path, const std::string& problem);
    void ExamineLabel(const std::string& id);
    void ExamineMarker(const std::string& id, const std::string& path);
    void CannotRead(const std::string& id, int error);
    /// `repair` returns 0, an errno or kNotTried.
    template <class TRepair>
    void Found(const std::string& id, const std::string& problem, const std::string& repaired,
               const TRepair& repair);

    THost& m_host;
    const TResourceManager& m_tree;
    bool m_repairs;
    bool m_foundAny = false;
    std::set<std::string> m_reported; ///< folders that cannot be examined
};

void TDoctor::CannotRead(const std::string& id, int error)
{
    PrintError(WithCause(Quoted(id) + " cannot be read", {error, id}));
    m_host.Status = 1;
}

template <class TRepair>
void TDoctor::Found(const std::string& id, const std::string& problem, const std::string& repaired,
                    const TRepair& repair)
{
    m_foundAny = true;
    // The report comes after the repair, since it says how that ended.
    const int error = m_repairs ? repair() : kNotTried;
    if (error != 0)
        m_host.Status = 1;
    if (m_host.Json) {
        nlohmann::ordered_json record = RecordOf(id);
        PutText(record, "problem", problem);
        record["repaired"] = error == 0;
        record["errno"] = std::max(error, 0);
        m_host.Out.Line(ToJsonText(record));
        return;
    }
    std::string line = id + ": " + problem;
    if (error != kNotTried)
        line += error == 0 ? "; " + repaired : "; not repaired: " + CauseText(error);
    m_host.Out.Line(line);
}

void TDoctor::Examine(const std::string& givenId)
{
    const std::string id = QvExcludeTrailingSlash(givenId);
    CheckId(id);
    ExamineMounts(id);
    const unsigned kind = ShownKind(m_tree, id);
    // Its metadata and temporary files are in its folder, beside those of other resources.
    if (kind == kResResource)
        return ExamineFolder(QvExcludeTrailingSlash(QvExtractResPath(id)), QvExtractResName(id));
    // When the folder of a mount is missing, that was reported already.
    if (!m_foundAny && kind != kResFolder)
        RequireFolder(m_tree, id);
    TQvProgress progress(&m_host.Progress);
    progress.SetMessage("Examining " + id);
    progress.Start();
    // All folders before the first repair, which changes what a listing finds.
    const std::vector<std::string> folders = FoldersBelow(id);
    for (std::size_t i = 0; i < folders.size(); ++i) {
        progress.Report(static_cast<double>(i) / static_cast<double>(folders.size()));
        ExamineFolder(folders[i], {});
    }
}

void TDoctor::ExamineMounts(const std::string& id)
{
    for (const auto& node : m_tree.MountNodes()) {
        const std::string& point = node->MountPointId();
        // Mounts below the id are part of what was asked for, whatever their folders are on the
        // disk.
        if (node->IsPureVirtual() || !IsAtOrBelow(QvNormalizeResId(point), QvNormalizeResId(id)))
            continue;
        const std::string folder = node->GetResourceFile(point);
        bool isFolder = false;
        const TQvResult exists = QvFileDirExists(folder, &isFolder);
        if (exists.HasFailed())
            CannotRead(point, exists.Error());
        if (exists && isFolder)
            continue;
        // The listing would report the same folder again.
        m_reported.insert(point);
        if (!exists.HasFailed())
            Found(point,
                  "its folder " + Quoted(folder) + " is gone; \"qvres unmount " + point +
                      "\" removes it from the tree",
                  "", [] { return kNotTried; });
    }
}

std::vector<std::string> TDoctor::FoldersBelow(const std::string& id)
{
    const auto items = make_var<std::vector<TQvResFindItem>>();
    std::vector<TQvFailure> failures;
    m_tree.Find(items, id, "*", kFindFolders | kFindRecursive | kFindHidden | kFindMounts,
                &m_host.Progress, &failures);
    for (const TQvFailure& failure : failures)
        if (m_reported.insert(failure.Id).second)
            CannotRead(failure.Id, failure.Error);
    std::vector<std::string> folders = {id};
    for (TQvResFindItem& item : *items)
        folders.push_back(std::move(item.Id));
    // In a stable order, so that two runs can be compared.
    std::sort(folders.begin(), folders.end());
    return folders;
}

/// With the name of a resource only the files that belong to it.
void TDoctor::ExamineFolder(const std::string& id, const std::string& onlyName)
{
    if (m_reported.count(id) != 0)
        return;
    // A disk name that is no valid id cannot be opened.
    if (!TResourceManager::IsValidResId(id, true))
        return CannotRead(id, EINVAL);
    const TResourceManager::TMountNode* const node = m_tree.GetNode4Id(id, true, true, false);
    // The target of a link may be outside the tree, or is examined under its own id.
    if (node->IsPureVirtual() || node->IsLink(id))
        return;
    try {
        // On the disk, not through the tree, which hides what is searched for here.
        for (const std::string& path : QvFindFiles(node->GetResourceFile(id), "*", false, false)) {
            BreakSignal::ThrowIfWanted();
            const std::string name = path.substr(path.rfind('/') + 1);
            const bool belongs = name == onlyName + kSidecarSuffix ||
                                 name == onlyName + kMarkerSuffix ||
                                 name.compare(0, onlyName.size() + 2, "." + onlyName + ".") == 0;
            if (onlyName.empty() || belongs)
                ExamineFile(QvIncludeTrailingSlash(id) + name, path);
        }
    } catch (const TQvUserBreak&) {
        throw;
    } catch (const TQvMessage& message) {
        PrintError(TFailure(message.what(), id, errno));
        m_host.Status = 1;
    }
}

void TDoctor::ExamineFile(const std::string& id, const std::string& path)
{
    const std::string name = QvExtractResName(id);
    if (QvIsTemporaryName(name))
        ExamineTemporary(id, path);
    else if (EndsWith(name, kSidecarSuffix))
        ExamineSidecar(id, path);
    else if (EndsWith(name, kMarkerSuffix))
        ExamineMarker(id, path);
}

void TDoctor::ExamineTemporary(const std::string& id, const std::string& path)
{
    TQvFileInfo info;
    const TQvResult looked = QvGetFileInfo(path, &info);
    if (looked.HasFailed())
        CannotRead(id, looked.Error());
    // A younger one may be in use.
    if (looked && info.IsRegular && IsOlderThanADay(info.UpdateTime))
        Found(id, "temporary file, left over since " + IsoTime(info.UpdateTime), "removed",
              [&path] { return QvDeleteFile(path).Error(); });
}

void TDoctor::ExamineSidecar(const std::string& id, const std::string& path)
{
    const std::size_t suffixLength = std::string(kSidecarSuffix).size();
    const std::string ownerId = id.substr(0, id.size() - suffixLength);
    const std::string ownerPath = path.substr(0, path.size() - suffixLength);
    bool isFolder = false;
    const TQvResult owner = QvFileDirExists(ownerPath, &isFolder);
    if (owner.HasFailed())
        return CannotRead(ownerId, owner.Error());
    const auto onlyReport = [this, &id](const std::string& problem) {
        Found(id, problem, "", [] { return kNotTried; });
    };
    // Other programs give folders such files; the one of a link is in use again when its target is.
    if (owner && isFolder)
        onlyReport("named like the metadata of a folder, which has none; it is kept");
    else if (owner || QvIsSymLink(ownerPath))
        ExamineDocument(ownerId, path);
    else if (!TResourceManager::IsValidResId(ownerId, true))
        onlyReport("metadata without its resource, whose name is not a valid id: " +
                   IdProblem(ownerId) + "; it is kept");
    else
        ExamineOrphan(ownerId, path);
}

void TDoctor::ExamineOrphan(const std::string& ownerId, const std::string& path)
{
    const std::string problem = "metadata without its resource";
    // What is not metadata at all may be another program's.
    if (ExamineForm(ownerId + kSidecarSuffix, path, problem + ", and not well formed: "))
        return;
    Found(ownerId + kSidecarSuffix, problem, "removed", [&] {
        // The library detects whether the resource is being moved, and keeps the metadata then.
        // Opening a missing resource deletes its stale metadata; there is nothing to be read.
        m_tree.OpenResource(ownerId, kQvOpenRead, kQvShareAll, 0);
        if (!QvFileExists(path))
            return 0;
        const std::string folder = path.substr(0, path.rfind('/'));
        // The open reports only that the resource is missing, not why its metadata stays.
        return access(folder.c_str(), W_OK) != 0 ? errno : EBUSY;
    });
}

/// Under the first free name: what was set aside earlier is kept.
TQvResult SetAside(const std::string& path, std::string* suffix)
{
    for (int number = 1;; ++number) {
        *suffix = kDamagedSuffix + (number == 1 ? std::string() : "." + std::to_string(number));
        TQvResult moved = QvMoveFileEx(path, path + *suffix, false, false);
        if (moved.Error() != EEXIST)
            return moved;
    }
}

bool TDoctor::ExamineForm(const std::string& id, const std::string& path,
                          const std::string& problem)
{
    const auto damage = [&path](std::string* why) {
        std::string text;
        const TQvResult read = QvReadWholeFile(path, &text);
        if (read)
            QvParseXIniTree(text, why);
        return read;
    };
    std::string why;
    const TQvResult read = damage(&why);
    if (read.HasFailed())
        CannotRead(id, read.Error());
    if (!read || why.empty())
        return read.HasFailed();
    std::string outcome;
    Found(id, problem + why, outcome, [&] {
        // The lock that writers of labels take; the content is read again under it.
        const TQvFileLock lock(path, kLockTimeoutMs);
        std::string now;
        outcome = "repaired by another process";
        if (!lock || !damage(&now) || now.empty())
            return -lock.getError();
        std::string suffix;
        const TQvResult moved = SetAside(path, &suffix);
        outcome = "renamed to \"" + (kSidecarSuffix + suffix) + "\"";
        return moved.Error();
    });
    return true;
}

void TDoctor::ExamineDocument(const std::string& id, const std::string& path)
{
    if (!ExamineForm(id + kSidecarSuffix, path, "metadata that is not well formed: "))
        ExamineLabel(id);
}

void TDoctor::ExamineLabel(const std::string& id)
{
    const auto matches = [&id] {
        TQvResourceLabel label;
        return !ReadResResourceLabel(id, &label) || WeakCheckResResourceLabel(label, id);
    };
    if (!TResourceManager::IsValidResId(id, true) || matches())
        return;
    Found(id, "its label belongs to an earlier content", "computed again", [&] {
        try {
            CurrentLabel(m_host, id);
        } catch (const TFailure& failure) {
            return failure.Error;
        }
        // A label that could not be stored is only printed as a warning by then.
        return matches() ? 0 : EIO;
    });
}

/// A file of such a name with other content is no marker.
void TDoctor::ExamineMarker(const std::string& id, const std::string& path)
{
    const TQvResult owner =
        QvFileDirExists(path.substr(0, path.size() - std::string(kMarkerSuffix).size()), nullptr);
    std::string text;
    if (owner.HasFailed())
        CannotRead(id, owner.Error());
    // A small size first, so that a large file of such a name is not read.
    else if (owner.IsNothing() && QvGetFileSize(path) <= 4 && QvReadWholeFile(path, &text) &&
             (text == "ok" || text == "fail"))
        Found(id, "marker without its resource or folder", "removed",
              [&path] { return QvDeleteFile(path).Error(); });
}
} // namespace

void AddDoctorCommand(CLI::App& app, THost& host)
{
    const auto id = std::make_shared<std::string>();
    const auto repairs = std::make_shared<bool>(false);
    CLI::App* doctor = AddCommand(
        app, "doctor",
        "Find leftovers and damage below a folder, or of one resource; one line "
        "each:\nmetadata without its resource, metadata that is not well formed, temporary files "
        "older than\na day, markers (\"qvres done\") without a resource or folder, labels of an "
        "earlier content,\nmount points without their folder. The exit status is 1 when something "
        "was found and not\nrepaired. Contents are not read: \"qvres check\" does that",
        "  qvres doctor /Data\n"
        "  qvres doctor --repair /Data");
    doctor->add_flag("--repair,--mend", *repairs,
                     "Remove metadata, markers and temporary files without an owner, rename "
                     "damaged\nmetadata to \".meta.damaged\" (with a number when that is taken), "
                     "and compute labels again");
    AddIdOption(*doctor, "ID", *id, "A folder or resource; \"/\" for the whole tree")->required();
    doctor->callback([&host, id, repairs] { TDoctor(host, *repairs).Examine(*id); });
}
