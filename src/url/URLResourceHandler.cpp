#include "url/URLResourceHandler.h"

#include <string_view>

#include "QvStd/Message.h"
#include "manager/ResourceManager.h"

namespace
{
// Not the table of the manager's own messages: 11 has no text of its own, and 12 opens for writing.
const char* OpenErrorKey(qvOpenMode mode)
{
    switch (mode) {
    case kQvOpenWriteOrCreate:
    case kQvOpenReadWrite:
        return "Err_OpenWriteFile_name";
    case kQvOpenWrite:
    case kQvOpenCreate:
        return "Err_CreateFile_name";
    case kQvOpenRead:
        return "Err_OpenReadFile_name";
    default:
        return "Err_OpenFile_name";
    }
}

/// Checked before the call: an exception would have to be caught, and its failure recorded again.
bool AreReachable(const std::string& a, const std::string& b)
{
    return ResourceManager.IsReachable(a) && ResourceManager.IsReachable(b);
}
} // namespace

// The manager throws for an id that is not valid or that no node answers for; only OpenURLE may.

TQvURL TQvURLResourceHandler::CreateURL(const std::string& prefix, const std::string& rest)
{
    TQvURL url;
    url.Init(prefix + rest);
    return url;
}

var_a<TQvStream*> TQvURLResourceHandler::OpenURL(const TQvURL& url, qvOpenMode mode,
                                                 qvShareMode share, unsigned long sizeHint)
{
    const std::string path = URL2Path(url);
    if (!ResourceManager.IsReachable(path))
        return {};
    var_a<TQvStream*> stream = ResourceManager.OpenResource(path, mode, share, sizeHint);
    // Users of URLs know only references: a stream that did not open would look like one that did.
    if (stream && !*stream)
        stream.reset();
    return stream;
}

var_a<TQvStream*> TQvURLResourceHandler::OpenURLE(const TQvURL& url, qvOpenMode mode,
                                                  qvShareMode share, unsigned long sizeHint)
{
    var_a<TQvStream*> stream = OpenURL(url, mode, share, sizeHint);
    // With the URL, not the id: the caller knows only that.
    if (!stream || !*stream)
        throw QvMsg_helper(OpenErrorKey(mode)) << url.std_str();
    return stream;
}

var_a<TQvStream*> TQvURLResourceHandler::OpenResourceMeta(const TQvURL& url, qvOpenMode mode,
                                                          qvShareMode share)
{
    const std::string path = URL2Path(url);
    if (!ResourceManager.IsReachable(path))
        return {};
    return ResourceManager.OpenResourceMeta(path, mode, share);
}

bool TQvURLResourceHandler::CopyResourceMeta(const TQvURL& from, const TQvURL& to)
{
    const std::string src = URL2Path(from);
    const std::string dst = URL2Path(to);
    return AreReachable(src, dst) && ResourceManager.CopyResourceMeta(src, dst);
}

bool TQvURLResourceHandler::DeleteResource(const TQvURL& url)
{
    const std::string path = URL2Path(url);
    return ResourceManager.IsReachable(path) && ResourceManager.DeleteResource(path);
}

bool TQvURLResourceHandler::RenMovResource(const TQvURL& from, const TQvURL& to,
                                           TQvProgressHandler* progress)
{
    const std::string src = URL2Path(from);
    const std::string dst = URL2Path(to);
    return AreReachable(src, dst) && ResourceManager.RenMovResource(src, dst, progress);
}

bool TQvURLResourceHandler::CopyResource(const TQvURL& from, const TQvURL& to,
                                         TQvProgressHandler* progress)
{
    const std::string src = URL2Path(from);
    const std::string dst = URL2Path(to);
    return AreReachable(src, dst) && ResourceManager.CopyResource(src, dst, progress);
}

bool TQvURLResourceHandler::CreateFolder(const TQvURL& url)
{
    const std::string path = URL2Path(url);
    return ResourceManager.IsReachable(path) && ResourceManager.CreateFolder(path);
}

bool TQvURLResourceHandler::DeleteFolder(const TQvURL& url, bool clearFirst,
                                         TQvProgressHandler* progress)
{
    const std::string path = URL2Path(url);
    return ResourceManager.IsReachable(path) &&
           ResourceManager.DeleteFolder(path, clearFirst, progress);
}

bool TQvURLResourceHandler::ResourceExists(const TQvURL& url)
{
    const std::string path = URL2Path(url);
    return ResourceManager.IsReachable(path) && ResourceManager.ResourceExists(path) != kResNothing;
}

bool TQvURLResourceHandler::IsResource(const TQvURL& url)
{
    const std::string path = URL2Path(url);
    return ResourceManager.IsReachable(path) && ResourceManager.IsResource(path);
}

bool TQvURLResourceHandler::IsFolder(const TQvURL& url)
{
    const std::string path = URL2Path(url);
    return ResourceManager.IsReachable(path) && ResourceManager.IsFolder(path, false);
}

bool TQvURLResourceHandler::ResourceMetaExists(const TQvURL& url)
{
    const std::string path = URL2Path(url);
    return ResourceManager.IsReachable(path) && ResourceManager.ResourceMetaExists(path);
}

bool TQvURLResourceHandler::GetResourceLabelWeak(const TQvURL& url, TQvResourceLabel* label)
{
    const std::string path = URL2Path(url);
    return ResourceManager.IsReachable(path) && TResourceManager::GetResourceLabelWeak(path, label);
}

std::string TQvURLResourceHandler::GetURLFile(const TQvURL& url, bool createIfMissing)
{
    const std::string path = URL2Path(url);
    if (!ResourceManager.IsReachable(path))
        return {};
    return ResourceManager.GetResourceFile(path, createIfMissing);
}

std::string TQvURLResourceHandler::GetURLFolder(const TQvURL& url)
{
    const std::string path = URL2Path(url);
    return ResourceManager.IsReachable(path) ? ResourceManager.GetResourceFileFolder(path)
                                             : std::string();
}

/// Another scheme gives the empty id, which names no resource.
std::string TQvURLResourceHandler::URL2Path(const TQvURL& url)
{
    constexpr std::string_view kPrefix = "qvres:";
    const std::string& text = url.std_str();
    return text.compare(0, kPrefix.size(), kPrefix) == 0 ? text.substr(kPrefix.size())
                                                         : std::string();
}

bool TQvURLResourceHandler::GetURLAttr(const TQvURL& url, TQvURLAttrib* attributes)
{
    const std::string path = URL2Path(url);
    TQvResAttrib attrib;
    if (attributes == nullptr || !ResourceManager.IsReachable(path) ||
        !ResourceManager.GetResourceAttr(path, &attrib))
        return false;
    // Kind and origin are left out: the URL manager has no names for them.
    attributes->Size = attrib.Size;
    attributes->UpdateTime = attrib.UpdateTime;
    attributes->CreationTime = attrib.CreationTime;
    return true;
}
