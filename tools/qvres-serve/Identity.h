// Whose rights the disk checks.
//
// A server of root answers each request with the rights of the program that sent it. The kernel has
// checked them, too, but on names: until the server uses the path, its owner may have put a link to
// another folder there.
//
// Thread-safety: an identity is that of the calling thread alone.
#pragma once

#include <sys/types.h>

#define FUSE_USE_VERSION 312
#include <fuse_lowlevel.h>

/// For the lifetime of the object the thread has the user, the group and the groups of the sender
/// of a request. Only a server of root changes anything. Throws std::system_error when it cannot.
class TCallerIdentity
{
public:
    explicit TCallerIdentity(fuse_req_t request);
    ~TCallerIdentity();
    TCallerIdentity(const TCallerIdentity&) = delete;
    TCallerIdentity& operator=(const TCallerIdentity&) = delete;
};

/// Whose rights the thread has.
uid_t ActingUser();

/// Of the permission bits that the sender of a request wants for what it makes, those that it gets.
/// What others make in a server of another user than root belongs to that user: a set-user-id
/// program among it would give them all rights of the server.
mode_t BitsFor(fuse_req_t request, mode_t wanted);

/// Inside a TCallerIdentity: the server's own user again.
class TServerIdentity
{
public:
    TServerIdentity();
    ~TServerIdentity();
    TServerIdentity(const TServerIdentity&) = delete;
    TServerIdentity& operator=(const TServerIdentity&) = delete;

private:
    uid_t m_user;
};
