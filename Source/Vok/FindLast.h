// The last unit of a kind in a text, a block at a time: the loop of the standard library takes a unit at a time, and
// the branch behind each path's last one is foretold wrongly (the Parse row of the benchmark shows it).
#pragma once

#include <bit>
#include <cstddef>
#include <string_view>

#if defined(__SSE2__) && __SIZEOF_WCHAR_T__ == 4
#define VOK_FINDS_BY_BLOCKS
#include <emmintrin.h>
#endif

namespace Brindle::Vok::Detail
{

#ifdef VOK_FINDS_BY_BLOCKS
/// Finds two kinds of units among eight or sixteen: a bit for each that is one or the other.
class UnitMatcher
{
public:
    UnitMatcher(wchar_t one, wchar_t other) noexcept
        : ones(_mm_set1_epi32(static_cast<int>(one))), others(_mm_set1_epi32(static_cast<int>(other)))
    {
    }

    unsigned Sixteen(wchar_t const* units) const noexcept
    {
        return static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(Words(units), Words(units + 8))));
    }
    unsigned Eight(wchar_t const* units) const noexcept
    {
        return static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(Words(units), _mm_setzero_si128())));
    }

private:
    __m128i Words(wchar_t const* units) const noexcept { return _mm_packs_epi32(Four(units), Four(units + 4)); }
    __m128i Four(wchar_t const* units) const noexcept
    {
        __m128i const loaded = _mm_loadu_si128(reinterpret_cast<__m128i const*>(units));
        return _mm_or_si128(_mm_cmpeq_epi32(loaded, ones), _mm_cmpeq_epi32(loaded, others));
    }

    __m128i ones;
    __m128i others;
};
#endif

/// Where the last unit stands that is one or the other, which may be the same; npos if there is none.
inline std::size_t FindLast(std::wstring_view text, wchar_t one, wchar_t other) noexcept
{
    std::size_t end = text.size();
#ifdef VOK_FINDS_BY_BLOCKS
    UnitMatcher const matcher(one, other);
    for (; end >= 16; end -= 16)
        if (unsigned const found = matcher.Sixteen(text.data() + end - 16); found != 0)
            return end - 16 + static_cast<std::size_t>(std::bit_width(found)) - 1;
    if (end >= 8) // the two looks overlap
    {
        unsigned const found = matcher.Eight(text.data()) | matcher.Eight(text.data() + end - 8) << (end - 8);
        return static_cast<std::size_t>(std::bit_width(found)) - 1;
    }
#endif
    while (end > 0 && text[end - 1] != one && text[end - 1] != other)
        --end;
    return end - 1; // npos for none
}

inline std::size_t FindLast(std::wstring_view text, wchar_t unit) noexcept
{
    return FindLast(text, unit, unit);
}

} // namespace Brindle::Vok::Detail
