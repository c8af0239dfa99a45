// Whom a thread acts as. The kernel keeps user, groups and capabilities for each thread, and its calls change those of
// the calling thread alone; the C library's functions of the same names would change all threads.
//
// A thread that impersonates has the other user and group as its real and effective ones, the other's supplementary
// groups, and no capability in effect. The way back is kept where no access check looks: in the saved user (the
// superuser if the process has that, otherwise its effective user), the saved group and the permitted capabilities. A
// mark in the kernel's credentials tells such a thread and those that it makes from all others, where the process has
// the capability to set it (CAP_SETPCAP); elsewhere the ids have to tell.
#pragma once

#include <memory>
#include <sys/types.h>
#include <vector>

namespace Brindle::Vok::Platform
{

struct Identity
{
    uid_t user;
    gid_t group;
    /// Sorted, as the kernel gives them.
    std::vector<gid_t> groups;
};

/// The calling thread's, from the kernel. False with the last error set. May throw std::bad_alloc, as all of these.
bool FindThreadIdentity(Identity& identity);

/// That of the process, also while the calling thread impersonates.
bool FindProcessIdentity(Identity& identity);

/// Whom the calling thread impersonates, or its maker did when it made it. False with ERROR_NO_TOKEN for nobody.
bool FindImpersonated(Identity& identity);

/// Lets the calling thread act as somebody, whom it may act as already. False with ERROR_PRIVILEGE_NOT_HELD or another
/// code, and the thread acts as before. Where the kernel refuses that too, the process is ended: no thread goes on with
/// one user's rights beside another one's.
bool ActAs(Identity const& identity);

/// The same for the process's own identity. Succeeds on a thread that doesn't impersonate. The ambient capabilities of
/// the process come back only as far as the kernel allows, as having fewer is safe.
bool ActAsProcess();

/// Whether the calling thread has begun to act as somebody and not gone back.
bool IsActing() noexcept;

/// Lets the calling thread act as somebody for its own life, and then as before. Where the kernel refuses that the
/// process is ended.
class ActingAs
{
public:
    explicit ActingAs(Identity const& identity);
    ~ActingAs();
    ActingAs(ActingAs const&) = delete;
    ActingAs& operator=(ActingAs const&) = delete;

    /// False with the last error set, and the thread acts as before.
    bool IsInForce() const noexcept { return way != nullptr; }

private:
    struct Way;
    std::unique_ptr<Way> way;
};

} // namespace Brindle::Vok::Platform
