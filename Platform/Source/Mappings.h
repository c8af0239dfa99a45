// What stands behind drive letters, apart from C:, which is always the host's root, and behind shares and registry
// roots.
#pragma once

#include <Brindle/Platform/Host.h>

#include <string_view>

namespace Brindle::Vok::Platform
{

/// Points `directory` at the bytes of a directory, absolute and without a separator at the end; empty for the host's
/// root. The bytes stay until the process ends, also when the drive is unmapped. False with ERROR_PATH_NOT_FOUND;
/// `directory` means nothing then.
bool FindDrive(wchar_t letter, std::string_view& directory) noexcept;

/// The same. False with ERROR_BAD_NETPATH or ERROR_BAD_NET_NAME.
bool FindShare(std::wstring_view server, std::wstring_view share, std::string_view& directory) noexcept;

/// Whether it is one of the predefined keys.
bool IsRegistryRoot(HKEY key) noexcept;

/// The same as FindDrive for a predefined key; the bytes end in a NUL. False with ERROR_FILE_NOT_FOUND.
bool FindRegistryRoot(HKEY root, std::string_view& directory) noexcept;

} // namespace Brindle::Vok::Platform
