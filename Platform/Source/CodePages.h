// Code pages other than UTF-8, through the C library's iconv.
#pragma once

#include <Brindle/Platform/Types.h>

#include <cstddef>

namespace Brindle::Vok::Platform::CodePages
{

/// Takes what a conversion makes and counts all of it, also what no longer fits into the buffer.
template <class Unit>
class Output
{
public:
    Output(Unit* buffer, std::size_t size) noexcept : buffer(buffer), size(size) {}

    void Put(Unit unit) noexcept
    {
        if (count < size)
            buffer[count] = unit;
        ++count;
    }

    std::size_t Count() const noexcept { return count; }

private:
    Unit* buffer;
    std::size_t size;
    std::size_t count = 0;
};

/// What stands for a character that a page doesn't have, and whether it was needed.
struct DefaultCharacter
{
    char const* text; ///< In the page's own bytes, or null for '?'.
    bool used = false;
};

/// Both give a platform code: ERROR_SUCCESS, ERROR_INVALID_PARAMETER for an unknown page, ERROR_NOT_ENOUGH_MEMORY, or,
/// with strict, ERROR_NO_UNICODE_TRANSLATION for a text that is ill-formed. Without strict each ill-formed byte, and
/// an incomplete character at the end, becomes U+FFFD.
DWORD ToWide(UINT page, char const* text, std::size_t length, bool strict, Output<wchar_t>& output) noexcept;
DWORD FromWide(UINT page, wchar_t const* text, std::size_t length, bool strict, DefaultCharacter& defaultCharacter,
               Output<char>& output) noexcept;

/// Pages that hold all of Unicode.
inline constexpr UINT utf7 = 65000;
inline constexpr UINT gb18030 = 54936;

} // namespace Brindle::Vok::Platform::CodePages
