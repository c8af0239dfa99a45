#include <Brindle/Platform/Shell.h>

#include "HostErrors.h"
#include "HostFile.h"
#include "Names.h"
#include "SystemCalls.h"
#include "Tokens.h"
#include "UserDirs.h"
#include "XdgDirectories.h"

#include <Brindle/Platform/Com.h>
#include <Brindle/Platform/System.h>

#include <algorithm>
#include <optional>
#include <string>

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
    // What follows the base, or its name in user-dirs.dirs.
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

std::string const& DirectoryOf(Base base, XdgDirectories const& user) noexcept
{
    switch (base)
    {
    case Base::configuration:
        return user.config;
    case Base::data:
        return user.data;
    case Base::cache:
        return user.cache;
    default:
        return user.home;
    }
}

bool FindInUserDirs(Folder const& folder, XdgDirectories const& user, bool takesSettings, std::string& path)
{
    std::optional<std::string> file;
    if (takesSettings && !ReadSmallFile(user.config + "/user-dirs.dirs", file))
        return false;
    path = FindUserDirectory(file.value_or(""), folder.name, user.home)
               .value_or(folder.id == FOLDERID_Desktop ? user.home + "/Desktop" : user.home);
    return true;
}

bool FindFolder(Folder const& folder, uid_t user, bool takesSettings, std::string& path)
{
    if (folder.base == Base::ofMachine)
    {
        path = configurationOfMachine;
        if (takesSettings)
            path = FindListedDirectories("XDG_CONFIG_DIRS", path)[0];
        path += folder.name;
        return true;
    }
    XdgDirectories directories;
    if (!FindXdgDirectories(user, takesSettings, directories))
        return false;
    if (folder.base == Base::userDirectories)
        return FindInUserDirs(folder, directories, takesSettings, path);
    path = DirectoryOf(folder.base, directories) + folder.name;
    return true;
}

bool FindStatus(std::string const& path, struct stat& status) noexcept
{
    return SystemCalls::StatusAt(AT_FDCWD, path.c_str(), &status, 0) == 0;
}

bool MakeWithParents(std::string const& path, mode_t mode)
{
    for (std::size_t end = 0; end != path.npos;)
    {
        end = path.find('/', end + 1);
        std::string const directory = path.substr(0, end);
        bool const made = Uninterrupted([&] { return SystemCalls::MakeDirectory(directory.c_str(), mode); }) == 0;
        if (!made && errno != EEXIST)
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

// For a user that the calling thread acts as.
bool ProvideFolder(Folder const& folder, DWORD flags, uid_t user, std::string& path)
{
    if (!FindFolder(folder, user, (flags & KF_FLAG_DEFAULT_PATH) == 0, path))
        return false;
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    // What belongs to the machine is for everybody to read.
    return Provide(path, flags, folder.base == Base::ofMachine ? 0755 : 0700);
}

// The thread is the token's user while it looks at what is his and makes it for him. Other groups alone don't count:
// what belongs to a user, the user can reach.
bool ProvideForToken(Folder const& folder, DWORD flags, HANDLE token, std::string& path)
{
    Identity wanted;
    Identity present;
    if (!FindIdentityOfToken(token, TOKEN_QUERY | TOKEN_IMPERSONATE, wanted) || !FindThreadIdentity(present))
        return false;
    if (wanted.user == present.user)
        return ProvideFolder(folder, flags, wanted.user, path);
    ActingAs const owner(wanted);
    return owner.IsInForce() && ProvideFolder(folder, flags, wanted.user, path);
}

bool FindPath(REFKNOWNFOLDERID id, DWORD flags, HANDLE token, std::string& path)
{
    Folder const* const end = std::end(folders);
    Folder const* const folder = std::ranges::find(folders, id, &Folder::id);
    if (folder == end)
        return FailWith(ERROR_FILE_NOT_FOUND);
    if (token)
        return ProvideForToken(*folder, flags, token, path);
    Identity thread;
    return FindThreadIdentity(thread) && ProvideFolder(*folder, flags, thread.user, path);
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
    return HRESULT_FROM_WIN32(code);
}
