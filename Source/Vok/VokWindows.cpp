#include <Brindle/Vok/VokWindows.h>

#include <Brindle/Vok/Log.h>
#include <Brindle/Vok/UnImpersonator.h>

#include "PathText.h"
#include "ThrowIfFailed.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

namespace Brindle::Vok
{

namespace
{

using FileOwner = HandleOwner<Detail::InvalidHandleTraits>;

// What the overloads report, with one line for all of them. A failed call without a code has not failed. None makes an
// Error for a file that opens, or calls another one: that costs as much as a part of the system call.
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
    if (Detail::RefuseNul(path))
        return {};
    return CreateOwned(path.c_str(), access, share, security, disposition, flags, templateFile);
}

} // namespace

FileOwner VokCreateFile(wchar_t const* path, unsigned long access, unsigned long share, SECURITY_ATTRIBUTES* security,
                        unsigned long disposition, unsigned long flags, void* templateFile)
{
    FileOwner file = CreateOwned(path, access, share, security, disposition, flags, templateFile);
    if (!file.IsValid())
        Detail::ThrowIfFailed<Error>(CreationError(path));
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
        Detail::ThrowIfFailed<Error>(CreationError(path.c_str()));
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

// No member of the unnamed namespace, as errors carry its name.
template <class Char, auto getModuleFileName>
static std::basic_string<Char> VokGetModuleFileNameImpl(HINSTANCE module)
{
    constexpr std::size_t firstSize = 1024;
    constexpr std::size_t lastSize = 16384;
    std::basic_string<Char> name(firstSize, Char());
    DWORD count = getModuleFileName(module, name.data(), static_cast<DWORD>(name.size()));
    if (count == name.size() && GetLastError() == ERROR_INSUFFICIENT_BUFFER)
    {
        name.resize(lastSize);
        count = getModuleFileName(module, name.data(), static_cast<DWORD>(name.size()));
    }
    if (count == 0)
        VOK_THROW_LAST_ERROR("GetModuleFileName");
    name.resize(count);
    return name;
}

std::wstring VokGetModuleFileName(HINSTANCE module)
{
    return VokGetModuleFileNameImpl<wchar_t, GetModuleFileNameW>(module);
}

std::string VokGetModuleFileNameA(HINSTANCE module)
{
    return VokGetModuleFileNameImpl<char, GetModuleFileNameA>(module);
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

std::wstring VokGetComputerNameEx(COMPUTER_NAME_FORMAT format)
{
    DWORD size = 0;
    BOOL ok = GetComputerNameExW(format, nullptr, &size);
    VOK_ASSERT(!ok);
    VOK_ASSERT(GetLastError() == ERROR_MORE_DATA);
    std::vector<wchar_t> buffer(size);
    ok = GetComputerNameExW(format, buffer.data(), &size);
    if (!ok)
        VOK_THROW_LAST_ERROR(L"GetComputerNameEx Failed");
    return std::wstring(buffer.data(), std::min<std::size_t>(size, buffer.size()));
}

std::wstring VokGetUserName()
{
    wchar_t buffer[257];
    DWORD size = static_cast<DWORD>(std::size(buffer));
    if (!GetUserNameW(buffer, &size))
        VOK_THROW_LAST_ERROR(L"GetUserName Failed");
    return std::wstring(buffer, size - 1); // the count includes the terminator
}

std::wstring VokGetSystemDirectory()
{
    Error error;
    std::wstring directory = VokGetSystemDirectory(error);
    Detail::ThrowIfFailed(error);
    return directory;
}

std::wstring VokGetSystemDirectory(Error& error)
{
    std::vector<wchar_t> buffer(MAX_PATH);
    UINT count = GetSystemDirectoryW(buffer.data(), static_cast<UINT>(buffer.size()));
    if (count == 0)
    {
        VOK_SET_LAST_ERROR(error, "GetSystemDirectory failed");
        return {};
    }
    if (count > buffer.size())
    {
        buffer.resize(count);
        count = GetSystemDirectoryW(buffer.data(), static_cast<UINT>(buffer.size()));
        if (count == 0 || count > buffer.size())
        {
            VOK_SET_LAST_ERROR(error, "GetSystemDirectory resized failed");
            return {};
        }
    }
    return std::wstring(buffer.data(), count);
}

HandleOwner<Detail::ModuleHandleTraits> VokLoadLibrary(wchar_t const* filename)
{
    HandleOwner<Detail::ModuleHandleTraits> module(LoadLibraryW(filename));
    if (!module.IsValid())
        VOK_THROW_LAST_ERROR(L"LoadLibrary Failed [{}]", filename);
    return module;
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

std::vector<unsigned char> VokGetFileVersionInfo(std::wstring const& path)
{
    WindowsError error;
    std::vector<unsigned char> data = VokGetFileVersionInfo(path, error);
    Detail::ThrowIfFailed(error);
    return data;
}

std::vector<unsigned char> VokGetFileVersionInfo(std::wstring const& path, Error& error)
{
    DWORD const size = Detail::RefuseNul(path) ? 0 : GetFileVersionInfoSizeW(path.c_str(), nullptr);
    std::vector<unsigned char> data(size);
    if (size == 0 || !GetFileVersionInfoW(path.c_str(), 0, size, data.data()))
    {
        VOK_SET_LAST_ERROR(error, "");
        return {};
    }
    return data;
}

namespace
{

HANDLE CreateSemaphoreOfCounts(SECURITY_ATTRIBUTES* security, long initialCount, long maximumCount, wchar_t const* name)
{
    if (std::in_range<LONG>(initialCount) && std::in_range<LONG>(maximumCount))
        return CreateSemaphoreW(security, static_cast<LONG>(initialCount), static_cast<LONG>(maximumCount), name);
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
}

} // namespace

HandleOwner<Detail::InvalidHandleTraits> VokCreateSemaphore(SECURITY_ATTRIBUTES* security, long initialCount,
                                                            long maximumCount, wchar_t const* name)
{
    Error error;
    auto semaphore = VokCreateSemaphore(security, initialCount, maximumCount, name, error);
    Detail::ThrowIfFailed(error);
    return semaphore;
}

HandleOwner<Detail::InvalidHandleTraits> VokCreateSemaphore(SECURITY_ATTRIBUTES* security, long initialCount,
                                                            long maximumCount, wchar_t const* name, Error& error)
{
    HandleOwner<Detail::InvalidHandleTraits> semaphore(
        CreateSemaphoreOfCounts(security, initialCount, maximumCount, name));
    // The call fails with null, which is a handle here: nothing reports that.
    if (!semaphore.IsValid())
        VOK_SET_LAST_ERROR(error, L"CreateSemaphore failed, name[{}]", name);
    return semaphore;
}

long VokRegOpenKey(HKEY key, wchar_t const* subkey, unsigned long options, unsigned long access,
                   HandleOwner<Detail::RegistryHkeyHandleTraits>& result)
{
    HKEY opened = nullptr;
    LSTATUS const status =
        RegOpenKeyExW(key, subkey, static_cast<DWORD>(options), static_cast<REGSAM>(access), &opened);
    result.Reset(opened); // also with the null of a failure
    if (status != ERROR_SUCCESS)
        VOK_LOG(error, "Opening registry key [{}] failed with error [{}]", subkey, status);
    return status;
}

HandleOwner<Detail::NullHandleTraits> VokOpenProcessToken(void* processHandle, unsigned long access)
{
    VOK_DETAIL_ASSERT(processHandle != nullptr, "processHandle != 0");
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
    // No process has a number of more than 32 bits, or 0.
    if (ProcessIdToSessionId(std::in_range<DWORD>(processId) ? static_cast<DWORD>(processId) : 0, &id))
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
        return error.Failed() ? noSession : found; // required: also if it had failed before
    }
    UnImpersonator const asProcess;
    HandleOwner<Detail::NullHandleTraits> const process(
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
    HandleOwner<Detail::NullHandleTraits> const owner(processToken);
    unsigned long const found = SessionIdFromToken(processToken, error);
    return error.Failed() ? noSession : found;
}

unsigned long GetSessionId(unsigned long processId, void* token)
{
    Error error;
    unsigned long const id = GetSessionId(processId, token, error);
    Detail::ThrowIfFailed(error);
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
