// Operations on resources.
#include <cerrno>

#include "QvStd/Message.h"
#include "manager/LastFailure.h"
#include "manager/ResourceManager.h"
#include "module/ModuleInitializer.h"
#include "resid/ResId.h"

namespace
{
const char* OpenErrorKey(qvOpenMode mode)
{
    switch (mode) {
    case kQvOpenWriteOrCreate:
    case kQvOpenCreateNew:
    case kQvOpenReadWrite:
        return "global.ErrResCreate";
    case kQvOpenWrite:
    case kQvOpenCreate:
        return "global.ErrResOpenWrite";
    case kQvOpenRead:
        return "global.ErrResOpenRead";
    default:
        return "global.ErrResOpen";
    }
}

bool Creates(qvOpenMode mode)
{
    return mode != kQvOpenRead && mode != kQvOpenWrite;
}

/// Why a node without storage opens nothing.
TQvResult WhyNotOpened(const TResourceManager::TMountNode& node, const std::string& id,
                       qvOpenMode mode)
{
    if (node.ResourceExists(id) == kResFolder)
        return TQvResult::Failed(EISDIR, id);
    return Creates(mode) ? TQvResult::Failed(EROFS, id) : TQvResult::Nothing(id);
}
} // namespace

/// The core of both forms: a stream that did not open goes to the caller as it is, with its error.
var_a<TQvStream*> TResourceManager::OpenResource(const std::string& id, qvOpenMode mode,
                                                 qvShareMode share, unsigned long sizeHint) const
{
    TMountNode* node = NodeFor(id);
    var_a<TQvStream*> stream = node->OpenResource(id, mode, share, sizeHint);
    // An empty reference has no error of its own: only the node knows whether the id is a folder.
    if (!stream)
        QvReport(WhyNotOpened(*node, id, mode));
    else if (!*stream)
        SetLastFailure(-stream->getError(), id);
    return stream;
}

var_a<TQvStream*> TResourceManager::OpenResourceE(const std::string& id, qvOpenMode mode,
                                                  qvShareMode share, unsigned long sizeHint) const
{
    var_a<TQvStream*> stream = OpenResource(id, mode, share, sizeHint);
    if (!stream || !*stream)
        throw TQvMessage(QvResourceString(OpenErrorKey(mode))) << id;
    return stream;
}

var_a<TQvStream*> TResourceManager::OpenResourceMeta(const std::string& id, qvOpenMode mode,
                                                     qvShareMode share) const
{
    TQvResult result;
    var_a<TQvStream*> stream = NodeFor(id)->OpenResourceMeta(id, mode, share, &result);
    QvReport(result);
    return stream;
}

bool TResourceManager::DeleteResource(const std::string& id) const
{
    return QvReport(NodeFor(id)->DeleteResource(id));
}

bool TResourceManager::ResourceMetaExists(const std::string& id) const
{
    return QvReportAnswer(NodeFor(id)->ResourceMetaExists(id));
}

bool TResourceManager::GetResourceAttr(const std::string& id, TQvResAttrib* attrib) const
{
    return QvReportAnswer(NodeFor(id)->GetResourceAttr(id, attrib));
}

/// A node without disk files answers a lock that is not held: ENOTSUP says that none is possible.
var_a<TQvLockFile*> TResourceManager::CreateLockFile(const std::string& id, unsigned long timeoutMs,
                                                     bool forWriting,
                                                     const std::string& owner) const
{
    TMountNode* node = NodeFor(id);
    var_a<TQvLockFile*> lock = node->CreateLockFile(id, timeoutMs, forWriting, owner);
    if (*lock)
        QvReport(TQvResult::Done());
    else
        SetLastFailure(node->GetResourceFile(id).empty() ? ENOTSUP : -lock->getError(), id);
    return lock;
}

/// For a query: null for an id that is not valid, where nothing exists. Throws for a valid one
/// without a node, as every operation does.
const TResourceManager::TMountNode* TResourceManager::NodeToAsk(const std::string& id) const
{
    bool isValid = false;
    const TMountNode* node = ResolveNode(id, true, false, &isValid);
    if (!isValid || id.empty())
        return nullptr;
    return node != nullptr ? node : NodeFor(id);
}

TQvExistence TResourceManager::LookUp(const std::string& id) const
{
    if (id.size() > 1 && id.back() == '/')
        return LookUp(QvExcludeTrailingSlash(id));
    const TMountNode* node = NodeToAsk(id);
    return node != nullptr ? node->ResourceExists(id)
                           : TQvExistence{kResNothing, TQvResult::Nothing(id)};
}

unsigned TResourceManager::ResourceExists(const std::string& id) const
{
    // A failure is recorded with the id as the caller wrote it, with its trailing "/".
    const TQvExistence existence = LookUp(id);
    if (existence.Result.HasFailed())
        SetLastFailure(existence.Result.Error(), id);
    else
        QvReport(TQvResult::Done());
    return existence;
}

bool TResourceManager::IsResource(const std::string& id) const
{
    return ResourceExists(id) == kResResource;
}

bool TResourceManager::CopyResource(const std::string& src, const std::string& dst,
                                    TQvProgressHandler* progress) const
{
    TMountNode* from = NodeFor(src);
    TMountNode* to = NodeFor(dst);
    const TQvTransfer copied = from->CopyResourceTo(src, *to, dst, {}, progress);
    QvReport(copied.Content);
    if (!copied.Content)
        return false;
    // Content and sidecar are two files: the copy of the first stays when the second fails.
    QvReportSidecar(copied.Sidecar, src, dst);
    // Between two nodes only the content decides the result.
    return copied.Sidecar || from != to;
}

bool TResourceManager::CopyResourceMeta(const std::string& src, const std::string& dst) const
{
    TMountNode* from = NodeFor(src);
    return QvReport(from->CopyResourceMetaTo(src, *NodeFor(dst), dst));
}

bool TResourceManager::RenMovResource(const std::string& src, const std::string& dst,
                                      TQvProgressHandler* progress) const
{
    TMountNode* from = NodeFor(src);
    // The node of the source does the work: only it can rename, and it knows whether the target is
    // its own.
    const TQvTransfer moved = from->MoveResourceTo(src, *NodeFor(dst), dst, progress);
    QvReport(moved.Content);
    if (!moved.Content)
        return false;
    QvReportSidecar(moved.Sidecar, src, dst);
    return moved.Sidecar;
}

bool TResourceManager::GetResourceLabelWeak(const std::string& id, TQvResourceLabel* label)
{
    if (!ResourceManager.IsResource(id))
        return false;
    TQvResAttrib attrib;
    // A failed query gives zeros and counts as an answer; LastFailure has the cause.
    ResourceManager.GetResourceAttr(id, &attrib);
    label->Size = attrib.Size;
    label->Time = attrib.UpdateTime;
    return true;
}

/// Creating goes through OpenResource, so that a stale sidecar is removed as with any new resource.
std::string TResourceManager::GetResourceFile(const std::string& id, bool createIfMissing) const
{
    TMountNode* node = NodeFor(id);
    TQvExistence exists = node->ResourceExists(id);
    QvReportAnswer(exists.Result.Named(id));
    if (exists == kResNothing && createIfMissing) {
        OpenResource(id, kQvOpenCreate, kQvShareAll, 0); // closed at once: an empty resource
        if (LastFailure().Error != 0)
            return {};
        // Another process may have deleted it meanwhile, or created a folder of that name.
        exists = node->ResourceExists(id);
        QvReport(exists.Result.Named(id));
    }
    return exists == kResResource ? node->GetResourceFile(id) : std::string();
}

std::string TResourceManager::GetResourceFileFolder(const std::string& id) const
{
    const TMountNode* node = NodeFor(id);
    const TQvExistence exists = node->ResourceExists(id);
    QvReportAnswer(exists.Result.Named(id));
    return exists == kResResource ? QvExtractResPath(node->GetResourceFile(id)) : std::string();
}
