#include "services/DoneMarkers.h"

#include <string_view>

#include "QvStd/URLManager.h"
#include "manager/ResourceManager.h"

namespace
{
const std::string kOk = "ok";
const std::string kFail = "fail";
const std::string kSuffix = ".done";

/// More than both texts have; a longer file is no "ok" in any case.
constexpr std::size_t kJudgedBytes = 15;

/// The whole marker is compared, within its first bytes: "ok" with anything after it is no "ok".
bool ReadMarker(const var_a<TQvStream*>& stream, const std::string& name, bool* ok)
{
    if (!stream || !*stream)
        return false;
    char buffer[kJudgedBytes];
    const std::size_t count = stream->Read(buffer, sizeof buffer);
    if (count == TQvStream::invalid_value) {
        TResourceManager::SetLastFailure(-stream->getError(), name);
        return false;
    }
    *ok = std::string_view(buffer, count) == kOk;
    return true;
}

/// Synced: a step that counts as done must not be undone by a power cut.
bool WriteMarker(const var_a<TQvStream*>& stream, const std::string& name, bool ok)
{
    if (!stream || !*stream)
        return false;
    const std::string& text = ok ? kOk : kFail;
    if (stream->Write(text.data(), text.size()) == text.size() && stream->Flush())
        return true;
    TResourceManager::SetLastFailure(-stream->getError(), name);
    return false;
}
} // namespace

std::string GetDoneResId(const std::string& resId)
{
    return resId + kSuffix;
}

TQvURL GetDoneURL(const TQvURL& url)
{
    return TQvURL(url.std_str() + kSuffix);
}

bool GetResDoneResult(const std::string& doneResId, bool* ok)
{
    *ok = false;
    return ResourceManager.IsReachable(doneResId) &&
           ReadMarker(ResourceManager.OpenResource(doneResId, kQvOpenRead, kQvShareAll, 0),
                      doneResId, ok);
}

bool GetDoneResult(const TQvURL& doneUrl, bool* ok)
{
    *ok = false;
    return ReadMarker(QvURLManager.OpenURL(doneUrl, kQvOpenRead, kQvShareAll, 0), doneUrl.std_str(),
                      ok);
}

bool SetResDoneResult(const std::string& doneResId, bool ok)
{
    return ResourceManager.IsReachable(doneResId) &&
           WriteMarker(ResourceManager.OpenResource(doneResId, kQvOpenCreate, kQvShareAll, 0),
                       doneResId, ok);
}

bool SetDoneResult(const TQvURL& doneUrl, bool ok)
{
    return WriteMarker(QvURLManager.OpenURL(doneUrl, kQvOpenCreate, kQvShareAll, 0),
                       doneUrl.std_str(), ok);
}
