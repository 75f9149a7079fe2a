#include "url/URLResourceHandler.h"

#include <string_view>

#include "QvStd/Message.h"
#include "manager/ResourceManager.h"
#include "resid/ResId.h"

namespace
{
// Not the table of the manager's own messages: 11 has no text of its own, and 12 opens for writing.
const char* OpenErrorKey(qvOpenMode mode)
{
    switch (mode) {
    case kQvOpenAppend:
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
} // namespace

TQvURL TQvURLResourceHandler::CreateURL(const std::string& prefix, const std::string& rest)
{
    TQvURL url;
    url.Init(prefix + rest);
    return url;
}

var_a<TQvStream*> TQvURLResourceHandler::OpenURL(const TQvURL& url, qvOpenMode mode,
                                                 qvShareMode share, unsigned long flags)
{
    const std::string path = URL2Path(url);
    // The manager throws for an id that is not valid or that no node answers for, this never does.
    if (!QvIsValidResId(path, true) ||
        ResourceManager.GetNode4Id(path, false, true, false) == nullptr)
        return {};
    var_a<TQvStream*> stream = ResourceManager.OpenResource(path, mode, share, flags);
    if (stream && !*stream)
        stream.reset();
    return stream;
}

var_a<TQvStream*> TQvURLResourceHandler::OpenURLE(const TQvURL& url, qvOpenMode mode,
                                                  qvShareMode share, unsigned long flags)
{
    var_a<TQvStream*> stream = OpenURL(url, mode, share, flags);
    if (!stream || !*stream)
        throw QvMsg_helper(OpenErrorKey(mode)) << url.std_str();
    return stream;
}

var_a<TQvStream*> TQvURLResourceHandler::OpenResourceMeta(const TQvURL& url, qvOpenMode mode,
                                                          qvShareMode share)
{
    return ResourceManager.OpenResourceMeta(URL2Path(url), mode, share);
}

bool TQvURLResourceHandler::CopyResourceMeta(const TQvURL& from, const TQvURL& to)
{
    return ResourceManager.CopyResourceMeta(URL2Path(from), URL2Path(to));
}

bool TQvURLResourceHandler::DeleteResource(const TQvURL& url)
{
    return ResourceManager.DeleteResource(URL2Path(url));
}

bool TQvURLResourceHandler::RenMovResource(const TQvURL& from, const TQvURL& to,
                                           TQvProgressHandler* progress)
{
    return ResourceManager.RenMovResource(URL2Path(from), URL2Path(to), progress);
}

bool TQvURLResourceHandler::CopyResource(const TQvURL& from, const TQvURL& to,
                                         TQvProgressHandler* progress)
{
    return ResourceManager.CopyResource(URL2Path(from), URL2Path(to), progress);
}

bool TQvURLResourceHandler::CreateFolder(const TQvURL& url)
{
    return ResourceManager.CreateFolder(URL2Path(url));
}

bool TQvURLResourceHandler::DeleteFolder(const TQvURL& url, bool clearFirst,
                                         TQvProgressHandler* progress)
{
    return ResourceManager.DeleteFolder(URL2Path(url), clearFirst, progress);
}

bool TQvURLResourceHandler::ResourceExists(const TQvURL& url)
{
    return ResourceManager.ResourceExists(URL2Path(url)) != kResNothing;
}

bool TQvURLResourceHandler::IsResource(const TQvURL& url)
{
    return ResourceManager.IsResource(URL2Path(url));
}

bool TQvURLResourceHandler::IsFolder(const TQvURL& url)
{
    return ResourceManager.IsFolder(URL2Path(url), false);
}

bool TQvURLResourceHandler::ResourceMetaExists(const TQvURL& url)
{
    return ResourceManager.ResourceMetaExists(URL2Path(url));
}

bool TQvURLResourceHandler::GetResourceLabelWeak(const TQvURL& url, TQvResourceLabel* label)
{
    return TResourceManager::GetResourceLabelWeak(URL2Path(url), label);
}

std::string TQvURLResourceHandler::GetURLFile(const TQvURL& url, bool createIfMissing)
{
    return ResourceManager.GetResourceFile(URL2Path(url), createIfMissing);
}

std::string TQvURLResourceHandler::GetURLFolder(const TQvURL& url)
{
    return ResourceManager.GetResourceFileFolder(URL2Path(url));
}

std::string TQvURLResourceHandler::URL2Path(const TQvURL& url)
{
    constexpr std::string_view kPrefix = "qvres:";
    const std::string& text = url.std_str();
    return text.compare(0, kPrefix.size(), kPrefix) == 0 ? text.substr(kPrefix.size())
                                                         : std::string();
}

bool TQvURLResourceHandler::GetURLAttr(const TQvURL& url, TQvURLAttrib* attributes)
{
    TQvResAttrib attrib;
    if (attributes == nullptr || !ResourceManager.GetResourceAttr(URL2Path(url), &attrib))
        return false;
    attributes->Size = attrib.Size;
    attributes->UpdateTime = attrib.UpdateTime;
    attributes->CreationTime = attrib.CreationTime;
    return true;
}
