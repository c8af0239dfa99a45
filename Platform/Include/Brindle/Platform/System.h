// What the computer, the user and the system's directory are called.
//
//     DWORD size = 0;
//     GetComputerNameExW(ComputerNameDnsHostname, nullptr, &size);    // fails with ERROR_MORE_DATA and gives the size
//     std::wstring name(size, L'\0');
//     if (GetComputerNameExW(ComputerNameDnsHostname, name.data(), &size))
//         name.resize(size);
//
// Sizes are in characters. Everything may be called from any thread. A call that succeeds leaves the last error alone.
//
// What is not guaranteed: a domain that only a name server knows. It is looked for in the host's own name and in
// /etc/hosts, and is empty when neither tells it.
#pragma once

#include <Brindle/Platform/Types.h>

/// The names of this host; it is no member of a cluster, so the physical ones are the same.
enum COMPUTER_NAME_FORMAT : int
{
    ComputerNameNetBIOS,                   ///< the host name in capitals, at most 15 characters of it
    ComputerNameDnsHostname,               ///< the host name up to its first dot
    ComputerNameDnsDomain,                 ///< what follows that dot
    ComputerNameDnsFullyQualified,         ///< both, or the host name alone without a domain
    ComputerNamePhysicalNetBIOS,           ///< as ComputerNameNetBIOS
    ComputerNamePhysicalDnsHostname,       ///< as ComputerNameDnsHostname
    ComputerNamePhysicalDnsDomain,         ///< as ComputerNameDnsDomain
    ComputerNamePhysicalDnsFullyQualified, ///< as ComputerNameDnsFullyQualified
    ComputerNameMax                        ///< no name, ERROR_INVALID_PARAMETER like every greater value
};

extern "C"
{
    /// On success `size` is the count without the terminator. ERROR_MORE_DATA when the buffer is too small, with the
    /// size that is needed, terminator included. ERROR_INVALID_PARAMETER for an unknown format, a null `size`, and a
    /// null buffer of a size other than 0.
    VOK_PLATFORM_EXPORT BOOL WINAPI GetComputerNameExW(COMPUTER_NAME_FORMAT format, LPWSTR buffer,
                                                       LPDWORD size) noexcept;

    /// The user as whom the calling thread acts. `size` becomes the count with the terminator, on success too;
    /// ERROR_INSUFFICIENT_BUFFER when it is too small or the buffer null, ERROR_INVALID_PARAMETER for a null `size`.
    /// ERROR_NO_SUCH_USER for a user whom the host's database doesn't name.
    VOK_PLATFORM_EXPORT BOOL WINAPI GetUserNameW(LPWSTR buffer, LPDWORD size) noexcept;

    /// The directory of the host's libraries, without a separator at its end. The count without the terminator, or with
    /// it the size needed when the buffer is null or too small.
    VOK_PLATFORM_EXPORT UINT WINAPI GetSystemDirectoryW(LPWSTR buffer, UINT size) noexcept;
}
