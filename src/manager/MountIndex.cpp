#include "manager/MountIndex.h"

#include <algorithm>
#include <cassert>

#include "QvStd/Strings.h"
#include "resid/ResId.h"

namespace
{
/// A power of two, since a slot is found by masking the hash; half of them stay free.
constexpr std::size_t kFewestSlots = 16;
constexpr std::size_t kWordBits = TNormalResId::kWordBits;

constexpr std::uint64_t BitOf(std::size_t length)
{
    return std::uint64_t{1} << length % kWordBits;
}
} // namespace

/// Slots refer to entries of m_ids, which do not move when others are added or removed. Linear
/// probing: an entry is in the slot of its hash or in a later one, with no free slot in between.
TMountIndex::TMountIndex() : m_slots(kFewestSlots) {}

void TMountIndex::Clear()
{
    m_lengths.clear();
    m_ids.clear();
    m_slots.assign(kFewestSlots, {});
    m_lengthsInUse.clear();
}

void TMountIndex::Add(const std::string& mountPoint)
{
    assert(m_lengths.size() < kNone);
    const auto place = static_cast<std::uint32_t>(m_lengths.size());
    const std::size_t length = mountPoint.size();
    m_lengths.emplace(length, place);
    if (length / kWordBits >= m_lengthsInUse.size())
        m_lengthsInUse.resize(length / kWordBits + 1);
    m_lengthsInUse[length / kWordBits] |= BitOf(length);
    // Of equal mount points the last one counts; its slot refers to the same entry.
    const auto [entry, isNew] = m_ids.insert_or_assign(QvNormalizeResId(mountPoint), place);
    if (!isNew)
        return;
    if (m_ids.size() * 2 <= m_slots.size())
        return InsertSlot(*entry);
    // Doubled, so that mounting many folders costs a constant time for each.
    m_slots.assign(m_slots.size() * 2, {});
    for (const TIds::value_type& each : m_ids)
        InsertSlot(each);
}

bool TMountIndex::Remove(std::uint32_t place, const std::string& mountPoint)
{
    // Two equal mount points share an entry, and it does not say which other node it now belongs
    // to: the caller builds the index again.
    if (m_ids.size() != m_lengths.size())
        return false;
    const auto entry = m_ids.find(QvNormalizeResId(mountPoint));
    assert(entry != m_ids.end() && entry->second == place);
    EraseSlot(SlotOf(entry->first));
    m_ids.erase(entry);
    auto [first, last] = m_lengths.equal_range(mountPoint.size());
    // A bit for a length that no mount point has would only cost look-ups, but for each id.
    const bool isOnlyOne = std::next(first) == last;
    while (first != last && first->second != place)
        ++first;
    assert(first != last);
    m_lengths.erase(first);
    if (isOnlyOne)
        m_lengthsInUse[mountPoint.size() / kWordBits] &= ~BitOf(mountPoint.size());
    if (place == m_lengths.size())
        return true; // it was the last one
    // Linear, but without hashing: the places after it are one less in the table, too.
    for (auto& [length, other] : m_lengths)
        other -= other > place ? 1 : 0;
    for (auto& [normalId, other] : m_ids)
        other -= other > place ? 1 : 0;
    return true;
}

void TMountIndex::InsertSlot(const TIds::value_type& entry)
{
    assert((m_slots.size() & (m_slots.size() - 1)) == 0); // the size is used as a mask
    assert(m_ids.size() * 2 <= m_slots.size());           // each search ends at a free slot
    const std::size_t slot = SlotOf(entry.first);
    assert(m_slots[slot].Entry == nullptr);
    m_slots[slot] = {QvHashNormalResId(entry.first), &entry};
}

/// A search ends at a free slot: move up the following entries that are not in their first slot.
void TMountIndex::EraseSlot(std::size_t slot)
{
    assert(m_slots[slot].Entry != nullptr);
    const std::size_t mask = m_slots.size() - 1;
    for (std::size_t other = Next(slot); m_slots[other].Entry != nullptr; other = Next(other)) {
        const std::size_t wayFromChoice = (other - m_slots[other].Hash) & mask;
        if (wayFromChoice >= ((other - slot) & mask)) {
            m_slots[slot] = m_slots[other];
            slot = other;
        }
    }
    m_slots[slot] = {};
}

/// Its slot, or the free slot for it.
std::size_t TMountIndex::SlotOf(std::string_view normalId) const
{
    // The hash is compared first: names are compared only when it is equal.
    const std::uint64_t hash = QvHashNormalResId(normalId);
    std::size_t slot = hash & (m_slots.size() - 1);
    while (m_slots[slot].Entry != nullptr &&
           (m_slots[slot].Hash != hash || m_slots[slot].Entry->first != normalId))
        slot = Next(slot);
    return slot;
}

bool TMountIndex::IsLengthInUse(std::size_t length) const
{
    const std::size_t word = length / kWordBits;
    return word < m_lengthsInUse.size() && (m_lengthsInUse[word] & BitOf(length)) != 0;
}

std::uint32_t TMountIndex::Find(std::string_view normalId) const
{
    assert(
        std::none_of(normalId.begin(), normalId.end(), [](char c) { return c != QvToUpper(c); }));
    if (!IsLengthInUse(normalId.size()))
        return kNone;
    const TIds::value_type* entry = m_slots[SlotOf(normalId)].Entry;
    return entry != nullptr ? entry->second : kNone;
}

std::uint32_t TMountIndex::Resolve(const TNormalResId& id, bool skipExact) const
{
    assert(id.IsValid()); // "//" would find a mount point in the middle of a name
    if (!skipExact)
        if (const std::uint32_t place = Find(id.Text()); place != kNone)
            return place;
    // From the end, a word of 64 positions at a time: the candidates are the slashes at positions
    // that are the length of some mount point, so that most ids need one look-up.
    for (std::size_t word = std::min(id.Words(), m_lengthsInUse.size()); word-- > 0;) {
        std::uint64_t ends = id.Slashes()[word] & m_lengthsInUse[word];
        while (ends != 0) {
            const auto bit = kWordBits - 1 - static_cast<std::size_t>(__builtin_clzll(ends));
            const TIds::value_type* entry =
                m_slots[SlotOf(id.Text().substr(0, word * kWordBits + bit))].Entry;
            if (entry != nullptr)
                return entry->second;
            ends &= ~BitOf(bit);
        }
    }
    return kNone;
}
