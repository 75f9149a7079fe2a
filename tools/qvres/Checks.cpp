#include "Checks.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <system_error>

#include "BreakSignal.h"
#include "Failure.h"

namespace
{
unsigned Existing(const TResourceManager& tree, const std::string& id)
{
    CheckId(id);
    const unsigned exists = tree.ResourceExists(id);
    if (exists == kResNothing)
        throw TFailure(Quoted(id) + " does not exist");
    return exists;
}
} // namespace

std::string Quoted(const std::string& text)
{
    return "\"" + text + "\"";
}

void CheckId(const std::string& id)
{
    if (id.empty() || !TResourceManager::IsValidResId(id, true))
        throw TFailure(Quoted(id) + " is not a valid resource id");
}

void RequireResource(const TResourceManager& tree, const std::string& id,
                     const std::string& folderAdvice)
{
    if (Existing(tree, id) == kResFolder)
        throw TFailure(Quoted(id) + " is a folder" +
                       (folderAdvice.empty() ? folderAdvice : "; " + folderAdvice));
    if (id.back() == '/')
        throw TFailure(Quoted(id) + " is not a folder");
}

void RequireFolder(const TResourceManager& tree, const std::string& id)
{
    // The root is a folder even while nothing is mounted.
    if (id != "/" && Existing(tree, id) != kResFolder)
        throw TFailure(Quoted(id) + " is not a folder");
}

void RequireRealFolder(const TResourceManager& tree, const std::string& id)
{
    RequireFolder(tree, id);
    if (!tree.IsFolder(id, true))
        throw TFailure(Quoted(id) + " only leads to mount points");
}

void RequireTarget(const TResourceManager& tree, const std::string& id)
{
    CheckId(id);
    if (id.back() == '/' || tree.ResourceExists(id) == kResFolder)
        throw TFailure(Quoted(id) + " is a folder; give the id of the resource to be written");
    const std::string parent = QvExcludeTrailingSlash(QvExtractResPath(id));
    if (parent != "/" && !tree.IsFolder(parent, false))
        throw TFailure("the folder " + Quoted(parent) + " does not exist");
    if (!tree.IsInsideMountedNodes(id))
        throw TFailure(Quoted(id) + " lies outside of the mounted folders");
}

void ThrowNaming(const std::string& id, const TQvMessage& message)
{
    const std::string text = message.what();
    throw TFailure(text.find(id) == std::string::npos ? Quoted(id) + ": " + text : text);
}

void ThrowFailed(const std::string& message, int error)
{
    BreakSignal::ThrowIfWanted();
    // Any other number may be left over from a look at something else.
    constexpr int kTelling[] = {EACCES, EDQUOT, EFBIG, EIO, ENAMETOOLONG, ENOSPC, EPERM, EROFS};
    const bool tells =
        std::find(std::begin(kTelling), std::end(kTelling), error) != std::end(kTelling);
    throw TFailure(tells ? message + ": " + std::system_category().message(error) : message);
}
