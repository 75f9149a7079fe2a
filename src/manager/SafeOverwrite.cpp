#include "manager/SafeOverwrite.h"

#include <atomic>
#include <unistd.h>

#include "QvStd/Clock.h"
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
    : m_node(node), m_id(id), m_writtenId(id)
{
    const unsigned exists = node.ResourceExists(id);
    if (exists == kResFolder)
        return;
    if (exists == kResResource) {
        // Opening it tells whether it may be written, and keeps others from taking it for
        // themselves.
        m_existing = node.OpenResource(id, kQvOpenWrite, kQvShareAll, 0);
        if (!m_existing || !*m_existing)
            return;
        m_writtenId = HiddenNeighbour(id);
    }
    m_stream = node.OpenResource(m_writtenId, kQvOpenCreate, kQvShareAll,
                                 static_cast<unsigned long>(size));
    m_unfinished = m_stream && *m_stream;
}

TSafeOverwrite::~TSafeOverwrite()
{
    if (!m_unfinished)
        return;
    m_stream.reset();
    m_node.DeleteResource(m_writtenId);
}

bool TSafeOverwrite::Finish()
{
    m_unfinished = !m_stream->Close() ||
                   (m_writtenId != m_id && !m_node.RenMovResource(m_writtenId, m_id, nullptr));
    return !m_unfinished;
}
