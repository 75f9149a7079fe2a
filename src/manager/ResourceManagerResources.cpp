// Operations on resources.
#include "QvStd/Files.h"
#include "QvStd/Message.h"
#include "manager/ModuleInitializer.h"
#include "manager/ResourceManager.h"
#include "manager/SafeOverwrite.h"
#include "resid/ResId.h"

namespace
{
const char* OpenErrorKey(qvOpenMode mode)
{
    switch (mode) {
    case kQvOpenAppend:
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
enum class TSameness
{
    Different, ///< two files, or two hard links of one
    OneEntry,  ///< one and the same entry of one folder, reached by two mounts
    Linked     ///< one is a symbolic link to the other
};

TSameness CompareFiles(const std::string& a, const std::string& b)
{
    if (!QvIsSameFile(a, b))
        return TSameness::Different;
    if (QvExtractResName(a) == QvExtractResName(b) &&
        QvIsSameFile(QvExtractResPath(a), QvExtractResPath(b)))
        return TSameness::OneEntry;
    return QvIsSymLink(a) || QvIsSymLink(b) ? TSameness::Linked : TSameness::Different;
}
} // namespace

var_a<TQvStream*> TResourceManager::OpenResource(const std::string& id, qvOpenMode mode,
                                                 qvShareMode share, unsigned long sizeHint) const
{
    return NodeFor(id)->OpenResource(id, mode, share, sizeHint);
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
    return NodeFor(id)->OpenResourceMeta(id, mode, share);
}

bool TResourceManager::DeleteResource(const std::string& id) const
{
    return NodeFor(id)->DeleteResource(id);
}

bool TResourceManager::ResourceMetaExists(const std::string& id) const
{
    return NodeFor(id)->ResourceMetaExists(id);
}

bool TResourceManager::GetResourceAttr(const std::string& id, TQvResAttrib* attrib) const
{
    return NodeFor(id)->GetResourceAttr(id, attrib);
}

var_a<TQvLockFile*> TResourceManager::CreateLockFile(const std::string& id, unsigned long timeoutMs,
                                                     bool forWriting,
                                                     const std::string& owner) const
{
    return NodeFor(id)->CreateLockFile(id, timeoutMs, forWriting, owner);
}

unsigned TResourceManager::ResourceExists(const std::string& id) const
{
    if (id.size() > 1 && id.back() == '/')
        return ResourceExists(QvExcludeTrailingSlash(id));
    bool isValid = false;
    const TMountNode* node = ResolveNode(id, true, false, &isValid);
    if (!isValid || id.empty())
        return kResNothing;
    // Valid, but nothing is mounted anywhere: that is told as it is everywhere else.
    return (node != nullptr ? node : NodeFor(id))->ResourceExists(id);
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
    if (from == to)
        return from->CopyResource(src, dst, progress);
    if (!CopyContentBetweenNodes(*from, src, *to, dst, progress))
        return false;
    // The content is whole: a sidecar that cannot be copied does not change that.
    if (from->ResourceMetaExists(src))
        CopyResourceMeta(src, dst);
    return true;
}

bool TResourceManager::CopyContentBetweenNodes(TMountNode& from, const std::string& src,
                                               TMountNode& to, const std::string& dst,
                                               TQvProgressHandler* progress) const
{
    const var_a<TQvStream*> source = from.OpenResource(src, kQvOpenRead, kQvShareAll, 0);
    if (!source || !*source)
        return false;
    TSafeOverwrite target(to, dst, source->getSize());
    // Two mounts may lead to one folder: then the source is the target already.
    if (target.TargetExists() && QvIsSameFile(from.GetResourceFile(src), to.GetResourceFile(dst)))
        return true;
    return target.IsOpen() && source->setPosition(0) && target.Stream().setPosition(0) &&
           QvCopyStream(source.get(), &target.Stream(), progress) && target.Finish();
}

bool TResourceManager::CopyResourceMeta(const std::string& src, const std::string& dst) const
{
    TMountNode* from = NodeFor(src);
    TMountNode* to = NodeFor(dst);
    if (from == to)
        return from->CopyResourceMeta(src, dst);
    // The source first: the target's sidecar must not be emptied for a source that has none.
    const var_a<TQvStream*> source = from->OpenResourceMeta(src, kQvOpenRead, kQvShareAll);
    if (!source)
        return false;
    if (QvIsSameFile(from->GetResourceFile(src), to->GetResourceFile(dst)))
        return true;
    const var_a<TQvStream*> target = to->OpenResourceMeta(dst, kQvOpenCreate, kQvShareAll);
    return target && QvCopyStream(source.get(), target.get(), nullptr) && target->Close();
}

bool TResourceManager::RenMovResource(const std::string& src, const std::string& dst,
                                      TQvProgressHandler* progress) const
{
    TMountNode* from = NodeFor(src);
    TMountNode* to = NodeFor(dst);
    if (from == to)
        return from->RenMovResource(src, dst, progress);
    if (!CopyContentBetweenNodes(*from, src, *to, dst, progress))
        return false;
    switch (CompareFiles(from->GetResourceFile(src), to->GetResourceFile(dst))) {
    case TSameness::OneEntry:
        return true; // already there: deleting the source would delete the target
    case TSameness::Linked:
        return false; // deleting the source would leave a link to nothing
    case TSameness::Different:
        break;
    }
    // Unlike a copy, a move without the sidecar would lose it.
    if (from->ResourceMetaExists(src) && !CopyResourceMeta(src, dst))
        return false;
    return from->DeleteResource(src);
}

bool TResourceManager::GetResourceLabelWeak(const std::string& id, TQvResourceLabel* label)
{
    if (!ResourceManager.IsResource(id))
        return false;
    TQvResAttrib attrib;
    ResourceManager.GetResourceAttr(id,
                                    &attrib); // a failed query leaves zeros, and still is an answer
    label->Size = attrib.Size;
    label->Time = attrib.UpdateTime;
    return true;
}

std::string TResourceManager::GetResourceFile(const std::string& id, bool createIfMissing) const
{
    TMountNode* node = NodeFor(id);
    unsigned exists = node->ResourceExists(id);
    if (exists == kResNothing && createIfMissing) {
        node->OpenResource(id, kQvOpenCreate, kQvShareAll, 0); // closed at once: an empty resource
        exists = node->ResourceExists(id);
    }
    return exists == kResResource ? node->GetResourceFile(id) : std::string();
}

std::string TResourceManager::GetResourceFileFolder(const std::string& id) const
{
    const TMountNode* node = NodeFor(id);
    if (node->ResourceExists(id) != kResResource)
        return {};
    return QvExtractResPath(node->GetResourceFile(id));
}
