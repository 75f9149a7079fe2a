#include "Identity.h"

#include <cerrno>
#include <cstdlib>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace
{
using TGroups = std::vector<gid_t>;

/// What a thread of the server is when it answers nothing.
struct TOwnIdentity
{
    uid_t User = geteuid();
    gid_t Group = getegid();
    TGroups Groups;

    TOwnIdentity()
    {
        Groups.resize(static_cast<std::size_t>(getgroups(0, nullptr)));
        Groups.resize(
            static_cast<std::size_t>(getgroups(static_cast<int>(Groups.size()), Groups.data())));
    }
};

const TOwnIdentity& Own()
{
    static const TOwnIdentity own;
    return own;
}

/// What the thread is now.
struct TCurrent
{
    uid_t User = Own().User;
    gid_t Group = Own().Group;
    bool HasOwnGroups = true;
};
thread_local TCurrent g_current;

[[noreturn]] void Refuse(int error)
{
    throw std::system_error(error, std::generic_category());
}

// The system's own calls: those of the C library change all threads, or report no failure.

void SetUser(uid_t user)
{
    if (user == g_current.User)
        return;
    setfsuid(user);
    if (static_cast<uid_t>(setfsuid(static_cast<uid_t>(-1))) != user)
        Refuse(EPERM);
    g_current.User = user;
}

void SetGroup(gid_t group)
{
    if (group == g_current.Group)
        return;
    setfsgid(group);
    if (static_cast<gid_t>(setfsgid(static_cast<gid_t>(-1))) != group)
        Refuse(EPERM);
    g_current.Group = group;
}

void SetGroups(const TGroups& groups, bool areOwn)
{
    if (areOwn && g_current.HasOwnGroups)
        return;
    if (syscall(SYS_setgroups, groups.size(), groups.data()) != 0)
        Refuse(errno);
    g_current.HasOwnGroups = areOwn;
}

/// None when they cannot be found out: the disk then grants less, never more.
TGroups GroupsOf(fuse_req_t request)
{
    TGroups groups(32);
    for (;;) {
        const int count =
            fuse_req_getgroups(request, static_cast<int>(groups.size()), groups.data());
        const auto size = static_cast<std::size_t>(count > 0 ? count : 0);
        const bool isWhole = size <= groups.size();
        groups.resize(size);
        if (isWhole)
            return groups;
    }
}

/// A thread that kept the rights of another user would answer the next request with them.
void BecomeServer() noexcept
{
    try {
        SetUser(Own().User);
        SetGroup(Own().Group);
        SetGroups(Own().Groups, true);
    } catch (const std::system_error&) {
        std::abort();
    }
}
} // namespace

TCallerIdentity::TCallerIdentity(fuse_req_t request)
{
    if (Own().User != 0)
        return;
    const fuse_ctx* const caller = fuse_req_ctx(request);
    try {
        // The groups of root do not matter, it may do everything.
        if (caller->uid != 0)
            SetGroups(GroupsOf(request), false);
        SetGroup(caller->gid);
        SetUser(caller->uid);
    } catch (const std::exception&) {
        BecomeServer();
        throw;
    }
}

TCallerIdentity::~TCallerIdentity()
{
    BecomeServer();
}

uid_t ActingUser()
{
    return g_current.User;
}

mode_t BitsFor(fuse_req_t request, mode_t wanted)
{
    constexpr mode_t kSetIds = S_ISUID | S_ISGID;
    const bool isOwner = Own().User == 0 || fuse_req_ctx(request)->uid == Own().User;
    return isOwner ? wanted : wanted & ~kSetIds;
}

TServerIdentity::TServerIdentity() : m_user(g_current.User)
{
    SetUser(Own().User);
}

TServerIdentity::~TServerIdentity()
{
    try {
        SetUser(m_user);
    } catch (const std::system_error&) {
        std::abort();
    }
}
