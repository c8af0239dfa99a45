#include <Brindle/Vok/VokWindows.h>

#include <Brindle/Vok/Log.h>

#include <algorithm>
#include <vector>

namespace Brindle::Vok
{

HandleOwner<Detail::InvalidHandleTraits> VokCreateFile(wchar_t const* path, unsigned long access, unsigned long share,
                                                       SECURITY_ATTRIBUTES* security, unsigned long disposition,
                                                       unsigned long flags, void* templateFile)
{
    Error error;
    HandleOwner<Detail::InvalidHandleTraits> file =
        VokCreateFile(path, access, share, security, disposition, flags, templateFile, error);
    if (error.Failed())
        throw Error(error);
    return file;
}

HandleOwner<Detail::InvalidHandleTraits> VokCreateFile(wchar_t const* path, unsigned long access, unsigned long share,
                                                       SECURITY_ATTRIBUTES* security, unsigned long disposition,
                                                       unsigned long flags, void* templateFile, Error& error)
{
    HandleOwner<Detail::InvalidHandleTraits> file(
        CreateFileW(path, static_cast<DWORD>(access), static_cast<DWORD>(share), security,
                    static_cast<DWORD>(disposition), static_cast<DWORD>(flags), templateFile));
    if (file.Get() == INVALID_HANDLE_VALUE)
        VOK_SET_LAST_ERROR(error, L"CreateFile failed, path[{}]", path);
    return file;
}

HandleOwner<Detail::InvalidHandleTraits> VokCreateFile(std::wstring const& path, unsigned long access,
                                                       unsigned long share, SECURITY_ATTRIBUTES* security,
                                                       unsigned long disposition, unsigned long flags,
                                                       void* templateFile)
{
    Error error;
    HandleOwner<Detail::InvalidHandleTraits> file =
        VokCreateFile(path, access, share, security, disposition, flags, templateFile, error);
    if (error.Failed())
        throw Error(error);
    return file;
}

HandleOwner<Detail::InvalidHandleTraits> VokCreateFile(std::wstring const& path, unsigned long access,
                                                       unsigned long share, SECURITY_ATTRIBUTES* security,
                                                       unsigned long disposition, unsigned long flags,
                                                       void* templateFile, Error& error)
{
    if (path.find(L'\0') == std::wstring::npos)
        return VokCreateFile(path.c_str(), access, share, security, disposition, flags, templateFile, error);
    SetLastError(ERROR_INVALID_NAME);
    VOK_SET_LAST_ERROR(error, L"CreateFile failed, path[{}]", path);
    return {};
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
