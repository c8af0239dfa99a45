#include "UtfCharacters.h"
#include "UtfConverters.h"

#include <type_traits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Brindle::Vok::Platform::Utf::Portable
{

namespace
{

// Bytes, or units, of ASCII that are looked at in one step.
constexpr std::size_t runLength = 16;

#if defined(__SSE2__)

bool IsAsciiRun(char const* text)
{
    return _mm_movemask_epi8(_mm_loadu_si128(reinterpret_cast<__m128i const*>(text))) == 0;
}

struct WideRun
{
    __m128i quarters[4];
};

WideRun LoadRun(wchar_t const* text)
{
    auto const* const source = reinterpret_cast<__m128i const*>(text);
    return {{_mm_loadu_si128(source), _mm_loadu_si128(source + 1), _mm_loadu_si128(source + 2),
             _mm_loadu_si128(source + 3)}};
}

bool IsAsciiRun(wchar_t const* text)
{
    auto const [quarters] = LoadRun(text);
    auto const all = _mm_or_si128(_mm_or_si128(quarters[0], quarters[1]), _mm_or_si128(quarters[2], quarters[3]));
    auto const beyond = _mm_andnot_si128(_mm_set1_epi32(0x7F), all);
    return _mm_movemask_epi8(_mm_cmpeq_epi32(beyond, _mm_setzero_si128())) == 0xFFFF;
}

void CopyAsciiRun(char const* text, wchar_t* out)
{
    auto const zero = _mm_setzero_si128();
    auto const bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(text));
    auto const low = _mm_unpacklo_epi8(bytes, zero);
    auto const high = _mm_unpackhi_epi8(bytes, zero);
    auto* const target = reinterpret_cast<__m128i*>(out);
    _mm_storeu_si128(target, _mm_unpacklo_epi16(low, zero));
    _mm_storeu_si128(target + 1, _mm_unpackhi_epi16(low, zero));
    _mm_storeu_si128(target + 2, _mm_unpacklo_epi16(high, zero));
    _mm_storeu_si128(target + 3, _mm_unpackhi_epi16(high, zero));
}

void CopyAsciiRun(wchar_t const* text, char* out)
{
    auto const [quarters] = LoadRun(text);
    auto const low = _mm_packs_epi32(quarters[0], quarters[1]);
    auto const high = _mm_packs_epi32(quarters[2], quarters[3]);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(low, high));
}

#else

template <class Unit>
bool IsAsciiRun(Unit const* text)
{
    char32_t all = 0;
    for (std::size_t i = 0; i < runLength; ++i)
        all |= static_cast<std::make_unsigned_t<Unit>>(text[i]);
    return all < 0x80;
}

template <class Unit, class OutputUnit>
void CopyAsciiRun(Unit const* text, OutputUnit* out)
{
    for (std::size_t i = 0; i < runLength; ++i)
        out[i] = static_cast<OutputUnit>(text[i]);
}

#endif

} // namespace

std::size_t Utf8LengthOfWide(wchar_t const* text, std::size_t length) noexcept
{
    std::size_t result = 0;
    for (std::size_t i = 0; i < length;)
    {
        if (length - i >= runLength && IsAsciiRun(text + i))
        {
            result += runLength;
            i += runLength;
            continue;
        }
        auto const character = DecodeWide(text + i, length - i);
        result += Utf8Length(character.codePoint);
        i += character.consumed;
    }
    return result;
}

std::size_t WideLengthOfUtf8(char const* text, std::size_t length) noexcept
{
    std::size_t result = 0;
    for (std::size_t i = 0; i < length;)
    {
        if (length - i >= runLength && IsAsciiRun(text + i))
        {
            result += runLength;
            i += runLength;
            continue;
        }
        auto const character = DecodeUtf8(text + i, length - i);
        result += character.codePoint > 0xFFFF ? 2 : 1;
        i += character.consumed;
    }
    return result;
}

char* WideToUtf8(wchar_t const* text, std::size_t length, char* out, std::size_t size) noexcept
{
    for (std::size_t i = 0; i < length;)
    {
        if (length - i >= runLength && size >= runLength && IsAsciiRun(text + i))
        {
            CopyAsciiRun(text + i, out);
            out += runLength;
            size -= runLength;
            i += runLength;
            continue;
        }
        auto const character = DecodeWide(text + i, length - i);
        if (Utf8Length(character.codePoint) > size)
            return nullptr;
        auto const written = EncodeUtf8(character.codePoint, out);
        out += written;
        size -= written;
        i += character.consumed;
    }
    return out;
}

wchar_t* Utf8ToWide(char const* text, std::size_t length, wchar_t* out, std::size_t size) noexcept
{
    for (std::size_t i = 0; i < length;)
    {
        if (length - i >= runLength && size >= runLength && IsAsciiRun(text + i))
        {
            CopyAsciiRun(text + i, out);
            out += runLength;
            size -= runLength;
            i += runLength;
            continue;
        }
        auto const character = DecodeUtf8(text + i, length - i);
        if (size < (character.codePoint > 0xFFFF ? 2 : 1))
            return nullptr;
        auto const written = EncodeWide(character.codePoint, out);
        out += written;
        size -= written;
        i += character.consumed;
    }
    return out;
}

} // namespace Brindle::Vok::Platform::Utf::Portable
