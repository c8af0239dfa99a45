#include "Users.h"

#include "HostErrors.h"
#include "SystemCalls.h"

#include <cerrno>

namespace Brindle::Vok::Platform
{

bool FindUser(uid_t number, User& user)
{
    std::string texts(1024, '\0');
    passwd entry;
    passwd* found = nullptr;
    int error;
    while ((error = SystemCalls::FindUser(number, &entry, texts.data(), texts.size(), &found)) == ERANGE ||
           error == EINTR)
        if (error == ERANGE)
            texts.resize(2 * texts.size());
    // The C library also says so by these when there is no database at all.
    if (!found && (error == 0 || error == ENOENT || error == ESRCH))
        return FailWith(ERROR_NO_SUCH_USER);
    if (!found)
        return FailWithHost(error);
    user = {entry.pw_name, *entry.pw_dir == '/' ? entry.pw_dir : "/", entry.pw_shell};
    return true;
}

} // namespace Brindle::Vok::Platform
