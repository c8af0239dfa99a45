// The platform's calls take a text up to its first NUL, where it may mean another path.
#pragma once

#include <Brindle/Vok/Platform.h>

#include <string>

namespace Brindle::Vok::Detail
{

/// True, with ERROR_INVALID_NAME as the last error, for a text with a NUL.
inline bool RefuseNul(std::wstring const& text) noexcept
{
    if (text.find(L'\0') == std::wstring::npos)
        return false;
    SetLastError(ERROR_INVALID_NAME);
    return true;
}

/// GetFileAttributesW of the whole text. INVALID_FILE_ATTRIBUTES with the last error set on failure.
inline DWORD AttributesOf(std::wstring const& path) noexcept
{
    return RefuseNul(path) ? INVALID_FILE_ATTRIBUTES : GetFileAttributesW(path.c_str());
}

} // namespace Brindle::Vok::Detail
