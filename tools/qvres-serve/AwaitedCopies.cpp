#include "AwaitedCopies.h"

#include <algorithm>

namespace
{
bool IsIn(const std::string& id, const std::string& folder)
{
    return id.compare(0, folder.size(), folder) == 0 &&
           (id.size() == folder.size() || id[folder.size()] == '/');
}
} // namespace

void TAwaitedCopies::Expect(const std::string& sourceId, const std::string& targetId)
{
    constexpr std::size_t kMost = 64;
    Forget(sourceId);
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_copies.size() == kMost)
        m_copies.pop_front();
    m_copies.push_back({sourceId, targetId});
    m_areNone = false;
}

std::string TAwaitedCopies::CopyOf(const std::string& id) const
{
    if (m_areNone)
        return {};
    const std::lock_guard<std::mutex> lock(m_mutex);
    // The last attempt counts: one to move the whole folder may have been given up before.
    const auto copy = std::find_if(m_copies.rbegin(), m_copies.rend(),
                                   [&](const TCopy& known) { return IsIn(id, known.Source); });
    return copy == m_copies.rend() ? std::string() : copy->Target + id.substr(copy->Source.size());
}

void TAwaitedCopies::Forget(const std::string& sourceId)
{
    if (m_areNone)
        return;
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto isIt = [&](const TCopy& copy) { return copy.Source == sourceId; };
    m_copies.erase(std::remove_if(m_copies.begin(), m_copies.end(), isIt), m_copies.end());
    m_areNone = m_copies.empty();
}
