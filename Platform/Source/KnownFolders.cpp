#include <Brindle/Platform/Shell.h>

#include "HostErrors.h"
#include "HostFile.h"
#include "Names.h"
#include "ProcessEnvironment.h"
#include "SystemCalls.h"
#include "Tokens.h"
#include "UserDirs.h"
#include "Users.h"

#include <Brindle/Platform/Com.h>
#include <Brindle/Platform/System.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

namespace Brindle::Vok::Platform
{
namespace
{

enum class Base
{
    home,
    configuration,
    data,
    cache,
    userDirectories,
    ofMachine
};

struct Folder
{
    KNOWNFOLDERID id;
    Base base;
    /// What follows the base, or its name in user-dirs.dirs.
    char const* name;
};

constexpr Folder folders[] = {
    {FOLDERID_Profile, Base::home, ""},
    {FOLDERID_RoamingAppData, Base::configuration, ""},
    {FOLDERID_Startup, Base::configuration, "/autostart"},
    {FOLDERID_LocalAppData, Base::data, ""},
    {FOLDERID_InternetCache, Base::cache, ""},
    {FOLDERID_Desktop, Base::userDirectories, "XDG_DESKTOP_DIR"},
    {FOLDERID_Documents, Base::userDirectories, "XDG_DOCUMENTS_DIR"},
    {FOLDERID_Downloads, Base::userDirectories, "XDG_DOWNLOAD_DIR"},
    {FOLDERID_Music, Base::userDirectories, "XDG_MUSIC_DIR"},
    {FOLDERID_Pictures, Base::userDirectories, "XDG_PICTURES_DIR"},
    {FOLDERID_Videos, Base::userDirectories, "XDG_VIDEOS_DIR"},
    {FOLDERID_Templates, Base::userDirectories, "XDG_TEMPLATES_DIR"},
    {FOLDERID_Public, Base::userDirectories, "XDG_PUBLICSHARE_DIR"},
    {FOLDERID_ProgramData, Base::ofMachine, ""},
    {FOLDERID_CommonStartup, Base::ofMachine, "/autostart"},
};

constexpr DWORD knownFlags = KF_FLAG_SIMPLE_IDLIST | KF_FLAG_NOT_PARENT_RELATIVE | KF_FLAG_DEFAULT_PATH | KF_FLAG_INIT |
                             KF_FLAG_NO_ALIAS | KF_FLAG_DONT_UNEXPAND | KF_FLAG_DONT_VERIFY | KF_FLAG_CREATE;

// A user, and whether the process's variables are his.
class Owner
{
public:
    Owner(uid_t user, bool isOfProcess, bool takesDefaults) noexcept
        : user(user), isOfProcess(isOfProcess), takesDefaults(takesDefaults)
    {
    }

    /// False with the last error set.
    bool Find(Folder const& folder, std::string& path)
    {
        if (folder.base == Base::ofMachine)
        {
            path = MachineDirectory() + folder.name;
            return true;
        }
        if (!FindHome())
            return false;
        if (folder.base == Base::userDirectories)
            return FindUserDirs(folder, path);
        path = (folder.base == Base::home            ? home
                : folder.base == Base::configuration ? BaseDirectory("XDG_CONFIG_HOME", "/.config")
                : folder.base == Base::data          ? BaseDirectory("XDG_DATA_HOME", "/.local/share")
                                                     : BaseDirectory("XDG_CACHE_HOME", "/.cache")) +
               folder.name;
        return true;
    }

private:
    std::optional<std::string> Variable(std::string_view name) const
    {
        auto value = isOfProcess && !takesDefaults ? ReadHostVariable(name) : std::nullopt;
        return value && value->starts_with('/') ? value : std::nullopt;
    }

    std::string BaseDirectory(std::string_view variable, std::string_view belowHome) const
    {
        return Variable(variable).value_or(home + std::string(belowHome));
    }

    // The first of the list that is absolute.
    std::string MachineDirectory() const
    {
        auto const list = takesDefaults ? std::nullopt : ReadHostVariable("XDG_CONFIG_DIRS");
        for (std::string_view rest = list ? std::string_view(*list) : std::string_view(); !rest.empty();)
        {
            std::size_t const end = std::min(rest.find(':'), rest.size());
            if (rest.starts_with('/'))
                return std::string(rest.substr(0, end));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
        return "/etc/xdg";
    }

    bool FindHome()
    {
        auto const ofProcess = isOfProcess ? ReadHostVariable("HOME") : std::nullopt;
        User entry;
        bool const isKnown = ofProcess && ofProcess->starts_with('/');
        if (!isKnown && !FindUser(user, entry))
            return false;
        home = isKnown ? *ofProcess : entry.home;
        return true;
    }

    bool FindUserDirs(Folder const& folder, std::string& path) const
    {
        std::string file;
        if (!takesDefaults && !ReadSettings(BaseDirectory("XDG_CONFIG_HOME", "/.config") + "/user-dirs.dirs", file))
            return false;
        path = FindUserDirectory(file, folder.name, home)
                   .value_or(folder.id == FOLDERID_Desktop ? home + "/Desktop" : home);
        return true;
    }

    uid_t const user;
    bool const isOfProcess;
    bool const takesDefaults;
    std::string home;
};

bool FindStatus(std::string const& path, struct stat& status) noexcept
{
    return SystemCalls::StatusAt(AT_FDCWD, path.c_str(), &status, 0) == 0;
}

bool MakeWithParents(std::string const& path, mode_t mode)
{
    for (std::size_t end = 0; end != path.npos;)
    {
        end = path.find('/', end + 1);
        if (SystemCalls::MakeDirectory(path.substr(0, end).c_str(), mode) != 0 && errno != EEXIST)
            return FailWithHost(errno);
    }
    return true;
}

bool Provide(std::string const& path, DWORD flags, mode_t mode)
{
    struct stat status;
    bool isThere = FindStatus(path, status);
    if (!isThere && errno == ENOENT && (flags & KF_FLAG_CREATE) != 0)
    {
        if (!MakeWithParents(path, mode))
            return false;
        isThere = FindStatus(path, status);
    }
    if ((flags & KF_FLAG_DONT_VERIFY) != 0)
        return true;
    if (!isThere)
        return FailWithHost(errno);
    return S_ISDIR(status.st_mode) || FailWith(ERROR_PATH_NOT_FOUND);
}

bool FindForThread(Folder const& folder, DWORD flags, uid_t user, std::string& path)
{
    Identity process;
    if (!FindProcessIdentity(process))
        return false;
    Owner owner(user, user == process.user, (flags & KF_FLAG_DEFAULT_PATH) != 0);
    if (!owner.Find(folder, path))
        return false;
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    // What belongs to the machine is for everybody to read.
    return Provide(path, flags, folder.base == Base::ofMachine ? 0755 : 0700);
}

// Lets the thread be the token's user while it looks at what is his, and makes it for him.
bool FindForToken(Folder const& folder, DWORD flags, HANDLE token, std::string& path)
{
    Identity before;
    Identity wanted;
    if (!FindIdentityOfToken(token, TOKEN_QUERY | TOKEN_IMPERSONATE, wanted) || !FindThreadIdentity(before))
        return false;
    if (wanted.user == before.user)
        return FindForThread(folder, flags, wanted.user, path);
    bool const wasImpersonating = IsImpersonating();
    if (!ActAs(wanted))
        return false;
    DWORD const code = CodeOfWork([&] { return FindForThread(folder, flags, wanted.user, path); });
    // A thread never goes on with rights that its caller doesn't know of.
    if (!(wasImpersonating ? ActAs(before) : ActAsProcess()))
        std::abort();
    return code == ERROR_SUCCESS || FailWith(code);
}

bool FindPath(REFKNOWNFOLDERID id, DWORD flags, HANDLE token, std::string& path)
{
    Folder const* const end = std::end(folders);
    Folder const* const folder = std::ranges::find(folders, id, &Folder::id);
    if (folder == end)
        return FailWith(ERROR_FILE_NOT_FOUND);
    if (token)
        return FindForToken(*folder, flags, token, path);
    Identity thread;
    return FindThreadIdentity(thread) && FindForThread(*folder, flags, thread.user, path);
}

bool GivePath(REFKNOWNFOLDERID id, DWORD flags, HANDLE token, PWSTR& given)
{
    bool const isIncomplete = (flags & KF_FLAG_NOT_PARENT_RELATIVE) != 0 && (flags & KF_FLAG_DEFAULT_PATH) == 0;
    if ((flags & ~knownFlags) != 0 || isIncomplete)
        return FailWith(ERROR_INVALID_PARAMETER);
    std::wstring text;
    if (id == FOLDERID_System)
    {
        text.resize(GetSystemDirectoryW(nullptr, 0));
        text.resize(GetSystemDirectoryW(text.data(), static_cast<UINT>(text.size())));
    }
    else
    {
        std::string path;
        if (!FindPath(id, flags, token, path))
            return false;
        text = WindowsPathFromHost(path);
    }
    auto* const memory = static_cast<PWSTR>(CoTaskMemAlloc((text.size() + 1) * sizeof(wchar_t)));
    if (!memory)
        return FailWith(ERROR_NOT_ENOUGH_MEMORY);
    std::copy_n(text.c_str(), text.size() + 1, memory);
    given = memory;
    return true;
}

} // namespace
} // namespace Brindle::Vok::Platform

HRESULT SHGetKnownFolderPath(REFKNOWNFOLDERID id, DWORD flags, HANDLE token, PWSTR* path) noexcept
{
    using namespace Brindle::Vok::Platform;
    if (!path)
        return E_INVALIDARG;
    *path = nullptr;
    DWORD const code = CodeOfWork([&] { return GivePath(id, flags, token, *path); });
    if (code == ERROR_NOT_ENOUGH_MEMORY)
        return E_OUTOFMEMORY;
    return code == ERROR_SUCCESS ? S_OK : static_cast<HRESULT>(0x80070000U | code);
}
