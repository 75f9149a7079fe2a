// A listing as values to compare.
#pragma once

#include <string>
#include <vector>

#include "manager/ResourceManager.h"

/// The ids that a manager or a node finds, in its order; folders with a trailing "/".
template <class TFinder>
std::vector<std::string> Listed(const TFinder& finder, const std::string& folder,
                                const std::string& mask, unsigned flags,
                                TQvProgressHandler* progress = nullptr)
{
    const auto items = make_var<std::vector<TQvResFindItem>>();
    finder.Find(items, folder, mask, flags, progress);
    std::vector<std::string> ids;
    for (const TQvResFindItem& item : *items)
        ids.push_back(item.Id + (item.Attrib.Kind == kResFolder ? "/" : ""));
    return ids;
}
