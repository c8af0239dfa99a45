#include "Mappings.h"

#include "Ascii.h"
#include "Forks.h"
#include "HostErrors.h"
#include "HostFile.h"
#include "SystemCalls.h"

#include <Brindle/Platform/Registry.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

namespace Brindle::Vok::Platform
{
namespace
{

// Null where a letter is free. Changed under the mutex; looked up without it, so a new name is released and acquired.
constinit std::atomic<std::string const*> drives[26];

// By the last digit of their values; some of these belong to no key. Changed and looked up like drives.
constinit std::atomic<std::string const*> registryRoots[6];

// For all changes, and for looking at the shares.
constinit std::mutex mutex;

struct Share
{
    std::wstring server;
    std::wstring name;
    std::string const* directory;
};

struct Mappings
{
    // A directory that was mapped once stays until the process ends: somebody may be reading its name.
    std::set<std::string> directories;
    std::vector<Share> shares;
};

// Never destroyed: paths are looked up by static destructors and by threads that outlive main. With the mutex, so that
// no fork meets a thread that makes them.
Mappings& TheMappings()
{
    static Mappings& mappings = *new Mappings;
    return mappings;
}

[[maybe_unused]] int const keepsOrderInChild = HoldInForks<mutex>();

std::size_t IndexOf(wchar_t letter)
{
    return static_cast<std::size_t>(UpperCase(letter) - L'A');
}

std::size_t IndexOf(HKEY root)
{
    return reinterpret_cast<std::uintptr_t>(root) & 0xF;
}

bool IsShareName(std::wstring_view name)
{
    return !name.empty() && name.find_first_of(std::wstring_view(L"\\/\0", 3)) == std::wstring_view::npos;
}

// The other two would be the prefixes of devices and of extended-length paths.
bool IsServerName(std::wstring_view name)
{
    return IsShareName(name) && name != L"." && name != L"?";
}

// Absolute, so that it stays the same when the working directory changes, and without a separator at the end.
bool FindDirectory(std::string const& directory, std::string& absolute)
{
    if (directory.empty())
        return FailWith(ERROR_PATH_NOT_FOUND);
    if (directory.find('\0') != std::string::npos)
        return FailWith(ERROR_INVALID_NAME);
    struct stat status;
    if (SystemCalls::StatusAt(AT_FDCWD, directory.c_str(), &status, 0) != 0)
        return FailWith(errno == ENOENT ? ERROR_PATH_NOT_FOUND : CodeFromHost(errno));
    if (!S_ISDIR(status.st_mode))
        return FailWith(ERROR_DIRECTORY);
    absolute = directory;
    if (!MakeAbsolute(absolute))
        return false;
    absolute.resize(absolute.find_last_not_of('/') + 1);
    return true;
}

} // namespace

bool MapDrive(wchar_t letter, std::string const& directory)
{
    return WithoutThrowing(
        [&]
        {
            if (!IsLetter(letter))
                return FailWith(ERROR_INVALID_DRIVE);
            std::string absolute;
            if (UpperCase(letter) != L'C' && !FindDirectory(directory, absolute))
                return false;
            std::lock_guard const lock(mutex);
            Mappings& mappings = TheMappings();
            auto& drive = drives[IndexOf(letter)];
            if (drive.load(std::memory_order_relaxed) || UpperCase(letter) == L'C')
                return FailWith(ERROR_ALREADY_ASSIGNED);
            drive.store(&*mappings.directories.insert(std::move(absolute)).first, std::memory_order_release);
            return true;
        });
}

bool UnmapDrive(wchar_t letter)
{
    return WithoutThrowing(
        [&]
        {
            if (!IsLetter(letter) || UpperCase(letter) == L'C')
                return FailWith(ERROR_INVALID_DRIVE);
            std::lock_guard const lock(mutex);
            bool const wasMapped = drives[IndexOf(letter)].exchange(nullptr, std::memory_order_relaxed) != nullptr;
            return wasMapped || FailWith(ERROR_PATH_NOT_FOUND);
        });
}

bool MapShare(std::wstring const& server, std::wstring const& share, std::string const& directory)
{
    return WithoutThrowing(
        [&]
        {
            if (!IsServerName(server) || !IsShareName(share))
                return FailWith(ERROR_INVALID_NAME);
            std::string absolute;
            if (!FindDirectory(directory, absolute))
                return false;
            std::lock_guard const lock(mutex);
            Mappings& mappings = TheMappings();
            std::string const* const known = &*mappings.directories.insert(std::move(absolute)).first;
            auto const found = std::ranges::find_if(
                mappings.shares, [&](Share const& each)
                { return EqualWithoutCase(each.server, server) && EqualWithoutCase(each.name, share); });
            if (found != mappings.shares.end())
                found->directory = known;
            else
                mappings.shares.push_back({server, share, known});
            return true;
        });
}

bool MapRegistry(HKEY root, std::string const& directory)
{
    return WithoutThrowing(
        [&]
        {
            if (!IsRegistryRoot(root))
                return FailWith(ERROR_INVALID_HANDLE);
            std::string absolute;
            if (!FindDirectory(directory, absolute))
                return false;
            std::lock_guard const lock(mutex);
            std::string const& known = *TheMappings().directories.insert(std::move(absolute)).first;
            registryRoots[IndexOf(root)].store(&known, std::memory_order_release);
            return true;
        });
}

bool FindDrive(wchar_t letter, std::string_view& directory) noexcept
{
    if (UpperCase(letter) == L'C')
    {
        directory = {};
        return true;
    }
    std::string const* const drive = drives[IndexOf(letter)].load(std::memory_order_acquire);
    if (!drive)
        return FailWith(ERROR_PATH_NOT_FOUND);
    directory = *drive;
    return true;
}

bool FindShare(std::wstring_view server, std::wstring_view share, std::string_view& directory) noexcept
{
    return WithoutThrowing(
        [&]
        {
            std::lock_guard const lock(mutex);
            Mappings& mappings = TheMappings();
            bool serverKnown = false;
            for (Share const& known : mappings.shares)
            {
                if (!EqualWithoutCase(known.server, server))
                    continue;
                serverKnown = true;
                if (!EqualWithoutCase(known.name, share))
                    continue;
                directory = *known.directory;
                return true;
            }
            return FailWith(serverKnown ? ERROR_BAD_NET_NAME : ERROR_BAD_NETPATH);
        });
}

bool IsRegistryRoot(HKEY key) noexcept
{
    return key == HKEY_CLASSES_ROOT || key == HKEY_CURRENT_USER || key == HKEY_LOCAL_MACHINE || key == HKEY_USERS ||
           key == HKEY_CURRENT_CONFIG;
}

bool FindRegistryRoot(HKEY root, std::string_view& directory) noexcept
{
    if (!IsRegistryRoot(root))
        return FailWith(ERROR_INVALID_HANDLE);
    std::string const* const mapped = registryRoots[IndexOf(root)].load(std::memory_order_acquire);
    if (!mapped)
        return FailWith(ERROR_FILE_NOT_FOUND);
    directory = *mapped;
    return true;
}

} // namespace Brindle::Vok::Platform
