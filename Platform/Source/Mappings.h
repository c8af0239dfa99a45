// What stands behind drive letters and shares, apart from C:, which is always the host's root.
#pragma once

#include <Brindle/Platform/Host.h>

#include <cstddef>
#include <string_view>

namespace Brindle::Vok::Platform
{

/// Receives a directory's bytes, absolute and without a separator at the end; empty for the host's root. Called
/// with the shares locked, so it must not map anything.
class DirectoryReceiver
{
public:
    virtual bool Receive(std::string_view directory) noexcept = 0;

protected:
    ~DirectoryReceiver() = default;
};

/// False with ERROR_PATH_NOT_FOUND, or what the receiver set.
bool FindDrive(wchar_t letter, DirectoryReceiver& receiver) noexcept;

/// False with ERROR_BAD_NETPATH or ERROR_BAD_NET_NAME, or what the receiver set.
bool FindShare(std::wstring_view server, std::wstring_view share, DirectoryReceiver& receiver) noexcept;

} // namespace Brindle::Vok::Platform
