#include "manager/SafeOverwrite.h"

#include <atomic>
#include <cerrno>
#include <unistd.h>

#include "QvStd/Clock.h"
#include "QvStd/Files.h"
#include "QvStd/Strings.h"
#include "resid/ResId.h"

namespace
{
std::string HiddenNeighbour(const std::string& id)
{
    static std::atomic<unsigned> counter{0};
    return QvExtractResPath(id) + Korvadel::ssprintf(".qvcopy-%d-%x-%u.tmp",
                                                     static_cast<int>(getpid()), QvGetTickCount(),
                                                     counter.fetch_add(1));
}
} // namespace

TSafeOverwrite::TSafeOverwrite(TResourceManager::TMountNode& node, const std::string& id,
                               std::uint64_t size)
    : m_node(node), m_id(id), m_neighbour(HiddenNeighbour(id))
{
    // Opening an existing target tells whether it may be written, and keeps others from taking it
    // for themselves. A target that is not there loses a sidecar left over from an earlier
    // resource.
    m_existing = node.OpenResource(id, kQvOpenWrite, kQvShareAll, 0);
    if (!TargetExists() && node.ResourceExists(id) != kResNothing)
        return; // a folder, or a resource that may not be written
    m_stream = node.OpenResource(m_neighbour, kQvOpenCreate, kQvShareAll,
                                 static_cast<unsigned long>(size));
    m_unfinished = m_stream && *m_stream;
}

TSafeOverwrite::~TSafeOverwrite()
{
    if (!m_unfinished)
        return;
    const int reason = errno; // of the failure, which the caller may want to tell
    m_stream.reset();
    m_node.DeleteResource(m_neighbour);
    errno = reason;
}

bool TSafeOverwrite::Finish()
{
    // The source may have become shorter than it was announced.
    if (!m_stream->setSize(m_stream->getPosition()) || !m_stream->Close())
        return false;
    if (TargetExists() &&
        !QvCopyPermissions(m_node.GetResourceFile(m_id), m_node.GetResourceFile(m_neighbour)))
        return false;
    m_unfinished = !m_node.RenMovResource(m_neighbour, m_id, nullptr);
    return !m_unfinished;
}
