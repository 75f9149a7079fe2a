#include "Checks.h"

#include <cerrno>

#include "BreakSignal.h"
#include "Failure.h"

unsigned RequireExisting(const TResourceManager& tree, const std::string& id,
                         const std::string& what)
{
    CheckId(id);
    const unsigned exists = tree.ResourceExists(id);
    if (exists != kResNothing)
        return exists;
    if (TResourceManager::LastFailure().Error != 0)
        ThrowFailed(what + Quoted(id) + " cannot be accessed");
    throw TFailure(what + Quoted(id) + " does not exist");
}
std::string Quoted(const std::string& text)
{
    return "\"" + text + "\"";
}

std::string CompactedId(const std::string& id)
{
    const std::string name = QvExtractResName(id);
    // Only what a "/" follows is resolved: a last "." or ".." gets one.
    const bool isFolder = name == "." || name == "..";
    const std::string compact = QvCompactResId(isFolder ? id + "/" : id);
    return isFolder ? QvExcludeTrailingSlash(compact) : compact;
}

void CheckId(const std::string& id)
{
    if (id.empty() || !TResourceManager::IsValidResId(id, true))
        throw TFailure(Quoted(id) + " is not a valid resource id");
    CheckClimb(id);
}

void CheckClimb(const std::string& id)
{
    if ((id + "/").find("/../") != std::string::npos)
        throw TFailure(Quoted(id) + " leads above the root of the tree");
}

void RequireResource(const TResourceManager& tree, const std::string& id,
                     const std::string& folderAdvice)
{
    if (RequireExisting(tree, id) == kResFolder)
        throw TFailure(Quoted(id) + " is a folder" +
                       (folderAdvice.empty() ? folderAdvice : "; " + folderAdvice));
    if (id.back() == '/')
        throw TFailure(Quoted(id) + " is not a folder");
}

void RequireFolder(const TResourceManager& tree, const std::string& id)
{
    // The root is a folder even while nothing is mounted.
    if (id != "/" && RequireExisting(tree, id) != kResFolder)
        throw TFailure(Quoted(id) + " is not a folder");
}

void RequireRealFolder(const TResourceManager& tree, const std::string& id)
{
    RequireFolder(tree, id);
    if (tree.GetNode4Id(id, true, true, false)->IsPureVirtual())
        throw TFailure(Quoted(id) + " only leads to mount points");
}

void RequireTarget(const TResourceManager& tree, const std::string& id)
{
    CheckId(id);
    if (id.back() == '/' || tree.ResourceExists(id) == kResFolder)
        throw TFailure(Quoted(id) + " is a folder; give the id of the resource to be written");
    const std::string parent = QvExcludeTrailingSlash(QvExtractResPath(id));
    if (parent != "/" && RequireExisting(tree, parent, "the folder ") != kResFolder)
        throw TFailure(Quoted(parent) + " is not a folder");
    if (!tree.IsInsideMountedNodes(id))
        throw TFailure(Quoted(id) + " lies outside of the mounted folders");
}

var_a<TQvStream*> OpenForReading(const TResourceManager& tree, const std::string& id)
{
    var_a<TQvStream*> stream = tree.OpenResource(id, kQvOpenRead, kQvShareAll, 0);
    if (!stream || !*stream)
        ThrowFailed(Quoted(id) + " cannot be read");
    return stream;
}

void ThrowNaming(const std::string& id, const TQvMessage& message)
{
    const std::string text = message.what();
    throw TFailure(text.find(id) == std::string::npos ? Quoted(id) + ": " + text : text);
}

std::string WithCause(const std::string& message, const TQvFailure& cause)
{
    if (cause.Error == 0)
        return message;
    const bool isNamed = cause.Id.empty() || message.find(cause.Id) != std::string::npos;
    return message + ": " + (isNamed ? "" : Quoted(cause.Id) + ": ") + QvErrorText(cause.Error);
}

std::string WithMissingCause(const TQvMessage& message)
{
    std::string text = message.what();
    const TQvFailure& cause = TResourceManager::LastFailure();
    // The message about a lock that another process holds says more than its errno.
    if (cause.Error == 0 || cause.Error == EAGAIN ||
        text.find(QvErrorText(cause.Error)) != std::string::npos)
        return text;
    if (!text.empty() && text.back() == '.')
        text.pop_back();
    return WithCause(text, {cause.Error, ""});
}

void ThrowFailed(const std::string& message, int error)
{
    BreakSignal::ThrowIfWanted();
    throw TFailure(WithCause(message, {error, ""}));
}

void ThrowFailed(const std::string& message)
{
    BreakSignal::ThrowIfWanted();
    throw TFailure(WithCause(message, TResourceManager::LastFailure()));
}
