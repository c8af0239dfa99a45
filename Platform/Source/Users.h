// The host's database of users.
#pragma once

#include <string>
#include <sys/types.h>

namespace Brindle::Vok::Platform
{

struct User
{
    std::string name;
    /// Absolute; the root for one who has none.
    std::string home;
    std::string shell;
};

/// False with ERROR_NO_SUCH_USER or the host's failure. May throw std::bad_alloc.
bool FindUser(uid_t number, User& user);

} // namespace Brindle::Vok::Platform
