#include "NewContent.h"

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <unistd.h>

#include "Checks.h"

namespace
{
constexpr std::size_t kLongestName = 255;

/// ".NAME.qvput-PID.tmp" beside `id`, the name shortened where it would be too long for a disk.
std::string HiddenNeighbour(const std::string& id)
{
    std::string name = QvExtractResName(id);
    const std::string suffix = ".qvput-" + std::to_string(getpid()) + ".tmp";
    const std::size_t room = kLongestName - 1 - suffix.size();
    if (name.size() > room) {
        std::size_t end = room;
        while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xc0) == 0x80)
            --end; // not into the middle of a character
        name.resize(end);
    }
    return QvExtractResPath(id) + "." + name + suffix;
}
} // namespace

TNewContent::TNewContent(const TResourceManager& tree, const std::string& id)
    : m_tree(tree), m_id(id), m_neighbour(HiddenNeighbour(id))
{
    // Opening for writing tells whether the resource may be written; a resource that is not
    // there loses the metadata that an earlier one of its name has left.
    m_existing = tree.OpenResource(id, kQvOpenWrite, kQvShareAll, 0);
    if ((!m_existing || !*m_existing) && tree.IsResource(id))
        Fail(m_existing.get());
    m_stream = tree.OpenResource(m_neighbour, kQvOpenCreate, kQvShareAll, 0);
    if (!m_stream || !*m_stream)
        Fail(m_stream.get());
    KeepPermissions();
}

TNewContent::~TNewContent()
{
    if (!m_stream)
        return;
    m_stream.reset();
    try {
        m_tree.DeleteResource(m_neighbour);
    } catch (const std::exception&) {
        // The failure that led here is the one to tell.
    }
}

void TNewContent::Write(const char* bytes, std::size_t count)
{
    if (m_stream->Write(bytes, count) != count)
        Fail(m_stream.get());
}

void TNewContent::Finish()
{
    if (!m_stream->Flush() || !m_stream->Close())
        Fail(m_stream.get());
    errno = 0;
    if (!m_tree.RenMovResource(m_neighbour, m_id, nullptr))
        ThrowFailed(Quoted(m_id) + " cannot be replaced", errno);
    m_stream.reset();
}

void TNewContent::Fail(const TQvStream* stream) const
{
    ThrowFailed(Quoted(m_id) + " cannot be written", stream != nullptr ? -stream->getError() : 0);
}

/// Before there is any content: what only its owner may read stays so all the time.
void TNewContent::KeepPermissions() const
{
    if (!m_existing || !*m_existing)
        return;
    namespace fs = std::filesystem;
    std::error_code ignored; // some file systems have no permissions
    const fs::file_status status = fs::status(m_tree.GetResourceFile(m_id, false), ignored);
    fs::permissions(m_tree.GetResourceFile(m_neighbour, false), status.permissions(), ignored);
}
