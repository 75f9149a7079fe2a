#include "Checks.h"

#include <array>
#include <cerrno>
#include <cstdio>

#include "BreakSignal.h"

namespace
{
/// The first byte of a text that ids must not hold, as a person reads it; "" when there is none.
std::string ForbiddenByte(const std::string& text)
{
    for (const char c : text) {
        if (c >= 0 && c < 0x20) {
            std::array<char, 40> name{};
            std::snprintf(name.data(), name.size(), "the control character 0x%02x", c);
            return name.data();
        }
        if (std::string_view("\\\"<>|:*?").find(c) != std::string_view::npos)
            return c == '"' ? "a double quote" : Quoted({c});
    }
    return {};
}

std::string Holds(const std::string& what)
{
    return what.empty() ? what : "it contains " + what;
}
} // namespace

std::string IdProblem(const std::string& id)
{
    if (id.empty())
        return "it is empty";
    if (id.front() != '/')
        return "it does not begin with \"/\"";
    return Holds(id.find("//") != std::string::npos ? Quoted("//") : ForbiddenByte(id));
}

std::string NameProblem(const std::string& name)
{
    if (name.empty())
        return "it is empty";
    if (name == "." || name == "..")
        return "it stands for a folder";
    return Holds(name.find('/') != std::string::npos ? Quoted("/") : ForbiddenByte(name));
}

unsigned RequireExisting(const TResourceManager& tree, const std::string& id,
                         const std::string& what)
{
    CheckId(id);
    const unsigned exists = tree.ResourceExists(id);
    if (exists != kResNothing)
        return exists;
    if (TResourceManager::LastFailure().Error != 0)
        ThrowFailed(what + Quoted(id) + " cannot be accessed");
    if (tree.IsMountNode(id))
        throw TFailure("the folder " +
                           Quoted(tree.GetNode4Id(id, true, true, false)->GetResourceFile(id)) +
                           " of the mount point " + Quoted(id) + " does not exist",
                       id, ENOENT);
    if (ShownKind(tree, id) == kResFolder)
        throw TFailure(what + Quoted(id) + " only contains mount points", id, EROFS);
    throw TFailure(what + Quoted(id) + " does not exist", id, ENOENT);
}

std::string Quoted(const std::string& text)
{
    return "\"" + text + "\"";
}

std::string CompactedId(const std::string& id)
{
    const std::string name = QvExtractResName(id);
    // Only segments with a "/" after them are resolved: a last "." or ".." gets one.
    const bool isFolder = name == "." || name == "..";
    const std::string compact = QvCompactResId(isFolder ? id + "/" : id);
    return isFolder ? QvExcludeTrailingSlash(compact) : compact;
}

void CheckId(const std::string& id)
{
    const std::string problem = IdProblem(id);
    if (!problem.empty())
        throw TFailure(Quoted(id) + " is not a valid resource id: " + problem, id, EINVAL);
    CheckClimb(id);
}

void CheckClimb(const std::string& id)
{
    if ((id + "/").find("/../") != std::string::npos)
        throw TFailure(Quoted(id) + " is above the root of the tree", id, EINVAL);
}

void RequireResource(const TResourceManager& tree, const std::string& id,
                     const std::string& folderAdvice)
{
    if (RequireExisting(tree, id) == kResFolder)
        throw TFailure(Quoted(id) + " is a folder" +
                           (folderAdvice.empty() ? folderAdvice : "; " + folderAdvice),
                       id, EISDIR);
    if (id.back() == '/')
        throw TFailure(Quoted(id) + " is not a folder", id, ENOTDIR);
}

void RequireFolder(const TResourceManager& tree, const std::string& id)
{
    // The root is a folder even while nothing is mounted.
    if (id != "/" && RequireExisting(tree, id) != kResFolder)
        throw TFailure(Quoted(id) + " is not a folder", id, ENOTDIR);
}

void RequireRealFolder(const TResourceManager& tree, const std::string& id)
{
    RequireFolder(tree, id);
    if (tree.GetNode4Id(id, true, true, false)->IsPureVirtual())
        throw TFailure(Quoted(id) + " only contains mount points", id, EROFS);
}

void RequireTarget(const TResourceManager& tree, const std::string& id)
{
    CheckId(id);
    if (id.back() == '/' || tree.ResourceExists(id) == kResFolder)
        throw TFailure(Quoted(id) + " is a folder; give the id of the resource to be written", id,
                       EISDIR);
    const std::string parent = QvExcludeTrailingSlash(QvExtractResPath(id));
    if (parent != "/" && RequireExisting(tree, parent, "the folder ") != kResFolder)
        throw TFailure(Quoted(parent) + " is not a folder", parent, ENOTDIR);
    if (!tree.IsInsideMountedNodes(id))
        throw TFailure(Quoted(id) + " is outside the mounted folders", id, EROFS);
}

unsigned ShownKind(const TResourceManager& tree, const std::string& id)
{
    const unsigned kind = tree.ResourceExists(id);
    if (TResourceManager::LastFailure().Error != 0)
        ThrowFailed(Quoted(id) + " cannot be accessed");
    const std::string normalId = QvNormalizeResId(id);
    // What is missing on the disk below a mount point itself is no such folder.
    if (kind == kResNothing && !tree.IsMountNode(id))
        for (const auto& node : tree.MountNodes())
            if (!node->IsPureVirtual() &&
                IsAtOrBelow(QvNormalizeResId(node->MountPointId()), normalId))
                return kResFolder;
    return kind;
}

bool IsAtOrBelow(const std::string& path, const std::string& folder)
{
    const std::string prefix = QvIncludeTrailingSlash(folder);
    return QvIncludeTrailingSlash(path).compare(0, prefix.size(), prefix) == 0;
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
    throw TFailure(text.find(id) == std::string::npos ? Quoted(id) + ": " + text : text, id,
                   TResourceManager::LastFailure().Error);
}

std::string CauseText(int error)
{
    return error == EAGAIN ? "another process has locked it" : QvErrorText(error);
}

TFailure WithCause(const std::string& message, const TQvFailure& cause, const std::string& id)
{
    const std::string& about = id.empty() ? cause.Id : id;
    if (cause.Error == 0)
        return TFailure(message, about);
    const bool isNamed = cause.Id.empty() || message.find(cause.Id) != std::string::npos;
    return TFailure(message + ": " + (isNamed ? "" : Quoted(cause.Id) + ": ") +
                        CauseText(cause.Error),
                    about, cause.Error);
}

TFailure WithMissingCause(const TQvMessage& message)
{
    std::string text = message.what();
    const TQvFailure& cause = TResourceManager::LastFailure();
    // The message about a lock of another process has more information than its errno.
    if (cause.Error == 0 || cause.Error == EAGAIN ||
        text.find(QvErrorText(cause.Error)) != std::string::npos)
        return TFailure(text, cause.Id, cause.Error);
    if (!text.empty() && text.back() == '.')
        text.pop_back();
    return WithCause(text, {cause.Error, ""}, cause.Id);
}

void ThrowFailed(const std::string& message, int error, const std::string& id)
{
    BreakSignal::ThrowIfWanted();
    throw WithCause(message, {error, ""}, id);
}

void ThrowFailed(const std::string& message)
{
    BreakSignal::ThrowIfWanted();
    throw WithCause(message, TResourceManager::LastFailure());
}
