// Keeps names from being renamed while an operation uses them as ids.
//
// Every operation that works through an id shares its name here; a rename locks its two names
// exclusively, and a rename of a folder, which changes the ids of its whole content, locks
// everything. Names are spread over many locks, so that a slow operation delays few others.
//
// Thread-safety: callable from any thread.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <mutex>
#include <shared_mutex>
#include <string_view>

class TNameLocks
{
public:
    using TMutex = std::shared_mutex;

    TMutex Folders;

    TMutex& Of(const void* parent, std::string_view name)
    {
        const std::size_t hash =
            std::hash<std::string_view>()(name) ^ std::hash<const void*>()(parent);
        return m_names[hash % m_names.size()];
    }

private:
    std::array<TMutex, 64> m_names;
};

/// One name, and all folders, shared for the time of an operation.
struct TNameHold
{
    std::shared_lock<TNameLocks::TMutex> Folders;
    std::shared_lock<TNameLocks::TMutex> Name;
};

/// The two names of a rename; one lock may stand for both.
struct TRenameHold
{
    TRenameHold(TNameLocks& locks, TNameLocks::TMutex& from, TNameLocks::TMutex& to, bool isFolder)
        : Shared(locks.Folders, std::defer_lock), Alone(locks.Folders, std::defer_lock)
    {
        if (isFolder) {
            Alone.lock();
            return;
        }
        Shared.lock();
        // Always in the same order, so that two renames never wait for each other.
        TNameLocks::TMutex* const first = std::less<>()(&from, &to) ? &from : &to;
        TNameLocks::TMutex* const second = first == &from ? &to : &from;
        First = std::unique_lock<TNameLocks::TMutex>(*first);
        if (second != first)
            Second = std::unique_lock<TNameLocks::TMutex>(*second);
    }

    std::shared_lock<TNameLocks::TMutex> Shared;
    std::unique_lock<TNameLocks::TMutex> Alone;
    std::unique_lock<TNameLocks::TMutex> First;
    std::unique_lock<TNameLocks::TMutex> Second;
};
