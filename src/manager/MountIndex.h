// The indexes of the mount table: from mount points to their places in the table.
//
// Adding and removing one mount point gives the same as adding all mount points of the table to an
// empty index, in the order of the table.
//
// Thread-safety: queries may run on any thread at once; no other call may run during a change.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "resid/NormalResId.h"

class TMountIndex
{
public:
    using TLengths = std::multimap<std::uint64_t, std::uint32_t>;
    using TIds = std::map<std::string, std::uint32_t>;
    static constexpr std::uint32_t kNone = UINT32_MAX;

    TMountIndex();

    void Clear();
    /// The mount point that was appended to the table.
    void Add(const std::string& mountPoint);
    /// Removes a mount point; the places after it become one less. False, and nothing is changed,
    /// while two mount points have one normal form: then the index must be rebuilt to find out
    /// which one counts.
    bool Remove(std::uint32_t place, const std::string& mountPoint);

    /// The place of the last mount point with this normal form, or kNone.
    std::uint32_t Find(std::string_view normalId) const;
    /// The place of the longest mount point that is a prefix of whole parts of the id, or kNone;
    /// with `skipExact` the id itself does not count.
    std::uint32_t Resolve(const TNormalResId& id, bool skipExact) const;

    /// Length of the mount point -> place, equal ones in the order of the table.
    const TLengths& Lengths() const { return m_lengths; }
    /// Normal form of the mount point -> place of the last one.
    const TIds& Ids() const { return m_ids; }

private:
    /// Of a hash table with open addressing: most ids need one access.
    struct TSlot
    {
        std::uint64_t Hash = 0;
        const TIds::value_type* Entry = nullptr; ///< null in a free slot
    };

    std::size_t SlotOf(std::string_view normalId) const;
    void InsertSlot(const TIds::value_type& entry);
    void EraseSlot(std::size_t slot);
    std::size_t Next(std::size_t slot) const { return (slot + 1) & (m_slots.size() - 1); }
    bool IsLengthInUse(std::size_t length) const;

    TLengths m_lengths;
    TIds m_ids;
    std::vector<TSlot> m_slots; ///< a power of two of them, at most half of them used
    std::vector<std::uint64_t>
        m_lengthsInUse; ///< a bit for each length in use: others need no lookup
};
