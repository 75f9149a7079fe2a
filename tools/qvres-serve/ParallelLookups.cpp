#include "ParallelLookups.h"

#include <atomic>
#include <cerrno>
#include <linux/fuse.h>
#include <sys/uio.h>
#include <unistd.h>

namespace
{
std::atomic<bool> g_isStarted{false};

/// The first reply is the one in which the two sides agree on what they can do. libfuse 3.14 knows
/// FUSE_CAP_PARALLEL_DIROPS and forgets to send it.
ssize_t Reply(int device, iovec* parts, int count, void*)
{
    if (!g_isStarted.exchange(true) && count == 2 && parts[1].iov_len == sizeof(fuse_init_out))
        static_cast<fuse_init_out*>(parts[1].iov_base)->flags |= FUSE_PARALLEL_DIROPS;
    return writev(device, parts, count);
}

ssize_t Receive(int device, void* bytes, std::size_t room, void*)
{
    return read(device, bytes, room);
}
} // namespace

bool AllowParallelLookups(fuse_session* session)
{
    fuse_custom_io calls = {};
    calls.writev = &Reply;
    calls.read = &Receive;
    const int error = fuse_session_custom_io(session, &calls, fuse_session_fd(session));
    errno = -error;
    return error == 0;
}
