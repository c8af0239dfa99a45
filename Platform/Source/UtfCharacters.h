// Single characters of UTF-8 and of wide text, and what is well-formed in each.
#pragma once

#include <cstddef>

namespace Brindle::Vok::Platform::Utf
{

inline constexpr char32_t replacementCharacter = 0xFFFD;

/// The first character of a text. For an ill-formed one codePoint is replacementCharacter, and consumed the length of
/// its maximal part.
struct Decoded
{
    char32_t codePoint;
    unsigned consumed;
    bool valid;
};

/// Decodes the first character of length bytes, of which there is at least one.
Decoded DecodeUtf8(char const* text, std::size_t length) noexcept;

/// The same for code units.
Decoded DecodeWide(wchar_t const* text, std::size_t length) noexcept;

/// Writes the 1 to 4 bytes of a character and gives their count. What is no character is written as U+FFFD.
unsigned EncodeUtf8(char32_t codePoint, char* out) noexcept;

/// Writes the 1 or 2 code units of a character and gives their count. What is no character is written as U+FFFD.
unsigned EncodeWide(char32_t codePoint, wchar_t* out) noexcept;

constexpr bool IsHighSurrogate(wchar_t unit)
{
    return (static_cast<char32_t>(unit) & ~0x3FFU) == 0xD800;
}

constexpr bool IsLowSurrogate(wchar_t unit)
{
    return (static_cast<char32_t>(unit) & ~0x3FFU) == 0xDC00;
}

/// Whether this is a character, and not a surrogate or too large.
constexpr bool IsCharacter(char32_t codePoint)
{
    return codePoint <= 0x10FFFF && (codePoint & ~0x7FFU) != 0xD800;
}

/// Bytes of the character in UTF-8.
constexpr unsigned Utf8Length(char32_t codePoint)
{
    return codePoint < 0x80 ? 1 : codePoint < 0x800 ? 2 : codePoint < 0x10000 ? 3 : 4;
}

/// What a lead byte promises: how many bytes follow, and the range of the first of them, which excludes overlong
/// forms, surrogates and what lies beyond U+10FFFF.
struct LeadByte
{
    unsigned following;
    unsigned char lowest;
    unsigned char highest;
};

constexpr LeadByte ReadLeadByte(unsigned char byte)
{
    if (byte < 0xC2 || byte > 0xF4)
        return {0, 0, 0};
    if (byte < 0xE0)
        return {1, 0x80, 0xBF};
    auto const lowest = static_cast<unsigned char>(byte == 0xE0 ? 0xA0 : byte == 0xF0 ? 0x90 : 0x80);
    auto const highest = static_cast<unsigned char>(byte == 0xED ? 0x9F : byte == 0xF4 ? 0x8F : 0xBF);
    return {byte < 0xF0 ? 2U : 3U, lowest, highest};
}

inline Decoded DecodeUtf8(char const* text, std::size_t length) noexcept
{
    auto const* const bytes = reinterpret_cast<unsigned char const*>(text);
    if (bytes[0] < 0x80)
        return {bytes[0], 1, true};
    auto lead = ReadLeadByte(bytes[0]);
    if (lead.following == 0)
        return {replacementCharacter, 1, false};
    char32_t codePoint = bytes[0] & (0x3FU >> lead.following);
    for (unsigned i = 1; i <= lead.following; ++i)
    {
        if (i == length || bytes[i] < lead.lowest || bytes[i] > lead.highest)
            return {replacementCharacter, i, false};
        codePoint = codePoint << 6 | (bytes[i] & 0x3FU);
        lead.lowest = 0x80;
        lead.highest = 0xBF;
    }
    return {codePoint, lead.following + 1, true};
}

inline Decoded DecodeWide(wchar_t const* text, std::size_t length) noexcept
{
    auto const unit = static_cast<char32_t>(text[0]);
    if (IsHighSurrogate(text[0]) && length > 1 && IsLowSurrogate(text[1]))
        return {0x10000 + ((unit & 0x3FF) << 10 | (static_cast<char32_t>(text[1]) & 0x3FF)), 2, true};
    if (unit > 0xFFFF || !IsCharacter(unit))
        return {replacementCharacter, 1, false};
    return {unit, 1, true};
}

inline unsigned EncodeUtf8(char32_t codePoint, char* out) noexcept
{
    if (!IsCharacter(codePoint))
        codePoint = replacementCharacter;
    if (codePoint < 0x80)
    {
        out[0] = static_cast<char>(codePoint);
        return 1;
    }
    constexpr unsigned char leadMarks[] = {0, 0, 0xC0, 0xE0, 0xF0};
    unsigned const length = Utf8Length(codePoint);
    for (unsigned i = length - 1; i > 0; --i)
    {
        out[i] = static_cast<char>(0x80 | (codePoint & 0x3F));
        codePoint >>= 6;
    }
    out[0] = static_cast<char>(leadMarks[length] | codePoint);
    return length;
}

inline unsigned EncodeWide(char32_t codePoint, wchar_t* out) noexcept
{
    if (!IsCharacter(codePoint))
        codePoint = replacementCharacter;
    if (codePoint < 0x10000)
    {
        out[0] = static_cast<wchar_t>(codePoint);
        return 1;
    }
    out[0] = static_cast<wchar_t>(0xD800 + ((codePoint - 0x10000) >> 10));
    out[1] = static_cast<wchar_t>(0xDC00 + (codePoint & 0x3FF));
    return 2;
}

} // namespace Brindle::Vok::Platform::Utf
