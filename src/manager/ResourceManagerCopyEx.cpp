// The extended copy.
#include <algorithm>
#include <map>

#include "QvStd/Files.h"
#include "QvStd/Message.h"
#include "manager/ModuleInitializer.h"
#include "manager/ResourceManager.h"
#include "resid/ResId.h"

namespace
{
constexpr unsigned kEverythingBelow = kFindResources | kFindFolders | kFindRecursive;
constexpr double kBytesWithoutProgress = 1000000;
constexpr int kLogLevel = 3;

/// Without its trailing "/". One source written with a trailing "/" is its own parent: what it
/// holds lands directly in the destination.
std::string CommonParent(const std::set<std::string>& sources)
{
    if (sources.empty())
        return {};
    const std::string& first = *sources.begin();
    std::size_t shared = first.size();
    if (sources.size() > 1) {
        // What the first and the last of an ordered set share, all of them share.
        const std::string& last = *sources.rbegin();
        const auto end = std::mismatch(first.begin(), first.end(), last.begin(), last.end()).first;
        shared = static_cast<std::size_t>(end - first.begin());
    }
    const std::size_t slash = std::string_view(first).substr(0, shared).rfind('/');
    return slash == std::string::npos ? std::string() : first.substr(0, slash);
}

class TExtendedCopy
{
public:
    TExtendedCopy(const TResourceManager& manager,
                  const TResourceManager::TCopyResourceExParams& params,
                  const std::string& commonParent)
        : m_manager(manager), m_params(params), m_skippedLength(commonParent.size() + 1),
          m_destination(QvIncludeTrailingSlash(params.DestFolder)), m_progress(params.Progress)
    {
    }

    bool Run();

private:
    void Collect();
    void Measure();
    bool IsLinkNotEntered(const std::string& folder) const;
    bool CopyItem(const std::string& source, double size);
    bool MayOverwrite(const std::string& destination);
    bool CopyOne(const std::string& source, const std::string& destination, double size);
    bool HasParent(const std::string& destination);

    const TResourceManager& m_manager;
    const TResourceManager::TCopyResourceExParams& m_params;
    std::size_t m_skippedLength; ///< the common parent and the "/" behind it
    std::string m_destination;   ///< with a trailing "/"
    TQvProgress m_progress;
    std::map<std::string, double> m_items; ///< id -> bytes; a folder comes before what it holds
    double m_scale = 1;
    double m_done = 0;          ///< bytes of the items before the current one
    std::string m_parentFolder; ///< the destination folder that was there, or made, last
};

bool TExtendedCopy::Run()
{
    Collect();
    Measure();
    bool result = true;
    try {
        m_progress.Start();
        for (const auto& [id, size] : m_items) {
            m_progress.Report(m_scale * m_done);
            if (!CopyItem(id, size)) {
                result = false;
                m_parentFolder.clear();
                if (m_params.Failed != nullptr)
                    m_params.Failed->insert(id);
                if (m_progress.UserBreak())
                    break; // a copy that is broken off answers false like any other failure
            }
            m_done += size;
        }
    } catch (const TQvUserBreak&) {
        result = false;
    }
    m_progress.Stop();
    return result;
}

void TExtendedCopy::Collect()
{
    const auto found = make_var<std::vector<TQvResFindItem>>();
    for (const std::string& source : m_params.Sources) {
        const unsigned kind = m_manager.ResourceExists(source);
        if (kind == kResNothing)
            continue;
        m_items.emplace(source, 0);
        if (kind == kResFolder)
            m_manager.Find(found, source, "*", kEverythingBelow, nullptr);
    }
    for (TQvResFindItem& item : *found)
        m_items.emplace(std::move(item.Id), 0);
}

void TExtendedCopy::Measure()
{
    double total = 0;
    for (auto& [id, size] : m_items) {
        TQvResAttrib attrib;
        if (QvIsValidResId(id, true) && m_manager.GetResourceAttr(id, &attrib))
            size = static_cast<double>(attrib.Size);
        total += size;
    }
    m_scale = total > 0 ? 1 / total : 1;
}

/// Whether the folder's contents were not listed. A source is listed even through a link, and so is
/// what is mounted.
bool TExtendedCopy::IsLinkNotEntered(const std::string& folder) const
{
    return m_params.Sources.count(folder) == 0 && !m_manager.IsMountNode(folder) &&
           QvIsSymLink(m_manager.GetNode4Id(folder, true, true, false)->GetResourceFile(folder));
}

bool TExtendedCopy::CopyItem(const std::string& source, double size)
{
    // A disk name that is no valid part of an id is listed and cannot be reached.
    if (!QvIsValidResId(source, true))
        return false;
    const unsigned kind = m_manager.ResourceExists(source);
    if (kind == kResNothing)
        return true; // gone meanwhile
    if (kind == kResFolder && IsLinkNotEntered(source))
        return false;
    const std::string destination = m_destination + source.substr(m_skippedLength);
    const unsigned destinationKind = m_manager.ResourceExists(destination);
    if (destinationKind != kResNothing && destinationKind != kind)
        return false;
    if (kind == kResFolder)
        return destinationKind == kResFolder || m_manager.CreateFolder(destination);
    if (destinationKind == kResResource && !MayOverwrite(destination))
        return true;
    return CopyOne(source, destination, size);
}

bool TExtendedCopy::MayOverwrite(const std::string& destination)
{
    if (m_params.OverwriteCallback == nullptr)
        return m_params.OverwriteDefault;
    m_parentFolder.clear(); // the callback may change anything
    return m_params.OverwriteCallback(destination, m_params.CallbackContext);
}

bool TExtendedCopy::CopyOne(const std::string& source, const std::string& destination, double size)
{
    if (size <= kBytesWithoutProgress)
        return HasParent(destination) && m_manager.CopyResource(source, destination, nullptr);
    // Larger resources show how far they are.
    TQvProgressVar part =
        m_progress.SubProgress(m_scale * m_done, m_scale * (m_done + size), kLogLevel, kLogLevel);
    part.SetMessage(source);
    part.Start();
    const bool copied =
        HasParent(destination) && m_manager.CopyResource(source, destination, part.Handler());
    part.Stop();
    return copied;
}

/// Neighbours follow each other: the folder that was there for the one before is not looked at
/// again.
bool TExtendedCopy::HasParent(const std::string& destination)
{
    std::string parent = QvExcludeTrailingSlash(QvExtractResPath(destination));
    if (parent == m_parentFolder)
        return true;
    if (!m_manager.IsFolder(parent, false) && !m_manager.CreateFolder(parent))
        return false;
    m_parentFolder = std::move(parent);
    return true;
}
} // namespace

bool TResourceManager::CopyResourceEx(const TCopyResourceExParams& params) const
{
    // A trailing "/" hides a virtual folder from its attributes.
    const std::string destination = QvExcludeTrailingSlash(params.DestFolder);
    TQvResAttrib attrib;
    NodeFor(destination)->GetResourceAttr(destination, &attrib);
    if (attrib.Origin == kOriginRootNode)
        return false;
    const std::string commonParent = CommonParent(params.Sources);
    // Compared as written: with a trailing "/" the destination is another text, and the copy onto
    // themselves leaves the sources as they are.
    if (commonParent == params.DestFolder)
        throw TQvMessage(QvResourceString("global.ErrDestFolderEqSrc"));
    return TExtendedCopy(*this, params, commonParent).Run();
}
