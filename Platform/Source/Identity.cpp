#include "Identity.h"

#include "HostErrors.h"
#include "SystemCalls.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <iterator>
#include <memory>

namespace Brindle::Vok::Platform
{
namespace
{

struct Ids
{
    unsigned real;
    unsigned effective;
    unsigned saved;

    bool operator==(Ids const&) const = default;
    bool IncludesSuperuser() const noexcept { return real == 0 || effective == 0 || saved == 0; }
};

struct Capabilities
{
    __user_cap_data_struct halves[2]; // 32 bits each

    bool operator==(Capabilities const& other) const noexcept
    {
        return std::memcmp(halves, other.halves, sizeof halves) == 0;
    }
    bool ArePermitted() const noexcept { return (halves[0].permitted | halves[1].permitted) != 0; }
};

struct Credentials
{
    Ids users;
    Ids groups;
    std::vector<gid_t> otherGroups;
    Capabilities capabilities;
    std::uint64_t ambient;

    bool operator==(Credentials const&) const = default;
};

/// One that a process has had. It is never freed, as a thread may be impersonating, and there are as many as the host
/// has changed its own.
struct KnownCredentials
{
    Credentials credentials;
    KnownCredentials const* older;
};

constinit std::atomic<KnownCredentials const*> newest{nullptr};

/// What the calling thread goes back to; null if it hasn't begun to impersonate.
constinit thread_local Credentials const* own = nullptr;

// Reading

bool ReadIds(Ids& users, Ids& groups) noexcept
{
    return (SystemCalls::GetUsers(&users.real, &users.effective, &users.saved) == 0 &&
            SystemCalls::GetGroups(&groups.real, &groups.effective, &groups.saved) == 0) ||
           FailWithHost(errno);
}

bool ReadOtherGroups(std::vector<gid_t>& groups)
{
    for (;;)
    {
        int const count = SystemCalls::GetOtherGroups(0, nullptr);
        if (count < 0)
            return FailWithHost(errno);
        groups.resize(static_cast<std::size_t>(count) + 1); // as a size of 0 would ask for the count
        int const read = SystemCalls::GetOtherGroups(static_cast<int>(groups.size()), groups.data());
        if (read < 0 && errno == EINVAL)
            continue; // they have become more
        if (read < 0)
            return FailWithHost(errno);
        groups.resize(static_cast<std::size_t>(read));
        return true;
    }
}

bool ReadCapabilities(Capabilities& capabilities) noexcept
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    return SystemCalls::GetCapabilities(&header, capabilities.halves) == 0 || FailWithHost(errno);
}

/// Each is inheritable too, so most processes are not asked about any.
std::uint64_t ReadAmbient(Capabilities const& capabilities) noexcept
{
    std::uint64_t ambient = 0;
    for (unsigned bit = 0; bit < 64; ++bit)
        if ((capabilities.halves[bit / 32].inheritable >> bit % 32 & 1) != 0 &&
            SystemCalls::ChangeAmbient(PR_CAP_AMBIENT_IS_SET, bit) == 1)
            ambient |= std::uint64_t{1} << bit;
    return ambient;
}

bool Read(Credentials& credentials)
{
    if (!ReadIds(credentials.users, credentials.groups) || !ReadOtherGroups(credentials.otherGroups) ||
        !ReadCapabilities(credentials.capabilities))
        return false;
    credentials.ambient = ReadAmbient(credentials.capabilities);
    return true;
}

// The process's own

/// Of a thread that acts as the process. Null with the last error set.
Credentials const* Publish()
{
    auto fresh = std::make_unique<KnownCredentials>();
    if (!Read(fresh->credentials))
        return nullptr;
    fresh->older = newest.load(std::memory_order_acquire);
    do
        if (fresh->older && fresh->older->credentials == fresh->credentials)
            return &fresh->older->credentials;
    while (!newest.compare_exchange_weak(fresh->older, fresh.get(), std::memory_order_acq_rel));
    return &fresh.release()->credentials;
}

unsigned WayBack(Ids const& users) noexcept
{
    return users.IncludesSuperuser() ? 0 : users.effective;
}

/// What a thread goes back to that was made by one that impersonates. Null for any other, and when it can't be told.
Credentials const* FindInherited() noexcept
{
    KnownCredentials const* const known = newest.load(std::memory_order_acquire);
    Ids users;
    Ids groups;
    if (!known || !ReadIds(users, groups))
        return nullptr;
    Credentials const& process = known->credentials;
    if (users == process.users && groups == process.groups)
        return nullptr;
    bool const isAsActAsLeaves = users.real == users.effective && users.saved == WayBack(process.users) &&
                                 groups.real == groups.effective && groups.saved == process.groups.effective;
    return isAsActAsLeaves ? &process : nullptr;
}

Credentials const* FindOwn() noexcept
{
    return own ? own : FindInherited();
}

// Changing

/// An unprivileged process has none, and nothing to set.
bool Establish(Capabilities const& capabilities) noexcept
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    return !capabilities.ArePermitted() || SystemCalls::SetCapabilities(&header, capabilities.halves) == 0;
}

/// Puts all in effect that are permitted, which the changes need.
bool Raise(Capabilities capabilities) noexcept
{
    for (__user_cap_data_struct& half : capabilities.halves)
        half.effective = half.permitted;
    return Establish(capabilities);
}

// The changes. What is equal in both isn't asked of the kernel, as the right to set it may be missing.

bool SetOtherGroups(Credentials const& from, Credentials const& to) noexcept
{
    return from.otherGroups == to.otherGroups ||
           SystemCalls::SetOtherGroups(to.otherGroups.size(), to.otherGroups.data()) == 0;
}

bool SetGroups(Credentials const& from, Credentials const& to) noexcept
{
    return from.groups == to.groups ||
           SystemCalls::SetGroups(to.groups.real, to.groups.effective, to.groups.saved) == 0;
}

bool SetUsers(Credentials const& from, Credentials const& to) noexcept
{
    return from.users == to.users || SystemCalls::SetUsers(to.users.real, to.users.effective, to.users.saved) == 0;
}

bool (*const changes[])(Credentials const& from, Credentials const& to) noexcept = {SetOtherGroups, SetGroups,
                                                                                    SetUsers};

void SetAmbient(std::uint64_t from, std::uint64_t to) noexcept
{
    if (from != 0 && to == 0)
        SystemCalls::ChangeAmbient(PR_CAP_AMBIENT_CLEAR_ALL, 0);
    for (unsigned bit = 0; to != 0 && bit < 64; ++bit)
        if ((to >> bit & 1) != 0)
            SystemCalls::ChangeAmbient(PR_CAP_AMBIENT_RAISE, bit);
}

bool Refuse(int error) noexcept
{
    if (error == EAGAIN)
        return FailWith(ERROR_NO_SYSTEM_RESOURCES);
    return error == EPERM ? FailWith(ERROR_PRIVILEGE_NOT_HELD) : FailWithHost(error);
}

/// All or nothing: when one change is refused, those before it are taken back.
bool Change(Credentials const& from, Credentials const& to) noexcept
{
    if (!Raise(from.capabilities))
        return Refuse(errno);
    std::size_t made = 0;
    while (made < std::size(changes) && changes[made](from, to))
        ++made;
    if (made == std::size(changes) && Establish(to.capabilities))
    {
        SetAmbient(from.ambient, to.ambient);
        return true;
    }
    int const error = errno;
    bool isTakenBack = Raise(from.capabilities); // a change of the user lowers them
    for (std::size_t change = 0; change < made; ++change)
        isTakenBack = isTakenBack && changes[change](to, from);
    if (!isTakenBack || !Establish(from.capabilities))
        std::terminate();
    return Refuse(error);
}

Credentials MakeCredentials(Identity const& identity, Credentials const& process)
{
    Credentials made{.users = {identity.user, identity.user, WayBack(process.users)},
                     .groups = {identity.group, identity.group, process.groups.effective},
                     .otherGroups = identity.groups,
                     .capabilities = process.capabilities,
                     .ambient = 0};
    if (identity.user != process.users.effective)
        for (__user_cap_data_struct& half : made.capabilities.halves)
            half.effective = 0;
    return made;
}

} // namespace

bool FindThreadIdentity(Identity& identity)
{
    Ids users;
    Ids groups;
    if (!ReadIds(users, groups) || !ReadOtherGroups(identity.groups))
        return false;
    identity.user = users.effective;
    identity.group = groups.effective;
    return true;
}

bool FindProcessIdentity(Identity& identity)
{
    Credentials const* const process = FindOwn();
    if (!process)
        return FindThreadIdentity(identity);
    identity = {process->users.effective, process->groups.effective, process->otherGroups};
    return true;
}

bool IsImpersonating()
{
    return FindOwn() != nullptr;
}

bool ActAs(Identity const& identity)
{
    Credentials const* process = FindOwn();
    if (!process)
        process = Publish();
    Credentials present;
    if (!process || !Read(present))
        return false;
    // The kernel would take the capabilities away for good on the way back from the superuser.
    if (identity.user == 0 && !process->users.IncludesSuperuser())
        return FailWith(ERROR_PRIVILEGE_NOT_HELD);
    if (!Change(present, MakeCredentials(identity, *process)))
        return false;
    own = process;
    return true;
}

bool ActAsProcess()
{
    Credentials const* const process = FindOwn();
    if (!process)
        return true;
    Credentials present;
    if (!Read(present) || !Change(present, *process))
        return false;
    own = nullptr;
    return true;
}

} // namespace Brindle::Vok::Platform
