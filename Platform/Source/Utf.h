// The one converter between UTF-8 and wide text. A wide text holds UTF-16 code units, one a wchar_t, also where wchar_t
// has 32 bits. Nothing here fails for its input: what is ill-formed becomes U+FFFD, in UTF-8 one for each maximal part
// that could have begun a character, in wide text one for each lone surrogate and each unit above 0xFFFF.
//
//     std::wstring wide(Utf::WideLengthOfUtf8(text.data(), text.size()), L'\0');
//     Utf::Utf8ToWide(text.data(), text.size(), wide.data(), wide.size());
//
// All functions are pure. Lengths count bytes or code units, without a terminator; NUL is a character like any other.
// A null text of length 0 is allowed. Nothing is read or written outside the given ranges.
#pragma once

#include "UtfCharacters.h"

#include <cstddef>

namespace Brindle::Vok::Platform::Utf
{

/// Bytes that WideToUtf8 writes for the text.
std::size_t Utf8LengthOfWide(wchar_t const* text, std::size_t length) noexcept;

/// Code units that Utf8ToWide writes for the text.
std::size_t WideLengthOfUtf8(char const* text, std::size_t length) noexcept;

/// Converts into size bytes or units in one pass over the text. Gives the end of what was written, or null when the
/// result does not fit; the buffer then holds nothing useful.
char* WideToUtf8(wchar_t const* text, std::size_t length, char* out, std::size_t size) noexcept;
wchar_t* Utf8ToWide(char const* text, std::size_t length, wchar_t* out, std::size_t size) noexcept;

/// Whether the text would be converted without any U+FFFD in the place of something ill-formed.
bool IsValidUtf8(char const* text, std::size_t length) noexcept;
bool IsValidWide(wchar_t const* text, std::size_t length) noexcept;

} // namespace Brindle::Vok::Platform::Utf
