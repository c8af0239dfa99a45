#include "Utf.h"

namespace Brindle::Vok::Platform::Utf
{

namespace
{

constexpr char32_t HighSurrogates = 0xD800;
constexpr char32_t LowSurrogates = 0xDC00;

bool IsHighSurrogate(wchar_t unit)
{
    return (static_cast<char32_t>(unit) & ~0x3FFU) == HighSurrogates;
}

bool IsLowSurrogate(wchar_t unit)
{
    return (static_cast<char32_t>(unit) & ~0x3FFU) == LowSurrogates;
}

bool IsScalarValue(char32_t codePoint)
{
    return codePoint <= 0x10FFFF && (codePoint & ~0x7FFU) != HighSurrogates;
}

/// What a lead byte promises: how many bytes follow, and the range of the first of them, which excludes overlong
/// forms, surrogates and what lies beyond U+10FFFF.
struct Lead
{
    unsigned following;
    unsigned char lowest;
    unsigned char highest;
};

Lead ReadLead(unsigned char byte)
{
    if (byte < 0xC2)
        return {0, 0, 0};
    if (byte < 0xE0)
        return {1, 0x80, 0xBF};
    if (byte < 0xF0)
        return {2, static_cast<unsigned char>(byte == 0xE0 ? 0xA0 : 0x80),
                static_cast<unsigned char>(byte == 0xED ? 0x9F : 0xBF)};
    if (byte < 0xF5)
        return {3, static_cast<unsigned char>(byte == 0xF0 ? 0x90 : 0x80),
                static_cast<unsigned char>(byte == 0xF4 ? 0x8F : 0xBF)};
    return {0, 0, 0};
}

} // namespace

Decoded DecodeUtf8(char const* text, std::size_t length) noexcept
{
    auto const* bytes = reinterpret_cast<unsigned char const*>(text);
    if (bytes[0] < 0x80)
        return {bytes[0], 1, true};
    auto lead = ReadLead(bytes[0]);
    if (lead.following == 0)
        return {ReplacementCharacter, 1, false};
    char32_t codePoint = bytes[0] & (0x3FU >> lead.following);
    for (unsigned i = 1; i <= lead.following; ++i)
    {
        if (i == length || bytes[i] < lead.lowest || bytes[i] > lead.highest)
            return {ReplacementCharacter, i, false};
        codePoint = codePoint << 6 | (bytes[i] & 0x3FU);
        lead.lowest = 0x80;
        lead.highest = 0xBF;
    }
    return {codePoint, lead.following + 1, true};
}

Decoded DecodeWide(wchar_t const* text, std::size_t length) noexcept
{
    if (IsHighSurrogate(text[0]) && length > 1 && IsLowSurrogate(text[1]))
    {
        auto high = static_cast<char32_t>(text[0]) - HighSurrogates;
        auto low = static_cast<char32_t>(text[1]) - LowSurrogates;
        return {0x10000 + (high << 10 | low), 2, true};
    }
    auto unit = static_cast<char32_t>(text[0]);
    if (unit > 0xFFFF || !IsScalarValue(unit))
        return {ReplacementCharacter, 1, false};
    return {unit, 1, true};
}

unsigned EncodeUtf8(char32_t codePoint, char* out) noexcept
{
    if (!IsScalarValue(codePoint))
        codePoint = ReplacementCharacter;
    if (codePoint < 0x80)
    {
        out[0] = static_cast<char>(codePoint);
        return 1;
    }
    unsigned const following = codePoint < 0x800 ? 1 : codePoint < 0x10000 ? 2 : 3;
    static constexpr unsigned char leads[] = {0, 0xC0, 0xE0, 0xF0};
    for (unsigned i = following; i > 0; --i)
    {
        out[i] = static_cast<char>(0x80 | (codePoint & 0x3F));
        codePoint >>= 6;
    }
    out[0] = static_cast<char>(leads[following] | codePoint);
    return following + 1;
}

unsigned EncodeWide(char32_t codePoint, wchar_t* out) noexcept
{
    if (!IsScalarValue(codePoint))
        codePoint = ReplacementCharacter;
    if (codePoint < 0x10000)
    {
        out[0] = static_cast<wchar_t>(codePoint);
        return 1;
    }
    out[0] = static_cast<wchar_t>(HighSurrogates + ((codePoint - 0x10000) >> 10));
    out[1] = static_cast<wchar_t>(LowSurrogates + (codePoint & 0x3FF));
    return 2;
}

std::size_t Utf8LengthOfWide(wchar_t const* text, std::size_t length) noexcept
{
    std::size_t result = 0;
    char bytes[4];
    for (std::size_t i = 0; i < length;)
    {
        auto const character = DecodeWide(text + i, length - i);
        result += EncodeUtf8(character.codePoint, bytes);
        i += character.consumed;
    }
    return result;
}

std::size_t WideLengthOfUtf8(char const* text, std::size_t length) noexcept
{
    std::size_t result = 0;
    for (std::size_t i = 0; i < length;)
    {
        auto const character = DecodeUtf8(text + i, length - i);
        result += character.codePoint > 0xFFFF ? 2 : 1;
        i += character.consumed;
    }
    return result;
}

char* WideToUtf8(wchar_t const* text, std::size_t length, char* out) noexcept
{
    for (std::size_t i = 0; i < length;)
    {
        auto const character = DecodeWide(text + i, length - i);
        out += EncodeUtf8(character.codePoint, out);
        i += character.consumed;
    }
    return out;
}

wchar_t* Utf8ToWide(char const* text, std::size_t length, wchar_t* out) noexcept
{
    for (std::size_t i = 0; i < length;)
    {
        auto const character = DecodeUtf8(text + i, length - i);
        out += EncodeWide(character.codePoint, out);
        i += character.consumed;
    }
    return out;
}

char* WideToUtf8(wchar_t const* text, std::size_t length, char* out, std::size_t size) noexcept
{
    return Utf8LengthOfWide(text, length) <= size ? WideToUtf8(text, length, out) : nullptr;
}

wchar_t* Utf8ToWide(char const* text, std::size_t length, wchar_t* out, std::size_t size) noexcept
{
    return WideLengthOfUtf8(text, length) <= size ? Utf8ToWide(text, length, out) : nullptr;
}

bool IsValidUtf8(char const* text, std::size_t length) noexcept
{
    for (std::size_t i = 0; i < length;)
    {
        auto const character = DecodeUtf8(text + i, length - i);
        if (!character.valid)
            return false;
        i += character.consumed;
    }
    return true;
}

bool IsValidWide(wchar_t const* text, std::size_t length) noexcept
{
    for (std::size_t i = 0; i < length;)
    {
        auto const character = DecodeWide(text + i, length - i);
        if (!character.valid)
            return false;
        i += character.consumed;
    }
    return true;
}

} // namespace Brindle::Vok::Platform::Utf
