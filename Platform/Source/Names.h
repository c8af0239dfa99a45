// Windows-syntax text to host paths and back. Every name on a host's disk has a text, and that text leads back to the
// very same bytes:
//
//     character of the name                                    stands in text as
//     < > : " | ? * \ and 0x01 to 0x1F                          U+F000 plus its code
//     a byte that is no part of valid UTF-8                    U+DC80 to U+DCFF, U+DC00 plus the byte
//     one of exactly those U+F000 characters itself            its three bytes at U+DC80 to U+DCFF
//     everything else                                          itself
//
// Path forms that are understood: \\?\X:\x and \\?\UNC\server\share\x (taken literally), \\.\X:\x, \\server\share\x,
// X:\x, X:x, \x, x. `/` separates like `\` except behind \\?\. `.` and `..` are folded by text; behind \\?\ they are
// invalid names. Trailing dots and blanks of names stay.
#pragma once

#include <Brindle/Platform/Types.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace Brindle::Vok::Platform
{

/// A host path, as bytes. Short ones need no memory of their own. Neither copied nor moved: it is made where it is
/// used.
class HostPath
{
public:
    HostPath() noexcept = default;
    HostPath(HostPath const&) = delete;
    HostPath& operator=(HostPath const&) = delete;

    /// Takes Windows-syntax text. False with the last error set: ERROR_PATH_NOT_FOUND for a null or empty text or a
    /// drive that isn't mapped, ERROR_FILE_NOT_FOUND for another device, ERROR_INVALID_PARAMETER for a drive's own,
    /// ERROR_BAD_PATHNAME for no server, ERROR_BAD_NETPATH for an unknown one, ERROR_BAD_NET_NAME for an unknown share,
    /// ERROR_INVALID_NAME for a character or component that no name can have, ERROR_NOT_ENOUGH_MEMORY.
    bool Assign(wchar_t const* text) noexcept;
    bool Assign(std::wstring_view text) noexcept;

    /// Takes a host path's bytes as they are. False with ERROR_NOT_ENOUGH_MEMORY.
    bool AssignHost(std::string_view path) noexcept;

    char const* Text() const noexcept { return bytes; }
    std::string_view View() const noexcept { return {bytes, length}; }

    /// The text ended in a separator, so it can only mean a directory.
    bool NamesDirectory() const noexcept { return namesDirectory; }
    /// Nothing stands behind the drive or the share.
    bool IsRoot() const noexcept { return isRoot; }

private:
    struct Place;
    static Place Locate(std::wstring_view text) noexcept;
    static Place LocateDevice(std::wstring_view text, bool verbatim) noexcept;
    static Place LocateShare(std::wstring_view text, std::size_t from, bool verbatim) noexcept;
    bool Reserve(std::size_t capacity) noexcept;
    bool AppendComponents(std::wstring_view text, bool relative, bool verbatim) noexcept;

    char inlineBytes[512];
    std::unique_ptr<char[]> longBytes;
    char* bytes = inlineBytes;
    std::size_t length = 0;
    bool namesDirectory = false;
    bool isRoot = false;
};

/// Writes the text for one name of a directory on the host, at most as many units as the name has bytes, and gives its
/// length.
std::size_t WideNameFromHost(std::string_view name, wchar_t* text) noexcept;
/// The same as a string. May throw std::bad_alloc.
std::wstring WideNameFromHost(std::string_view name);

/// The Windows-syntax text for a host path: /tmp/a gives C:\tmp\a, a relative one stays relative. Empty for an empty
/// path. May throw std::bad_alloc.
std::wstring WindowsPathFromHost(std::string_view path);

} // namespace Brindle::Vok::Platform
