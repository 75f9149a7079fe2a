// The order in which listings are shown: by the bytes of the ids.
//
// Thread-safety: callable from any thread.
#pragma once

#include <functional>
#include <vector>

#include <QvServices/QvServices.h>

/// Visits the entries of a listing in byte order of their ids. Fast when the entries of each folder
/// follow each other, as TResourceManager::Find lists them.
void VisitById(const std::vector<TQvResFindItem>& items,
               const std::function<void(const TQvResFindItem&)>& visit);
