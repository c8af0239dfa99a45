#include "Identity.h"

#include "Forks.h"
#include "HostErrors.h"
#include "SystemCalls.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <iterator>
#include <memory>
#include <mutex>
#include <utility>

namespace Brindle::Vok::Platform
{
namespace
{

struct Ids
{
    unsigned real;
    unsigned effective;
    unsigned saved;
    /// What files are reached as: the effective one, unless the host has set it apart.
    unsigned fileSystem;

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
    bool HasPermitted(Capabilities const& other) const noexcept
    {
        return halves[0].permitted == other.halves[0].permitted && halves[1].permitted == other.halves[1].permitted;
    }
    bool IsPermitted(unsigned capability) const noexcept
    {
        return (halves[capability / 32].permitted >> capability % 32 & 1) != 0;
    }
};

struct Credentials
{
    Ids users;
    Ids groups;
    std::vector<gid_t> otherGroups;
    Capabilities capabilities;
    std::uint64_t ambient;
    int secureBits;

    /// What tells that a thread impersonates: the kernel hands it on to the threads that this one makes. It keeps
    /// capabilities from becoming ambient, of which there are none meanwhile.
    static constexpr int mark = SECBIT_NO_CAP_AMBIENT_RAISE;

    bool IsMarked() const noexcept { return (secureBits & mark) != 0; }
    bool CanBeMarked() const noexcept
    {
        return !IsMarked() && (secureBits & SECBIT_NO_CAP_AMBIENT_RAISE_LOCKED) == 0 &&
               capabilities.IsPermitted(CAP_SETPCAP);
    }

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

constexpr unsigned noId = 0xFFFFFFFF;

bool ReadIds(Ids& users, Ids& groups) noexcept
{
    if (SystemCalls::GetUsers(&users.real, &users.effective, &users.saved) != 0 ||
        SystemCalls::GetGroups(&groups.real, &groups.effective, &groups.saved) != 0)
        return FailWithHost(errno);
    users.fileSystem =
        static_cast<unsigned>(SystemCalls::SetFileSystemUser(noId)); // sets none and gives the present one
    groups.fileSystem = static_cast<unsigned>(SystemCalls::SetFileSystemGroup(noId));
    return true;
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

bool ReadSecureBits(int& bits) noexcept
{
    bits = SystemCalls::GetSecureBits();
    return bits >= 0 || FailWithHost(errno);
}

bool ReadCredentials(Credentials& credentials)
{
    if (!ReadIds(credentials.users, credentials.groups) || !ReadOtherGroups(credentials.otherGroups) ||
        !ReadCapabilities(credentials.capabilities))
        return false;
    credentials.ambient = ReadAmbient(credentials.capabilities);
    return ReadSecureBits(credentials.secureBits);
}

// The process's own

KnownCredentials const* FindEqual(KnownCredentials const* from, Credentials const& wanted) noexcept
{
    while (from && !(from->credentials == wanted))
        from = from->older;
    return from;
}

/// Of a thread that acts as the process. Null with the last error set.
Credentials const* Publish()
{
    auto fresh = std::make_unique<KnownCredentials>();
    if (!ReadCredentials(fresh->credentials))
        return nullptr;
    fresh->older = newest.load(std::memory_order_acquire);
    do
        if (KnownCredentials const* const equal = FindEqual(fresh->older, fresh->credentials))
            return &equal->credentials;
    while (!newest.compare_exchange_weak(fresh->older, fresh.get(), std::memory_order_acq_rel));
    return &fresh.release()->credentials;
}

unsigned WayBack(Ids const& users) noexcept
{
    return users.IncludesSuperuser() ? 0 : users.effective;
}

/// Whether a thread that acts as the process may have become what another one is now.
bool MayLeadTo(Credentials const& process, Credentials const& present) noexcept
{
    bool const areUsersSuch = present.users == process.users || (present.users.real == present.users.effective &&
                                                                 present.users.saved == WayBack(process.users));
    bool const areGroupsSuch = present.groups == process.groups || (present.groups.real == present.groups.effective &&
                                                                    present.groups.saved == process.groups.effective);
    // Without a mark the ids alone tell, so they must be other ones.
    bool const isTold =
        process.CanBeMarked() ? present.IsMarked() : present.users != process.users || present.groups != process.groups;
    return isTold && areUsersSuch && areGroupsSuch && present.capabilities.HasPermitted(process.capabilities);
}

/// Finds what a thread goes back to that was made by one that impersonates, null for any other. False with the last
/// error set, ERROR_ACCESS_DENIED where it may have come from several: it is not to get what its maker didn't have.
bool FindInherited(Credentials const*& inherited) noexcept
{
    inherited = nullptr;
    KnownCredentials const* known = newest.load(std::memory_order_acquire);
    if (!known)
        return true;
    Credentials present{};
    if (!ReadIds(present.users, present.groups) || !ReadCapabilities(present.capabilities) ||
        !ReadSecureBits(present.secureBits))
        return false;
    for (; known; known = known->older)
    {
        if (!MayLeadTo(known->credentials, present))
            continue;
        if (inherited)
            return FailWith(ERROR_ACCESS_DENIED);
        inherited = &known->credentials;
    }
    return true;
}

bool FindOwn(Credentials const*& found) noexcept
{
    found = own;
    return own || FindInherited(found);
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

bool SetGroupIds(Ids const& ids) noexcept
{
    if (SystemCalls::SetGroups(ids.real, ids.effective, ids.saved) != 0)
        return false;
    SystemCalls::SetFileSystemGroup(ids.fileSystem); // which doesn't tell
    errno = EPERM;
    return static_cast<unsigned>(SystemCalls::SetFileSystemGroup(noId)) == ids.fileSystem;
}

bool SetUserIds(Ids const& ids, Capabilities const& capabilities) noexcept
{
    if (SystemCalls::SetUsers(ids.real, ids.effective, ids.saved) != 0)
        return false;
    if (ids.fileSystem != ids.effective && Raise(capabilities))
        SystemCalls::SetFileSystemUser(ids.fileSystem);
    errno = EPERM;
    return static_cast<unsigned>(SystemCalls::SetFileSystemUser(noId)) == ids.fileSystem;
}

bool SetGroups(Credentials const& from, Credentials const& to) noexcept
{
    return from.groups == to.groups || SetGroupIds(to.groups);
}

bool SetUsers(Credentials const& from, Credentials const& to) noexcept
{
    return from.users == to.users || SetUserIds(to.users, to.capabilities);
}

bool SetSecureBits(Credentials const& from, Credentials const& to) noexcept
{
    return from.secureBits == to.secureBits || SystemCalls::SetSecureBits(to.secureBits) == 0;
}

// TakeBack knows their order. The user comes last, as a change of that lowers the capabilities.
bool (*const changes[])(Credentials const& from, Credentials const& to) noexcept = {SetSecureBits, SetOtherGroups,
                                                                                    SetGroups, SetUsers};

void SetAmbient(std::uint64_t from, std::uint64_t to) noexcept
{
    if (from != 0 && to == 0)
        SystemCalls::ChangeAmbient(PR_CAP_AMBIENT_CLEAR_ALL, 0);
    for (unsigned bit = 0; to != 0 && bit < 64; ++bit)
        if ((to >> bit & 1) != 0)
            SystemCalls::ChangeAmbient(PR_CAP_AMBIENT_RAISE, bit);
}

bool FailToChange(int error) noexcept
{
    if (error == EAGAIN)
        return FailWith(ERROR_NO_SYSTEM_RESOURCES);
    // The latter for an id that the process's namespace doesn't have.
    return error == EPERM || error == EINVAL ? FailWith(ERROR_PRIVILEGE_NOT_HELD) : FailWithHost(error);
}

/// One thread at a time changes, as some of what is kept belongs to the process.
constinit std::mutex changing;

[[maybe_unused]] int const keepsOrderInChild = HoldInForks<changing>();

/// Keeps what the kernel takes away with every change of ids: that the process may be dumped and traced by those who
/// have its rights, and the signal that the thread gets when its parent ends.
class KeptSettings
{
public:
    KeptSettings() noexcept : lock(changing), isDumpable(SystemCalls::GetDumpable() == 1)
    {
        SystemCalls::GetDeathSignal(&deathSignal);
    }
    ~KeptSettings()
    {
        if (isDumpable)
            SystemCalls::SetDumpable(1);
        if (deathSignal != 0)
            SystemCalls::SetDeathSignal(deathSignal);
    }
    KeptSettings(KeptSettings const&) = delete;
    KeptSettings& operator=(KeptSettings const&) = delete;

private:
    std::lock_guard<std::mutex> lock;
    bool isDumpable;
    int deathSignal = 0;
};

/// Takes the first so many changes back. Nothing else is asked of the kernel: what it refused once it may refuse again.
/// Ids may have been changed by halves, so they are looked at.
bool TakeBack(Credentials const& from, Credentials const& to, std::size_t made) noexcept
{
    Ids users;
    Ids groups;
    return Raise(from.capabilities) && // a change of the user lowers them
           (made < 1 || SetSecureBits(to, from)) && (made < 2 || SetOtherGroups(to, from)) && ReadIds(users, groups) &&
           (groups == from.groups || SetGroupIds(from.groups)) &&
           (users == from.users || SetUserIds(from.users, from.capabilities)) && Establish(from.capabilities);
}

/// All or nothing: when one change is refused, those before it are taken back.
bool ChangeCredentials(Credentials const& from, Credentials const& to) noexcept
{
    KeptSettings const kept;
    if (!Raise(from.capabilities))
        return FailToChange(errno);
    std::size_t made = 0;
    while (made < std::size(changes) && changes[made](from, to))
        ++made;
    if (made == std::size(changes) && Establish(to.capabilities))
    {
        SetAmbient(from.ambient, to.ambient);
        return true;
    }
    int const error = errno;
    if (!TakeBack(from, to, made))
        std::terminate();
    return FailToChange(error);
}

/// The process's own ids stay as they are.
Ids MakeIds(unsigned id, unsigned wayBack, Ids const& process) noexcept
{
    return id == process.effective ? process : Ids{id, id, wayBack, id};
}

Credentials MakeCredentials(Identity const& identity, Credentials const& process)
{
    Credentials made{.users = MakeIds(identity.user, WayBack(process.users), process.users),
                     .groups = MakeIds(identity.group, process.groups.effective, process.groups),
                     .otherGroups = identity.groups,
                     .capabilities = process.capabilities,
                     .ambient = 0,
                     .secureBits = process.secureBits | (process.CanBeMarked() ? Credentials::mark : 0)};
    if (identity.user != process.users.effective)
        for (__user_cap_data_struct& half : made.capabilities.halves)
            half.effective = 0;
    return made;
}

/// The kernel may let a thread go where it wouldn't let it come back from.
bool IsThereAWayBack(Credentials const& process, Credentials const& other) noexcept
{
    bool const areUsersOther = process.users != other.users;
    bool const areGroupsOther = process.groups != other.groups || process.otherGroups != other.otherGroups;
    // From the superuser's ids to others it would take the capabilities away for good.
    bool const losesAll = other.users.effective == 0 && !process.users.IncludesSuperuser();
    return (!areUsersOther || (process.capabilities.IsPermitted(CAP_SETUID) && !losesAll)) &&
           (!areGroupsOther || process.capabilities.IsPermitted(CAP_SETGID));
}

/// Also tells what the thread was and what it is now.
bool ActAs(Identity const& identity, Credentials& present, Credentials& changed)
{
    Credentials const* process;
    if (!FindOwn(process) || (!process && !(process = Publish())) || !ReadCredentials(present))
        return false;
    changed = MakeCredentials(identity, *process);
    if (!IsThereAWayBack(*process, changed))
        return FailWith(ERROR_PRIVILEGE_NOT_HELD);
    if (!ChangeCredentials(present, changed))
        return false;
    own = process;
    return true;
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
    Credentials const* process;
    if (!FindOwn(process))
        return false;
    if (!process)
        return FindThreadIdentity(identity);
    identity = {process->users.effective, process->groups.effective, process->otherGroups};
    return true;
}

bool FindImpersonated(Identity& identity)
{
    Credentials const* process;
    if (!FindOwn(process))
        return false;
    return process ? FindThreadIdentity(identity) : FailWith(ERROR_NO_TOKEN);
}

bool ActAs(Identity const& identity)
{
    Credentials present;
    Credentials changed;
    return ActAs(identity, present, changed);
}

bool IsActing() noexcept
{
    return own != nullptr;
}

bool ActAsProcess()
{
    Credentials const* process;
    Credentials present;
    if (!FindOwn(process))
        return false;
    if (process && (!ReadCredentials(present) || !ChangeCredentials(present, *process)))
        return false;
    own = nullptr;
    return true;
}

struct ActingAs::Way
{
    Credentials before;
    Credentials meanwhile;
    Credentials const* ownBefore;
};

ActingAs::ActingAs(Identity const& identity)
{
    auto made = std::make_unique<Way>();
    made->ownBefore = own;
    if (ActAs(identity, made->before, made->meanwhile))
        way = std::move(made);
}

ActingAs::~ActingAs()
{
    if (!way)
        return;
    if (!ChangeCredentials(way->meanwhile, way->before))
        std::terminate();
    own = way->ownBefore;
}

} // namespace Brindle::Vok::Platform
