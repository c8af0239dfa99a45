// The host's database of users.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace Brindle::Vok::Platform
{

struct User
{
    uid_t number;
    gid_t group;
    std::string name;
    /// Absolute; the root for one who has none.
    std::string home;
    std::string shell;
};

/// False with ERROR_NO_SUCH_USER or the host's failure. May throw std::bad_alloc.
bool FindUser(uid_t number, User& user);
bool FindUser(std::string const& name, User& user);

/// The groups that the databases give a user, his own among them, sorted. False with the last error set. May throw
/// std::bad_alloc.
bool FindGroupsOf(User const& user, std::vector<gid_t>& groups);

} // namespace Brindle::Vok::Platform
