#include <Brindle/Vok/VokWindows.h>

#include <Brindle/Vok/Log.h>

#include "SeenWhole.h"

#include <algorithm>
#include <vector>

namespace Brindle::Vok
{

namespace
{

using FileOwner = HandleOwner<Detail::InvalidHandleTraits>;

// What the overloads report, with one line for all of them. None makes an Error for a file that opens, or calls another
// one: that costs as much as a part of the system call.
WindowsError CreationError(wchar_t const* path)
{
    return Detail::MakeLastError({__FILE__, __LINE__, "Brindle::Vok::VokCreateFile"}, L"CreateFile failed, path[{}]",
                                 path);
}

FileOwner CreateOwned(wchar_t const* path, unsigned long access, unsigned long share, SECURITY_ATTRIBUTES* security,
                      unsigned long disposition, unsigned long flags, void* templateFile)
{
    return FileOwner(CreateFileW(path, static_cast<DWORD>(access), static_cast<DWORD>(share), security,
                                 static_cast<DWORD>(disposition), static_cast<DWORD>(flags), templateFile));
}

FileOwner CreateOwned(std::wstring const& path, unsigned long access, unsigned long share,
                      SECURITY_ATTRIBUTES* security, unsigned long disposition, unsigned long flags, void* templateFile)
{
    if (!Detail::IsSeenWhole(path))
        return {};
    return CreateOwned(path.c_str(), access, share, security, disposition, flags, templateFile);
}

} // namespace

FileOwner VokCreateFile(wchar_t const* path, unsigned long access, unsigned long share, SECURITY_ATTRIBUTES* security,
                        unsigned long disposition, unsigned long flags, void* templateFile)
{
    FileOwner file = CreateOwned(path, access, share, security, disposition, flags, templateFile);
    if (!file.IsValid())
        throw Error(CreationError(path));
    return file;
}

FileOwner VokCreateFile(wchar_t const* path, unsigned long access, unsigned long share, SECURITY_ATTRIBUTES* security,
                        unsigned long disposition, unsigned long flags, void* templateFile, Error& error)
{
    FileOwner file = CreateOwned(path, access, share, security, disposition, flags, templateFile);
    if (!file.IsValid())
        error = CreationError(path);
    return file;
}

FileOwner VokCreateFile(std::wstring const& path, unsigned long access, unsigned long share,
                        SECURITY_ATTRIBUTES* security, unsigned long disposition, unsigned long flags,
                        void* templateFile)
{
    FileOwner file = CreateOwned(path, access, share, security, disposition, flags, templateFile);
    if (!file.IsValid())
        throw Error(CreationError(path.c_str()));
    return file;
}

FileOwner VokCreateFile(std::wstring const& path, unsigned long access, unsigned long share,
                        SECURITY_ATTRIBUTES* security, unsigned long disposition, unsigned long flags,
                        void* templateFile, Error& error)
{
    FileOwner file = CreateOwned(path, access, share, security, disposition, flags, templateFile);
    if (!file.IsValid())
        error = CreationError(path.c_str());
    return file;
}

std::wstring VokExpandEnvironmentStrings(std::wstring const& text)
{
    std::vector<wchar_t> buffer(1024);
    DWORD count = ExpandEnvironmentStringsW(text.c_str(), buffer.data(), static_cast<DWORD>(buffer.size()));
    if (count > buffer.size())
    {
        buffer.resize(count);
        count = ExpandEnvironmentStringsW(text.c_str(), buffer.data(), static_cast<DWORD>(buffer.size()));
    }
    if (count == 0)
        VOK_THROW_LAST_ERROR("ExpandEnvironmentStrings");
    // The count includes the terminator. A variable that grew between the two calls makes it greater than the buffer.
    return std::wstring(buffer.data(), std::min<std::size_t>(count, buffer.size()) - 1);
}

std::wstring VokGetEnvironmentVariable(std::wstring const& name, bool tolerateMissing)
{
    std::wstring value;
    DWORD count = GetEnvironmentVariableW(name.c_str(), value.data(), 0);
    if (count > value.size())
    {
        value.resize(count);
        count = GetEnvironmentVariableW(name.c_str(), value.data(), count);
    }
    if (count != 0)
        return value; // not cut to the count: callers get the terminator in size()
    if (GetLastError() == ERROR_ENVVAR_NOT_FOUND && tolerateMissing)
    {
        VOK_LOG(info, "Environment variable [{}] not found", name);
        return {};
    }
    VOK_THROW_LAST_ERROR("GetEnvironmentVariable [{}] - failed with error", name);
}

} // namespace Brindle::Vok
