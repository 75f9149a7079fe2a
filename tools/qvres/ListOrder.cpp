#include "ListOrder.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <endian.h>
#include <string_view>

namespace
{
using TItem = TQvResFindItem;

/// The entries of one folder, in the order of the listing.
struct TPart
{
    std::string_view Prefix; ///< of their ids, up to the last "/"
    const TItem* Begin;
    const TItem* End;
};

/// A name by its first bytes, which mostly decide, so that sorting rarely reads the ids.
struct TSortKey
{
    std::uint64_t FirstBytes;
    const TItem* Item;
};

/// The entries of one folder, sorted, of which the first ones were visited.
struct TOpenFolder
{
    std::string_view Prefix;
    std::vector<TSortKey> Keys;
    std::size_t Next;
};

bool StartsWith(std::string_view text, std::string_view start)
{
    return text.substr(0, start.size()) == start;
}

/// As a number that is smaller where the bytes come first.
std::uint64_t FirstBytes(std::string_view text)
{
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, text.data(), std::min(text.size(), sizeof bytes));
    // Bytes compare in the order of the text, so the first one must weigh most.
    return be64toh(bytes);
}

std::string_view CommonStart(std::string_view one, std::string_view other)
{
    if (StartsWith(other, one))
        return one;
    const auto differing = std::mismatch(one.begin(), one.end(), other.begin(), other.end());
    return one.substr(0, static_cast<std::size_t>(differing.first - one.begin()));
}

std::vector<TSortKey> SortedKeys(const TPart& part)
{
    // What all ids begin with decides nothing.
    std::string_view common = part.Begin->Id;
    for (const TItem* item = part.Begin; item != part.End; ++item)
        common = CommonStart(common, item->Id);
    std::vector<TSortKey> keys;
    keys.reserve(static_cast<std::size_t>(part.End - part.Begin));
    for (const TItem* item = part.Begin; item != part.End; ++item)
        keys.push_back({FirstBytes(std::string_view(item->Id).substr(common.size())), item});
    std::sort(keys.begin(), keys.end(), [](const TSortKey& a, const TSortKey& b) {
        return a.FirstBytes != b.FirstBytes ? a.FirstBytes < b.FirstBytes : a.Item->Id < b.Item->Id;
    });
    return keys;
}

bool LiesIn(std::string_view id, std::string_view prefix)
{
    return StartsWith(id, prefix) && id.find('/', prefix.size()) == std::string_view::npos;
}

/// The parts of a listing in the order of their prefixes, each prefix once.
std::vector<TPart> PartsOf(const std::vector<TItem>& items)
{
    std::vector<TPart> parts;
    const TItem* const end = items.data() + items.size();
    for (const TItem* item = items.data(); item != end; ++item) {
        const std::string_view id = item->Id;
        if (parts.empty() || !LiesIn(id, parts.back().Prefix))
            parts.push_back({id.substr(0, id.rfind('/') + 1), item, item});
        parts.back().End = item + 1;
    }
    std::sort(parts.begin(), parts.end(),
              [](const TPart& a, const TPart& b) { return a.Prefix < b.Prefix; });
    const auto isSame = [](const TPart& a, const TPart& b) { return a.Prefix == b.Prefix; };
    // A folder in two places: all entries are one part, sorted by their whole ids.
    if (std::adjacent_find(parts.begin(), parts.end(), isSame) != parts.end())
        parts = {{"", items.data(), end}};
    return parts;
}
} // namespace

void VisitById(const std::vector<TItem>& items, const std::function<void(const TItem&)>& visit)
{
    // Some entries of a folder belong before the content of a sub-folder, the others after it:
    // "/A/b", "/A/b.txt", "/A/b/x", "/A/c". Each open folder is in the one before it.
    std::vector<TOpenFolder> open;
    const auto visitWhile = [&](const auto& isWanted) {
        TOpenFolder& folder = open.back();
        for (; folder.Next != folder.Keys.size() && isWanted(*folder.Keys[folder.Next].Item);
             ++folder.Next)
            visit(*folder.Keys[folder.Next].Item);
    };
    const auto closeLast = [&] {
        visitWhile([](const TItem&) { return true; });
        open.pop_back();
    };
    for (const TPart& part : PartsOf(items)) {
        while (!open.empty() && !StartsWith(part.Prefix, open.back().Prefix))
            closeLast();
        if (!open.empty())
            visitWhile([&](const TItem& item) { return item.Id < part.Prefix; });
        // Sorted only now, and visited at once while it is in the processor's cache.
        open.push_back({part.Prefix, SortedKeys(part), 0});
    }
    while (!open.empty())
        closeLast();
}
