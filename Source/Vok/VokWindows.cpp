#include <Brindle/Vok/VokWindows.h>

#include <Brindle/Vok/Log.h>
#include <Brindle/Vok/UnImpersonator.h>

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

HandleOwner<Detail::NullHandleTraits> VokOpenProcessToken(void* processHandle, unsigned long access)
{
    VOK_ASSERT(processHandle != 0);
    HANDLE token = nullptr;
    if (!OpenProcessToken(processHandle, static_cast<DWORD>(access), &token))
        VOK_THROW_LAST_ERROR(L"OpenProcessToken Failed");
    return HandleOwner<Detail::NullHandleTraits>(token);
}

// Sessions

namespace
{

constexpr DWORD noSession = 0xFFFFFFFF;

unsigned long SessionIdFromToken(void* token, Error& error)
{
    DWORD id = noSession;
    DWORD length = sizeof id;
    if (!GetTokenInformation(token, TokenSessionId, &id, sizeof id, &length))
    {
        VOK_SET_LAST_ERROR(error, "GetTokenInformation");
        return noSession;
    }
    return id;
}

} // namespace

unsigned long GetSessionId(unsigned long processId, void* token, Error& error)
{
    VOK_LOG_SCOPE();
    DWORD id = noSession;
    if (ProcessIdToSessionId(static_cast<DWORD>(processId), &id))
        return id;
    if (GetLastError() != ERROR_ACCESS_DENIED)
    {
        VOK_SET_LAST_ERROR(error, "ProcessIdToSessionId");
        return noSession;
    }
    VOK_LOG(warning, "ERROR_ACCESS_DENIED - falling back to GetTokenInformation()");
    if (token != nullptr)
    {
        unsigned long const found = SessionIdFromToken(token, error);
        return error.Failed() ? noSession : found;
    }
    UnImpersonator const asProcess;
    HandleOwner<Detail::NullHandleTraits> process(
        OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, static_cast<DWORD>(processId)));
    if (!process.IsValid())
    {
        VOK_SET_LAST_ERROR(error, "Error, Unable to OpenProcess()");
        return noSession;
    }
    HANDLE processToken = nullptr;
    if (!OpenProcessToken(process.Get(), TOKEN_QUERY | TOKEN_QUERY_SOURCE, &processToken))
    {
        VOK_SET_LAST_ERROR(error, "Unable to OpenThreadToken()"); // required: though it is a process's
        return noSession;
    }
    HandleOwner<Detail::NullHandleTraits> owner(processToken);
    unsigned long const found = SessionIdFromToken(processToken, error);
    owner.Reset();
    process.Reset();
    return error.Failed() ? noSession : found;
}

unsigned long GetSessionId(unsigned long processId, void* token)
{
    Error error;
    unsigned long const id = GetSessionId(processId, token, error);
    if (error.Failed())
        throw Error(error);
    return id;
}

unsigned long GetSessionId(void* token)
{
    return GetSessionId(GetCurrentProcessId(), token);
}

unsigned long GetSessionId(void* token, Error& error)
{
    return GetSessionId(GetCurrentProcessId(), token, error);
}

unsigned long GetSessionId(Error& error)
{
    return GetSessionId(GetCurrentProcessId(), nullptr, error);
}

} // namespace Brindle::Vok
