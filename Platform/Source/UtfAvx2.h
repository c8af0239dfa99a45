// What both directions of the AVX2 converter share. Functions of it are compiled for that machine whatever the
// compiler's target is, so only code that is can call them.
#pragma once

#include "UtfConverters.h"

#ifdef VOK_UTF_AVX2

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <immintrin.h>

#define VOK_AVX2 __attribute__((target("avx2,bmi,popcnt")))
#define VOK_AVX2_INLINE __attribute__((target("avx2,bmi,popcnt"), always_inline)) inline
/// For what a text of ASCII never needs, so that such a text does not pay for its registers.
#define VOK_AVX2_APART __attribute__((target("avx2,bmi,popcnt"), noinline))

namespace Brindle::Vok::Platform::Utf::Avx2
{

using Vector = __m256i;
using Half = __m128i;

VOK_AVX2_INLINE Vector Load(void const* memory)
{
    return _mm256_loadu_si256(static_cast<Vector const*>(memory));
}

VOK_AVX2_INLINE void Store(void* memory, Vector vector)
{
    _mm256_storeu_si256(static_cast<Vector*>(memory), vector);
}

VOK_AVX2_INLINE Half LoadHalf(void const* memory)
{
    return _mm_loadu_si128(static_cast<Half const*>(memory));
}

VOK_AVX2_INLINE void StoreHalf(void* memory, Half half)
{
    _mm_storeu_si128(static_cast<Half*>(memory), half);
}

VOK_AVX2_INLINE Vector Bytes(int value)
{
    return _mm256_set1_epi8(static_cast<char>(value));
}

VOK_AVX2_INLINE Vector Words(int value)
{
    return _mm256_set1_epi16(static_cast<short>(value));
}

VOK_AVX2_INLINE Vector Units(unsigned value)
{
    return _mm256_set1_epi32(static_cast<int>(value));
}

VOK_AVX2_INLINE bool IsAnyBitSet(Vector vector)
{
    return _mm256_testz_si256(vector, vector) == 0;
}

VOK_AVX2_INLINE std::uint32_t HighBits(Vector bytes)
{
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(bytes));
}

VOK_AVX2_INLINE unsigned Count(std::uint64_t bits)
{
    return static_cast<unsigned>(_mm_popcnt_u64(bits));
}

using ShuffleRow = std::array<std::uint8_t, sizeof(Half)>;

/// One row for each half of a vector.
VOK_AVX2_INLINE Vector LoadRows(ShuffleRow const& low, ShuffleRow const& high)
{
    return _mm256_inserti128_si256(_mm256_castsi128_si256(LoadHalf(low.data())), LoadHalf(high.data()), 1);
}

/// Where a conversion stands.
template <class Unit, class OutputUnit>
struct Progress
{
    Unit const* text;
    Unit const* end;
    OutputUnit* out;
    OutputUnit* outEnd;

    std::size_t Left() const { return static_cast<std::size_t>(end - text); }
    std::size_t Room() const { return static_cast<std::size_t>(outEnd - out); }
};

/// Stores the lowest bits of a vector, fewer than it has.
VOK_AVX2_INLINE void StorePart(Half half, std::size_t length, char* out)
{
    if ((length & 8) != 0)
    {
        _mm_storel_epi64(reinterpret_cast<Half*>(out), half);
        half = _mm_srli_si128(half, 8);
        out += 8;
    }
    auto rest = static_cast<std::uint64_t>(_mm_cvtsi128_si64(half));
    for (std::size_t size = 4; size > 0; size /= 2)
    {
        if ((length & size) == 0)
            continue;
        std::memcpy(out, &rest, size);
        rest >>= 8 * size;
        out += size;
    }
}

VOK_AVX2_INLINE void StorePart(Vector vector, std::size_t length, char* out)
{
    auto half = _mm256_castsi256_si128(vector);
    if ((length & sizeof(Half)) != 0)
    {
        StoreHalf(out, half);
        half = _mm256_extracti128_si256(vector, 1);
        out += sizeof(Half);
    }
    StorePart(half, length % sizeof(Half), out);
}

/// Output with room behind it for a whole vector.
template <class Unit>
struct FreeOutput
{
    Unit* out;

    /// Stores a vector of which the first count units are meant; what follows overwrites the others.
    template <class Packed>
    VOK_AVX2_INLINE void Push(Packed packed, std::size_t count)
    {
        std::memcpy(out, &packed, sizeof(packed));
        Skip(count);
    }
    VOK_AVX2_INLINE void Skip(std::size_t count) { out += count; }
};

/// Output that writes as far as there is room, and counts on.
template <class Unit>
struct BoundedOutput
{
    Unit* out;
    std::size_t size;
    std::size_t count = 0;

    template <class Packed>
    VOK_AVX2_INLINE void Push(Packed packed, std::size_t units)
    {
        if (size >= count + sizeof(packed) / sizeof(Unit))
            std::memcpy(out + count, &packed, sizeof(packed));
        else if (size > count)
            StorePart(packed, (size - count) * sizeof(Unit), reinterpret_cast<char*>(out + count));
        Skip(units);
    }
    VOK_AVX2_INLINE void Skip(std::size_t units) { count += units; }
};

} // namespace Brindle::Vok::Platform::Utf::Avx2

#endif
