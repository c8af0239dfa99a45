// Small texts of the rooms: conversions into strings, and copies into a caller's buffer.
#pragma once

#include "Utf.h"

#include <Brindle/Platform/Types.h>

#include <algorithm>
#include <string>
#include <string_view>

namespace Brindle::Vok::Platform
{

/// May throw std::bad_alloc, as ToUtf8 may.
inline std::wstring ToWide(std::string_view text)
{
    std::wstring wide(Utf::WideLengthOfUtf8(text.data(), text.size()), L'\0');
    Utf::Utf8ToWide(text.data(), text.size(), wide.data(), wide.size());
    return wide;
}

inline std::string ToUtf8(std::wstring_view text)
{
    std::string narrow(Utf::Utf8LengthOfWide(text.data(), text.size()), '\0');
    Utf::WideToUtf8(text.data(), text.size(), narrow.data(), narrow.size());
    return narrow;
}

/// Whether the text and its terminator were copied. A null buffer holds nothing.
template <class Character>
bool CopyIfItFits(std::basic_string<Character> const& text, Character* buffer, DWORD size) noexcept
{
    if (buffer == nullptr || text.size() >= size)
        return false;
    std::copy_n(text.c_str(), text.size() + 1, buffer);
    return true;
}

} // namespace Brindle::Vok::Platform
