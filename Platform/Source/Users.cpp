#include "Users.h"

#include "HostErrors.h"
#include "HostFile.h"
#include "Lines.h"
#include "SystemCalls.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace Brindle::Vok::Platform
{
namespace
{

/// The look-ups of the C library don't tell what they ran short of: they find nobody then, or too few groups. So the
/// host's own lists are asked too. Nothing for one that isn't there.
bool ReadList(char const* path, std::optional<std::string>& list)
{
    constexpr off_t most = 64 << 20;
    return ReadSmallFile(path, list, most);
}

/// Whether a line of the list of groups, "name:password:number:user,user", says that somebody is in a group.
bool IsListed(std::string_view line, std::string_view user, gid_t& group)
{
    TakePart(line, ':');
    TakePart(line, ':');
    std::string_view const number = TakePart(line, ':');
    auto const [end, error] = std::from_chars(number.data(), number.data() + number.size(), group);
    std::vector<std::string> users;
    AppendList(line, ',', users);
    return error == std::errc() && std::ranges::find(users, user) != users.end();
}

/// Makes a user of what `find` puts into an entry, with its texts in a buffer that grows until they fit.
template <class Find>
bool FindEntry(Find find, User& user)
{
    std::string texts(1024, '\0');
    passwd entry;
    passwd* found = nullptr;
    int error;
    while ((error = find(&entry, texts.data(), texts.size(), &found)) == ERANGE || error == EINTR)
        if (error == ERANGE)
            texts.resize(2 * texts.size());
    std::optional<std::string> list;
    if (!found && !ReadList("/etc/passwd", list))
        return false;
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
        if (SystemCalls::FindGroupsOf(user.name.c_str(), user.group, groups.data(), &count) >= 0)
            break;
        if (static_cast<std::size_t>(count) <= groups.size()) // it wanted no room for more
            return FailWith(ERROR_NOT_ENOUGH_MEMORY);
    }
    groups.resize(static_cast<std::size_t>(count));
    std::ranges::sort(groups);
    std::optional<std::string> list;
    if (!ReadList("/etc/group", list))
        return false;
    std::string_view rest = list ? std::string_view(*list) : std::string_view();
    while (!rest.empty())
    {
        gid_t group = 0;
        if (IsListed(TakePart(rest, '\n'), user.name, group) && !std::ranges::binary_search(groups, group))
            return FailWith(ERROR_NO_SYSTEM_RESOURCES); // the look-up can't have read that list
    }
    return true;
}

} // namespace Brindle::Vok::Platform
