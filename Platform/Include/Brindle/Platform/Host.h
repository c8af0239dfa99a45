// What only the stand-in has: which host directories stand behind drives, shares and registry roots, and tokens of the
// host's users. C: is the host's root from the start. Each function gives false or null with the last error set on
// failure. All may be called from any thread; a path that is being looked up meanwhile sees the mapping before or after
// the call.
//
//     MapDrive(L'D', "/srv/data");                      // D:\x is /srv/data/x from here on
//     MapShare(L"server", L"share", "/srv/share");      // and \\server\share\x is /srv/share/x
//     MapRegistry(HKEY_LOCAL_MACHINE, "/srv/machine");  // and its key x is /srv/machine/x
#pragma once

#include <Brindle/Platform/Types.h>

#include <string>

namespace Brindle::Vok::Platform
{

/// Puts a host directory (UTF-8 bytes as the host has them) behind a drive letter, A to Z in either case. Fails with
/// ERROR_INVALID_DRIVE for another letter, ERROR_ALREADY_ASSIGNED for a drive that is mapped, C among them,
/// ERROR_PATH_NOT_FOUND for a missing directory and ERROR_DIRECTORY for a file. A relative directory is taken from the
/// working directory of this moment.
VOK_PLATFORM_EXPORT bool MapDrive(wchar_t letter, std::string const& directory);

/// Takes a mapped drive away. Fails with ERROR_INVALID_DRIVE for C and for what isn't a letter, ERROR_PATH_NOT_FOUND
/// for a drive that is not mapped. Handles that are open stay open.
VOK_PLATFORM_EXPORT bool UnmapDrive(wchar_t letter);

/// Puts a host directory behind a share of a server, both found without regard to the case of A to Z. Mapping a share
/// again replaces its directory. Fails with ERROR_INVALID_NAME for an empty name, one with a separator, and a
/// server "." or "?".
VOK_PLATFORM_EXPORT bool MapShare(std::wstring const& server, std::wstring const& share, std::string const& directory);

/// Puts a host directory behind a predefined registry key; each key below the root is a directory below that one.
/// Mapping a root again replaces its directory, and keys that are open stay where they are. Fails with
/// ERROR_INVALID_HANDLE for what is no predefined key, and for directories as MapDrive does.
VOK_PLATFORM_EXPORT bool MapRegistry(HKEY root, std::string const& directory);

/// A token of a user of the host with the groups that the host's databases give him, a primary one with all rights, to
/// be closed with CloseHandle. It takes no password and no privilege: to impersonate with it does (Security.h). Fails
/// with ERROR_NO_SUCH_USER, and where the databases couldn't be read whole with another code.
VOK_PLATFORM_EXPORT HANDLE OpenUserToken(std::string const& user);

} // namespace Brindle::Vok::Platform
