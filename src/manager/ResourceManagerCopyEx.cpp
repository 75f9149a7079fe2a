// The extended copy.
#include <algorithm>
#include <cassert>
#include <cerrno>
#include <map>
#include <unordered_set>

#include "QvStd/Descriptor.h"
#include "QvStd/Message.h"
#include "manager/LastFailure.h"
#include "manager/ResourceManager.h"
#include "module/ModuleInitializer.h"
#include "resid/ResId.h"

namespace
{
constexpr unsigned kEverythingBelow =
    kFindResources | kFindFolders | kFindRecursive | kFindAttributes;
/// For smaller resources the reports between two items are enough.
constexpr double kBytesWithoutProgress = 1000000;
constexpr int kLogLevel = 3;

/// Without its trailing "/". A single source with a trailing "/" is its own parent: its content
/// goes directly into the destination.
std::string CommonParent(const std::set<std::string>& sources)
{
    if (sources.empty())
        return {};
    const std::string& first = *sources.begin();
    std::size_t shared = first.size();
    if (sources.size() > 1) {
        // A prefix of the first and the last id of an ordered set is a prefix of all.
        const std::string& last = *sources.rbegin();
        const auto end = std::mismatch(first.begin(), first.end(), last.begin(), last.end()).first;
        shared = static_cast<std::size_t>(end - first.begin());
    }
    const std::size_t slash = std::string_view(first).substr(0, shared).rfind('/');
    return slash == std::string::npos ? std::string() : first.substr(0, slash);
}

std::string ParentOf(const std::string& id)
{
    return QvExcludeTrailingSlash(QvExtractResPath(id));
}
} // namespace

class TExtendedCopy
{
public:
    TExtendedCopy(const TResourceManager& manager,
                  const TResourceManager::TCopyResourceExParams& params,
                  const std::string& commonParent)
        : m_manager(manager), m_params(params), m_skippedLength(commonParent.size() + 1),
          m_destination(QvIncludeTrailingSlash(params.DestFolder)), m_progress(params.Progress),
          m_break(params.Progress)
    {
    }

    bool Run();

private:
    using TMountNode = TResourceManager::TMountNode;
    struct TItem
    {
        unsigned Kind = kResNothing;
        double Size = 0; ///< bytes
        bool MayHaveSidecar = true;
    };

    void Collect();
    void AddSource(const std::string& source);
    void AddFound(TQvResFindItem& found);
    void CopyAll();
    TQvResult CopyItem(const std::string& source, const TItem& item);
    TQvResult CopyFolder(TMountNode& node, const std::string& source,
                         const std::string& destination);
    TQvResult CopyResource(TMountNode& node, const std::string& source,
                           const std::string& destination, const TItem& item);
    TQvResult CopyOver(TMountNode& node, const std::string& source, const std::string& destination,
                       double size, const TMountNode::TCopyHints& hints);
    TQvResult Transfer(TMountNode& node, const std::string& source, const std::string& destination,
                       const TMountNode::TCopyHints& hints, TQvProgressHandler* progress);
    bool MayOverwrite(const std::string& destination);
    TQvResult MakeParent(const std::string& destination);
    void Fail(const std::string& id, const TQvResult& reason);
    void CountFolder(const std::string& destination);
    void CountResource(const std::string& destination, double size);

    const TResourceManager& m_manager;
    const TResourceManager::TCopyResourceExParams& m_params;
    std::size_t m_skippedLength; ///< the common parent and the "/" after it
    std::string m_destination;   ///< with a trailing "/"
    TQvProgress m_progress;
    TQvBreakOnly m_break;
    std::map<std::string, TItem> m_items; ///< by id; a folder comes before its content
    double m_total = 0;
    double m_scale = 1;
    double m_done = 0;                            ///< bytes of the items before the current one
    std::unordered_set<std::string> m_newFolders; ///< destination folders that were made here
    TQvCopyFolders m_copyFolders;
    /// Whether a copy into an existing folder, which may be a source, may have added a sidecar
    /// since the listing.
    bool m_mayHaveAddedSidecars = false;
    std::string m_parentFolder; ///< the last destination folder that exists
    TQvResult m_failure;        ///< the first
    TResourceManager::TCopyCounts m_counts;
    bool m_result = true;
};

bool TExtendedCopy::Run()
{
    try {
        Collect();
        m_progress.Start();
        CopyAll();
    } catch (const TQvUserBreak&) {
        m_result = false;
        if (m_failure)
            // An earlier failure stays the first one, as LastFailure promises.
            m_failure = TQvResult::Failed(ECANCELED, m_params.DestFolder);
    }
    m_progress.Stop();
    if (m_params.Counts != nullptr)
        *m_params.Counts = m_counts;
    QvReport(m_failure);
    return m_result;
}

void TExtendedCopy::Fail(const std::string& id, const TQvResult& reason)
{
    assert(!reason); // else the caller would be told of no failure
    m_result = false;
    if (m_failure)
        m_failure = reason;
    m_parentFolder.clear();
    // By the id of the listing, which the caller gave or can look up; the reason names the file
    // that failed.
    if (m_params.Failed != nullptr)
        m_params.Failed->insert(id);
    if (m_params.Failures != nullptr)
        m_params.Failures->emplace(id, TQvFailure{reason.Error(), reason.Name()});
}

void TExtendedCopy::CountFolder(const std::string& destination)
{
    ++m_counts.Folders;
    if (m_params.CopiedCallback != nullptr)
        m_params.CopiedCallback(QvIncludeTrailingSlash(destination), m_params.CallbackContext);
}

void TExtendedCopy::CountResource(const std::string& destination, double size)
{
    ++m_counts.Resources;
    m_counts.Bytes += static_cast<std::uint64_t>(size);
    if (m_params.CopiedCallback != nullptr)
        m_params.CopiedCallback(destination, m_params.CallbackContext);
}

void TExtendedCopy::Collect()
{
    for (const std::string& source : m_params.Sources)
        AddSource(source);
    m_scale = m_total > 0 ? 1 / m_total : 1;
    m_counts.TotalBytes = static_cast<std::uint64_t>(m_total);
    if (m_params.Counts != nullptr)
        *m_params.Counts = m_counts; // for a progress display
}

void TExtendedCopy::AddSource(const std::string& source)
{
    const std::string id = QvExcludeTrailingSlash(source);
    const TMountNode* node = m_manager.NodeToAsk(id);
    TQvResAttrib attrib;
    const TQvResult exists =
        node != nullptr ? node->GetResourceAttr(id, &attrib) : TQvResult::Nothing();
    if (exists.HasFailed())
        return Fail(source, exists.Named(source));
    if (!exists)
        return;
    // One map for all sources: what two sources share is copied once.
    TItem& item = m_items[source];
    item.Kind = attrib.Kind;
    item.Size = static_cast<double>(attrib.Size);
    m_total += item.Size;
    if (attrib.Kind != kResFolder)
        return;
    const auto found = make_var<std::vector<TQvResFindItem>>();
    std::vector<TQvFailure> failures;
    // Everything is listed before the first copy: when the destination is below a source, the
    // copies would be found and copied in turn.
    m_manager.DoFind(found, source, "*", kEverythingBelow, &m_break, failures);
    // What could be listed is copied; each folder that could not be read counts as failed.
    for (const TQvFailure& failure : failures)
        Fail(failure.Id + '/' == source ? source : failure.Id,
             TQvResult::Failed(failure.Error, failure.Id));
    for (TQvResFindItem& entry : *found)
        AddFound(entry);
}

void TExtendedCopy::AddFound(TQvResFindItem& found)
{
    QvPollProgress(&m_break);
    const auto [item, isNew] = m_items.try_emplace(std::move(found.Id));
    if (!isNew)
        return;
    item->second.Kind = found.Attrib.Kind;
    item->second.Size = static_cast<double>(found.Attrib.Size);
    item->second.MayHaveSidecar = found.MayHaveSidecar;
    m_total += item->second.Size;
}

void TExtendedCopy::CopyAll()
{
    for (const auto& [id, item] : m_items) {
        m_progress.Report(m_scale * m_done);
        if (const TQvResult copied = CopyItem(id, item); !copied) {
            Fail(id, copied);
            // All other failures concern one item: the next items may succeed.
            if (m_progress.UserBreak())
                break; // a copy that was cancelled has failed like any other
        }
        m_done += item.Size;
    }
    m_progress.Report(m_scale * m_done);
}

TQvResult TExtendedCopy::CopyItem(const std::string& source, const TItem& item)
{
    bool isValid = false;
    TMountNode* node = m_manager.ResolveNode(source, true, false, &isValid);
    // A disk name that is no valid part of an id is listed and cannot be copied.
    if (!isValid || node == nullptr)
        return TQvResult::Failed(EINVAL, source);
    assert(source.size() >= m_skippedLength);
    const std::string destination = m_destination + source.substr(m_skippedLength);
    if (item.Kind == kResFolder)
        return CopyFolder(*node, source, destination);
    const TQvResult copied = CopyResource(*node, source, destination, item);
    // A resource that was deleted after the listing is no failure.
    return copied.IsNothing() && copied.Name() == source ? TQvResult::Done() : copied;
}

TQvResult TExtendedCopy::CopyFolder(TMountNode& node, const std::string& source,
                                    const std::string& destination)
{
    // A folder that was deleted after the listing is no failure.
    const TQvExistence exists = node.ResourceExists(QvExcludeTrailingSlash(source));
    if (exists == kResNothing)
        return exists.Result.IsNothing() ? TQvResult::Done() : exists.Result.Named(source);
    // The listing does not enter links, except a source or a mount point that is a link.
    if (m_params.Sources.count(source) == 0 && !m_manager.IsMountNode(source) &&
        node.IsLink(source))
        return TQvResult::Failed(ENOTSUP, source);
    const TQvExistence target = m_manager.LookUp(destination);
    if (target == kResFolder)
        return TQvResult::Done();
    if (target == kResResource)
        return TQvResult::Failed(EEXIST, destination);
    if (target.Result.HasFailed())
        return target.Result.Named(destination);
    const std::string folder = QvExcludeTrailingSlash(destination);
    if (!m_params.DryRun) {
        // The parent may belong to another node than the folder, where only the manager can create
        // it.
        if (TQvResult parent = MakeParent(folder); !parent)
            return parent;
        TQvResult created = m_manager.NodeFor(folder)->CreateFolderLike(
            folder, node, QvExcludeTrailingSlash(source));
        if (!created)
            return created;
        // Only folders that this copy created: in others any name may be taken.
        m_newFolders.insert(folder);
    }
    CountFolder(folder);
    return TQvResult::Done();
}

TQvResult TExtendedCopy::CopyResource(TMountNode& node, const std::string& source,
                                      const std::string& destination, const TItem& item)
{
    // In a folder that was made here targets need no check, unless another process has written
    // there (EEXIST).
    if (m_newFolders.count(ParentOf(destination)) != 0) {
        TMountNode::TCopyHints hints;
        hints.IsTargetNew = true;
        hints.MayHaveSidecar = item.MayHaveSidecar || m_mayHaveAddedSidecars;
        hints.Folders = &m_copyFolders;
        TQvResult copied = CopyOver(node, source, destination, item.Size, hints);
        if (copied.Error() != EEXIST)
            return copied;
    }
    const TQvExistence target = m_manager.LookUp(destination);
    if (target.Result.HasFailed())
        return target.Result.Named(destination);
    if (target == kResFolder)
        return TQvResult::Failed(EISDIR, destination);
    if (target == kResResource && !MayOverwrite(destination)) {
        // Skipping is what the caller asked for: done, and not in Failed.
        ++m_counts.Skipped;
        return TQvResult::Done();
    }
    m_mayHaveAddedSidecars = true;
    return CopyOver(node, source, destination, item.Size, {});
}

TQvResult TExtendedCopy::CopyOver(TMountNode& node, const std::string& source,
                                  const std::string& destination, double size,
                                  const TMountNode::TCopyHints& hints)
{
    if (m_params.DryRun || size <= kBytesWithoutProgress) {
        TQvResult copied = m_params.DryRun ? TQvResult::Done()
                                           : Transfer(node, source, destination, hints, nullptr);
        if (copied)
            CountResource(destination, size);
        return copied;
    }
    // Larger resources report their own progress.
    TQvProgressVar part =
        m_progress.SubProgress(m_scale * m_done, m_scale * (m_done + size), kLogLevel, kLogLevel);
    part.SetMessage(source);
    part.Start();
    TQvResult copied = Transfer(node, source, destination, hints, part.Handler());
    part.Stop();
    if (copied)
        CountResource(destination, size);
    return copied;
}

TQvResult TExtendedCopy::Transfer(TMountNode& node, const std::string& source,
                                  const std::string& destination,
                                  const TMountNode::TCopyHints& hints, TQvProgressHandler* progress)
{
    assert(!m_params.DryRun);
    if (TQvResult parent = MakeParent(destination); !parent)
        return parent;
    TMountNode* target = m_manager.NodeFor(destination);
    TQvTransfer copied = node.CopyResourceTo(source, *target, destination, hints, progress);
    if (!copied.Content || copied.Sidecar)
        return copied.Content;
    QvReportSidecar(copied.Sidecar, source, destination);
    // Inside one node the sidecar decides, too, as for a single copy.
    if (&node == target)
        return copied.Sidecar;
    // Between two nodes only the content decides the result, but the failure is reported.
    if (m_failure)
        m_failure = copied.Sidecar;
    return TQvResult::Done();
}

bool TExtendedCopy::MayOverwrite(const std::string& destination)
{
    if (m_params.OverwriteCallback == nullptr)
        return m_params.OverwriteDefault;
    // The callback may change anything.
    m_parentFolder.clear();
    m_copyFolders = {};
    m_mayHaveAddedSidecars = true;
    return m_params.OverwriteCallback(destination, m_params.CallbackContext);
}

/// Resources of one folder are copied one after the other: their folder is checked once.
TQvResult TExtendedCopy::MakeParent(const std::string& destination)
{
    std::string parent = ParentOf(destination);
    if (parent == m_parentFolder)
        return TQvResult::Done();
    if (m_manager.LookUp(parent) != kResFolder)
        if (TQvResult created = m_manager.DoCreateFolder(parent); !created)
            return created;
    m_parentFolder = std::move(parent);
    return TQvResult::Done();
}

bool TResourceManager::CopyResourceEx(const TCopyResourceExParams& params) const
{
    // A trailing "/" hides a virtual folder from its attributes.
    const std::string destination = QvExcludeTrailingSlash(params.DestFolder);
    TQvResAttrib attrib;
    NodeFor(destination)->GetResourceAttr(destination, &attrib);
    if (attrib.Origin == kOriginRootNode)
        return QvReport(TQvResult::Failed(EROFS, params.DestFolder));
    const std::string commonParent = CommonParent(params.Sources);
    // Compared as written: with a trailing "/" the texts differ, and copying each source onto
    // itself changes nothing.
    if (commonParent == params.DestFolder) {
        SetLastFailure(EINVAL, params.DestFolder);
        throw TQvMessage(QvResourceString("global.ErrDestFolderEqSrc"));
    }
    return TExtendedCopy(*this, params, commonParent).Run();
}
