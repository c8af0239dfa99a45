#include "Users.h"

#include "HostErrors.h"
#include "SystemCalls.h"

#include <algorithm>
#include <cerrno>

namespace Brindle::Vok::Platform
{
namespace
{

/// What the look-ups meet on their way without saying so: they find nobody then, or too few groups.
bool IsShortage(int error) noexcept
{
    return error == EMFILE || error == ENFILE || error == ENOMEM || error == EIO;
}

/// Makes a user of what `find` puts into an entry, with its texts in a buffer that grows until they fit.
template <class Find>
bool FindEntry(Find find, User& user)
{
    std::string texts(1024, '\0');
    passwd entry;
    passwd* found = nullptr;
    errno = 0;
    int error;
    while ((error = find(&entry, texts.data(), texts.size(), &found)) == ERANGE || error == EINTR)
        if (error == ERANGE)
            texts.resize(2 * texts.size());
    if (!found && IsShortage(errno))
        return FailWithHost(errno);
    // The C library also says so by these when there is no database at all.
    if (!found && (error == 0 || error == ENOENT || error == ESRCH))
        return FailWith(ERROR_NO_SUCH_USER);
    if (!found)
        return FailWithHost(error);
    user = {entry.pw_uid, entry.pw_gid, entry.pw_name, *entry.pw_dir == '/' ? entry.pw_dir : "/", entry.pw_shell};
    return true;
}

} // namespace

bool FindUser(uid_t number, User& user)
{
    return FindEntry([=](auto... into) { return SystemCalls::FindUser(number, into...); }, user);
}

bool FindUser(std::string const& name, User& user)
{
    if (name.find('\0') != name.npos)
        return FailWith(ERROR_NO_SUCH_USER);
    return FindEntry([&](auto... into) { return SystemCalls::FindUserNamed(name.c_str(), into...); }, user);
}

bool FindGroupsOf(User const& user, std::vector<gid_t>& groups)
{
    int count = 32;
    for (;;)
    {
        groups.resize(static_cast<std::size_t>(count));
        errno = 0;
        int const result = SystemCalls::FindGroupsOf(user.name.c_str(), user.group, groups.data(), &count);
        if (IsShortage(errno))
            return FailWithHost(errno);
        if (result >= 0)
            break;
        if (static_cast<std::size_t>(count) <= groups.size()) // it wanted no room for more
            return FailWith(ERROR_NOT_ENOUGH_MEMORY);
    }
    groups.resize(static_cast<std::size_t>(count));
    std::ranges::sort(groups);
    return true;
}

} // namespace Brindle::Vok::Platform
