// UTF-8 is taken in blocks of 64 bytes that begin with a character: one look tells whether a block is ASCII, another
// whether it is well-formed and where its characters begin. Characters of a well-formed block are then decoded four at
// a time. A block with a fault goes character by character, and the next one begins behind it. Wide text is taken
// eight units at a time, each made into its bytes in place, which a shuffle then pushes together.
#include "UtfConverters.h"

#ifdef VOK_UTF_AVX2

#include "UtfCharacters.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <immintrin.h>

#define VOK_AVX2 __attribute__((target("avx2,bmi,popcnt")))
#define VOK_AVX2_INLINE __attribute__((target("avx2,bmi,popcnt"), always_inline)) inline

namespace Brindle::Vok::Platform::Utf::Avx2
{

namespace
{

using Vector = __m256i;
using Half = __m128i;

constexpr std::size_t BlockSize = 64;
/// A step that decodes the last character of a block may read this far behind the block's last byte.
constexpr std::size_t OverRead = 16;
/// A step that decodes four characters writes four units, also when fewer were left.
constexpr std::size_t OverWrite = 3;

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

VOK_AVX2_INLINE Vector Units(unsigned value)
{
    return _mm256_set1_epi32(static_cast<int>(value));
}

VOK_AVX2_INLINE unsigned Count(std::uint64_t bits)
{
    return static_cast<unsigned>(_mm_popcnt_u64(bits));
}

VOK_AVX2_INLINE unsigned FirstBit(std::uint64_t bits)
{
    return static_cast<unsigned>(_tzcnt_u64(bits));
}

struct Block
{
    Vector first;
    Vector second;
};

VOK_AVX2_INLINE Block LoadBlock(char const* text)
{
    return {Load(text), Load(text + sizeof(Vector))};
}

/// One bit for each byte whose highest bit is set.
VOK_AVX2_INLINE std::uint64_t HighBits(Vector first, Vector second)
{
    auto const low = static_cast<std::uint32_t>(_mm256_movemask_epi8(first));
    auto const high = static_cast<std::uint32_t>(_mm256_movemask_epi8(second));
    return low | static_cast<std::uint64_t>(high) << 32;
}

VOK_AVX2_INLINE bool IsAscii(Block const& block)
{
    return _mm256_movemask_epi8(_mm256_or_si256(block.first, block.second)) == 0;
}

/// The faults that two neighbouring bytes can show. Each table below tells for one half byte which faults it leaves
/// possible; what all three leave is there. Two continuation bytes in a row are right behind a long enough lead.
namespace Fault
{
constexpr int missingContinuation = 0x01; // A lead, then no continuation.
constexpr int strayContinuation = 0x02;   // ASCII, then a continuation.
constexpr int overlongOfTwo = 0x04;       // C0 or C1.
constexpr int overlongOfThree = 0x08;     // E0, then less than A0.
constexpr int surrogate = 0x10;           // ED, then A0 or more.
constexpr int overlongOfFour = 0x20;      // F0, then less than 90; also F5 to FF, then 80 to 8F.
constexpr int tooLarge = 0x40;            // F4, then 90 or more; also F5 to FF, then 90 or more.
constexpr int twoContinuations = 0x80;
constexpr int ofAnySecond = missingContinuation | strayContinuation | twoContinuations;
} // namespace Fault

using HalfByteTable = std::array<std::uint8_t, 16>;

constexpr HalfByteTable MakeLeadHighTable()
{
    HalfByteTable table{};
    for (unsigned high = 0; high < 16; ++high)
    {
        int faults = Fault::missingContinuation;
        if (high < 0x8)
            faults = Fault::strayContinuation;
        else if (high < 0xC)
            faults = Fault::twoContinuations;
        else if (high == 0xC)
            faults |= Fault::overlongOfTwo;
        else if (high == 0xE)
            faults |= Fault::overlongOfThree | Fault::surrogate;
        else if (high == 0xF)
            faults |= Fault::overlongOfFour | Fault::tooLarge;
        table[high] = static_cast<std::uint8_t>(faults);
    }
    return table;
}

constexpr HalfByteTable MakeLeadLowTable()
{
    HalfByteTable table{};
    for (unsigned low = 0; low < 16; ++low)
    {
        int faults = Fault::ofAnySecond;
        if (low < 0x2)
            faults |= Fault::overlongOfTwo;
        if (low == 0x0)
            faults |= Fault::overlongOfThree | Fault::overlongOfFour;
        if (low == 0xD)
            faults |= Fault::surrogate;
        if (low >= 0x4)
            faults |= Fault::tooLarge;
        if (low >= 0x5)
            faults |= Fault::overlongOfFour;
        table[low] = static_cast<std::uint8_t>(faults);
    }
    return table;
}

constexpr HalfByteTable MakeSecondHighTable()
{
    HalfByteTable table{};
    for (unsigned high = 0; high < 16; ++high)
    {
        int faults = Fault::missingContinuation;
        if (high >= 0x8 && high < 0xC)
        {
            faults = Fault::strayContinuation | Fault::twoContinuations | Fault::overlongOfTwo;
            faults |= high < 0xA ? Fault::overlongOfThree : Fault::surrogate;
            faults |= high < 0x9 ? Fault::overlongOfFour : Fault::tooLarge;
        }
        table[high] = static_cast<std::uint8_t>(faults);
    }
    return table;
}

constexpr HalfByteTable leadHighTable = MakeLeadHighTable();
constexpr HalfByteTable leadLowTable = MakeLeadLowTable();
constexpr HalfByteTable secondHighTable = MakeSecondHighTable();

VOK_AVX2_INLINE Vector LookUp(HalfByteTable const& table, Vector indexes)
{
    return _mm256_shuffle_epi8(_mm256_broadcastsi128_si256(LoadHalf(table.data())), indexes);
}

/// The bytes that stand Distance before each of these; before the first of all stands what came before.
template <int Distance>
VOK_AVX2_INLINE Vector Before(Vector bytes, Vector before)
{
    return _mm256_alignr_epi8(bytes, _mm256_permute2x128_si256(before, bytes, 0x21), 16 - Distance);
}

/// Not zero where a byte is wrong behind those before it.
VOK_AVX2_INLINE Vector FindFaults(Vector bytes, Vector before)
{
    auto const lowHalf = Bytes(0x0F);
    auto const lead = Before<1>(bytes, before);
    auto const leadHigh = _mm256_and_si256(_mm256_srli_epi16(lead, 4), lowHalf);
    auto const secondHigh = _mm256_and_si256(_mm256_srli_epi16(bytes, 4), lowHalf);
    auto const faults = _mm256_and_si256(
        _mm256_and_si256(LookUp(leadHighTable, leadHigh), LookUp(leadLowTable, _mm256_and_si256(lead, lowHalf))),
        LookUp(secondHighTable, secondHigh));
    // The highest bit is set where a lead two or three bytes before asks for a continuation of a continuation.
    auto const third = _mm256_subs_epu8(Before<2>(bytes, before), Bytes(0xE0 - 0x80));
    auto const fourth = _mm256_subs_epu8(Before<3>(bytes, before), Bytes(0xF0 - 0x80));
    auto const asked = _mm256_and_si256(_mm256_or_si256(third, fourth), Bytes(0x80));
    return _mm256_xor_si256(asked, faults);
}

/// Whether a block that begins with a character has no fault, apart from a character that goes on behind its end.
VOK_AVX2_INLINE bool IsWellFormed(Block const& block)
{
    auto const faults =
        _mm256_or_si256(FindFaults(block.first, _mm256_setzero_si256()), FindFaults(block.second, block.first));
    return _mm256_testz_si256(faults, faults) != 0;
}

VOK_AVX2_INLINE std::uint64_t Continuations(Block const& block)
{
    auto const firstLead = Bytes(0xC0);
    return HighBits(_mm256_cmpgt_epi8(firstLead, block.first), _mm256_cmpgt_epi8(firstLead, block.second));
}

/// Leads of characters with four bytes, in a well-formed block.
VOK_AVX2_INLINE std::uint64_t LeadsOfFour(Block const& block)
{
    auto const offset = Bytes(0xF0 - 0x80);
    return HighBits(_mm256_subs_epu8(block.first, offset), _mm256_subs_epu8(block.second, offset));
}

/// Bytes at the end of a block that belong to a character that goes on behind it.
VOK_AVX2_INLINE unsigned CutOffLength(char const* block)
{
    auto const* const bytes = reinterpret_cast<unsigned char const*>(block);
    unsigned length = bytes[BlockSize - 3] >= 0xF0 ? 3 : 0;
    length = bytes[BlockSize - 2] >= 0xE0 ? 2 : length;
    return bytes[BlockSize - 1] >= 0xC0 ? 1 : length;
}

/// Where the characters of a well-formed block begin.
struct Characters
{
    std::uint64_t leads;
    std::uint64_t continuations;
    std::uint64_t leadsOfFour;
    unsigned length; ///< Bytes of whole characters.

    VOK_AVX2_INLINE unsigned UnitCount() const { return Count(leads) + Count(leadsOfFour); }
};

VOK_AVX2_INLINE Characters FindCharacters(Block const& block, unsigned cutOff)
{
    std::uint64_t const whole = ~std::uint64_t{0} >> cutOff;
    auto const continuations = Continuations(block);
    return {~continuations & whole, continuations, LeadsOfFour(block) & whole,
            static_cast<unsigned>(BlockSize) - cutOff};
}

/// Four characters of one to three bytes have 81 patterns. Rows of the shuffle table are numbered by the lengths as
/// digits of base three.
constexpr unsigned PatternCount = 81;

/// Puts the bytes of each of four characters into four bytes, the last one first.
constexpr auto gatherRows = []
{
    std::array<std::array<std::uint8_t, 16>, PatternCount> rows{};
    for (unsigned pattern = 0; pattern < PatternCount; ++pattern)
    {
        unsigned position = 0;
        unsigned digits = pattern;
        for (unsigned character = 0; character < 4; ++character, digits /= 3)
        {
            unsigned const length = digits % 3 + 1;
            for (unsigned i = 0; i < 4; ++i)
                rows[pattern][4 * character + i] =
                    static_cast<std::uint8_t>(i < length ? position + length - 1 - i : 0x80);
            position += length;
        }
    }
    return rows;
}();

/// The row for the marks of continuations in the twelve bytes behind a lead. Marks that no such character gives, as
/// behind the last character that is wanted, lead to any row.
constexpr auto gatherRowOfMarks = []
{
    std::array<std::uint8_t, 4096> result{};
    for (unsigned marks = 0; marks < result.size(); ++marks)
    {
        unsigned pattern = 0;
        unsigned position = 0;
        for (unsigned weight = 1; weight < PatternCount; weight *= 3)
        {
            unsigned length = 1;
            while (length < 3 && (marks >> (position + length - 1) & 1) != 0)
                ++length;
            pattern += (length - 1) * weight;
            position += length;
        }
        result[marks] = static_cast<std::uint8_t>(pattern);
    }
    return result;
}();

/// Decodes count characters of one to three bytes, from the first lead on. Writes up to OverWrite units more.
VOK_AVX2_INLINE wchar_t* DecodeShort(char const* block, std::uint64_t leads, std::uint64_t continuations,
                                     unsigned count, wchar_t* out)
{
    auto const dataBits = _mm_set1_epi32(0x070F3F7F);
    auto const pairWeights = _mm_set1_epi16(0x4001);
    auto const wordWeights = _mm_set1_epi32(0x10000001);
    for (unsigned i = 0; i < count; i += 4)
    {
        auto const position = FirstBit(leads);
        auto const row = gatherRowOfMarks[continuations >> position >> 1 & 0xFFF];
        auto const gathered = _mm_shuffle_epi8(LoadHalf(block + position), LoadHalf(gatherRows[row].data()));
        auto const pairs = _mm_maddubs_epi16(_mm_and_si128(gathered, dataBits), pairWeights);
        StoreHalf(out + i, _mm_madd_epi16(pairs, wordWeights));
        leads = _blsr_u64(_blsr_u64(_blsr_u64(_blsr_u64(leads))));
    }
    return out + count;
}

/// Decodes one character of four bytes.
VOK_AVX2_INLINE wchar_t* DecodeFour(char const* text, wchar_t* out)
{
    std::uint32_t bytes;
    std::memcpy(&bytes, text, sizeof(bytes));
    bytes = __builtin_bswap32(bytes);
    std::uint32_t const codePoint =
        (bytes & 0x3F) | (bytes & 0x3F00) >> 2 | (bytes & 0x3F0000) >> 4 | (bytes & 0x7000000) >> 6;
    out[0] = static_cast<wchar_t>(0xD7C0 + (codePoint >> 10));
    out[1] = static_cast<wchar_t>(0xDC00 + (codePoint & 0x3FF));
    return out + 2;
}

/// Decodes the whole characters of a well-formed block. Writes up to OverWrite units more.
VOK_AVX2_INLINE wchar_t* DecodeBlock(char const* block, Characters const& characters, wchar_t* out)
{
    if (characters.leadsOfFour == 0)
        return DecodeShort(block, characters.leads, characters.continuations, Count(characters.leads), out);
    auto leads = characters.leads;
    for (auto fours = characters.leadsOfFour; fours != 0; fours = _blsr_u64(fours))
    {
        auto const before = _blsmsk_u64(fours) >> 1;
        out = DecodeShort(block, leads, characters.continuations, Count(leads & before), out);
        out = DecodeFour(block + FirstBit(fours), out);
        leads &= ~_blsmsk_u64(fours);
    }
    return DecodeShort(block, leads, characters.continuations, Count(leads), out);
}

VOK_AVX2_INLINE void WidenBytes(char const* text, wchar_t* out)
{
    Store(out, _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<Half const*>(text))));
}

/// Copies fewer bytes than a block has, and zeros behind them.
VOK_AVX2_INLINE void CopyPadded(char const* text, std::size_t length, char* out)
{
    Store(out, _mm256_setzero_si256());
    Store(out + sizeof(Vector), _mm256_setzero_si256());
    std::memcpy(out, text, length);
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

using ToWide = Progress<char, wchar_t>;
using ToUtf8 = Progress<wchar_t, char>;

/// Converts character by character until a block's worth of bytes is behind. False when there is no room.
bool ConvertIllFormedBlock(ToWide& at)
{
    auto const* const blockEnd = at.text + std::min(at.Left(), BlockSize);
    while (at.text < blockEnd)
    {
        auto const character = DecodeUtf8(at.text, at.Left());
        if (at.Room() < (character.codePoint > 0xFFFF ? 2 : 1))
            return false;
        at.out += EncodeWide(character.codePoint, at.out);
        at.text += character.consumed;
    }
    return true;
}

/// Decodes the characters of a block, surely within the buffer. False when there is no room.
VOK_AVX2_INLINE bool ConvertBlock(char const* block, Characters const& characters, std::size_t unitCount, ToWide& at)
{
    if (at.Room() >= unitCount + OverWrite)
    {
        at.out = DecodeBlock(block, characters, at.out);
        return true;
    }
    if (at.Room() < unitCount)
        return false;
    wchar_t units[BlockSize + OverWrite];
    DecodeBlock(block, characters, units);
    std::memcpy(at.out, units, unitCount * sizeof(wchar_t));
    at.out += unitCount;
    return true;
}

/// ASCII that is shorter than a block; its last step overlaps the one before. False when it is not ASCII.
VOK_AVX2_INLINE bool IsShortAscii(char const* text, std::size_t length)
{
    if (length >= sizeof(Vector))
        return _mm256_movemask_epi8(_mm256_or_si256(Load(text), Load(text + length - sizeof(Vector)))) == 0;
    if (length >= sizeof(Half))
        return _mm_movemask_epi8(_mm_or_si128(LoadHalf(text), LoadHalf(text + length - sizeof(Half)))) == 0;
    std::uint64_t bytes = 0;
    if (length >= sizeof(bytes))
    {
        std::uint64_t last;
        std::memcpy(&bytes, text, sizeof(bytes));
        std::memcpy(&last, text + length - sizeof(last), sizeof(last));
        bytes |= last;
    }
    else
        for (std::size_t i = 0; i < length; ++i)
            bytes |= static_cast<unsigned char>(text[i]);
    return (bytes & 0x8080808080808080) == 0;
}

VOK_AVX2_INLINE void WidenShortAscii(char const* text, std::size_t length, wchar_t* out)
{
    constexpr std::size_t step = 8;
    if (length < step)
    {
        for (std::size_t i = 0; i < length; ++i)
            out[i] = text[i];
        return;
    }
    for (std::size_t i = 0; i + step < length; i += step)
        WidenBytes(text + i, out + i);
    WidenBytes(text + length - step, out + length - step);
}

/// The last bytes of a text, fewer than a block and what a step reads behind it. False when there is no room.
VOK_AVX2_INLINE bool ConvertTail(ToWide& at)
{
    while (at.Left() > 0)
    {
        auto const length = std::min(at.Left(), BlockSize);
        if (length < BlockSize && IsShortAscii(at.text, length))
        {
            if (at.Room() < length)
                return false;
            WidenShortAscii(at.text, length, at.out);
            at.text += length;
            at.out += length;
            return true;
        }
        char padded[BlockSize + OverRead];
        CopyPadded(at.text, length, padded);
        StoreHalf(padded + BlockSize, _mm_setzero_si128());
        auto const block = LoadBlock(padded);
        if (!IsWellFormed(block))
        {
            if (!ConvertIllFormedBlock(at))
                return false;
            continue;
        }
        auto characters = FindCharacters(block, CutOffLength(padded));
        auto const padding = BlockSize - length;
        characters.leads &= ~std::uint64_t{0} >> padding;
        if (!ConvertBlock(padded, characters, characters.UnitCount(), at))
            return false;
        at.text += std::min<std::size_t>(characters.length, length);
    }
    return true;
}

} // namespace

bool IsSupported() noexcept
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") && __builtin_cpu_supports("popcnt");
}

VOK_AVX2 std::size_t WideLengthOfUtf8(char const* text, std::size_t length) noexcept
{
    auto const* const end = text + length;
    std::size_t units = 0;
    while (static_cast<std::size_t>(end - text) >= BlockSize)
    {
        auto const block = LoadBlock(text);
        if (IsAscii(block))
        {
            units += BlockSize;
            text += BlockSize;
            continue;
        }
        if (!IsWellFormed(block))
        {
            auto const* const blockEnd = text + BlockSize;
            while (text < blockEnd)
            {
                auto const character = DecodeUtf8(text, static_cast<std::size_t>(end - text));
                units += character.codePoint > 0xFFFF ? 2 : 1;
                text += character.consumed;
            }
            continue;
        }
        auto const characters = FindCharacters(block, CutOffLength(text));
        units += characters.UnitCount();
        text += characters.length;
    }
    auto const left = static_cast<std::size_t>(end - text);
    if (IsShortAscii(text, left))
        return units + left;
    char padded[BlockSize];
    CopyPadded(text, left, padded);
    auto const block = LoadBlock(padded);
    if (!IsWellFormed(block))
        return units + Portable::WideLengthOfUtf8(text, left);
    return units + FindCharacters(block, 0).UnitCount() - (BlockSize - left);
}

VOK_AVX2 wchar_t* Utf8ToWide(char const* text, std::size_t length, wchar_t* out, std::size_t size) noexcept
{
    ToWide at{text, text + length, out, out + size};
    while (at.Left() >= BlockSize + OverRead)
    {
        auto const block = LoadBlock(at.text);
        if (IsAscii(block))
        {
            if (at.Room() < BlockSize)
                return nullptr;
            for (std::size_t i = 0; i < BlockSize; i += 8)
                WidenBytes(at.text + i, at.out + i);
            at.text += BlockSize;
            at.out += BlockSize;
            continue;
        }
        if (!IsWellFormed(block))
        {
            if (!ConvertIllFormedBlock(at))
                return nullptr;
            continue;
        }
        auto const characters = FindCharacters(block, CutOffLength(at.text));
        if (!ConvertBlock(at.text, characters, characters.UnitCount(), at))
            return nullptr;
        at.text += characters.length;
    }
    return ConvertTail(at) ? at.out : nullptr;
}

namespace
{

/// Units that are taken in one step, and those that are looked at for ASCII in one.
constexpr std::size_t StepSize = 8;
constexpr std::size_t RunSize = 32;

/// A step's units; zeros stand behind the text's end.
VOK_AVX2_INLINE Vector LoadUnits(wchar_t const* text, std::size_t left)
{
    if (left >= StepSize)
        return Load(text);
    auto const lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    auto const wanted = _mm256_cmpgt_epi32(_mm256_set1_epi32(static_cast<int>(left)), lanes);
    return _mm256_maskload_epi32(reinterpret_cast<int const*>(text), wanted);
}

VOK_AVX2_INLINE unsigned LaneBits(Vector lanes)
{
    return static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(lanes)));
}

VOK_AVX2_INLINE Vector SurrogateLanes(Vector units)
{
    return _mm256_cmpeq_epi32(_mm256_and_si256(units, Units(0xFFFFF800)), Units(0xD800));
}

VOK_AVX2_INLINE Vector HighSurrogateLanes(Vector units)
{
    return _mm256_cmpeq_epi32(_mm256_and_si256(units, Units(0xFFFFFC00)), Units(0xD800));
}

VOK_AVX2_INLINE Vector LowSurrogateLanes(Vector units)
{
    return _mm256_cmpeq_epi32(_mm256_and_si256(units, Units(0xFFFFFC00)), Units(0xDC00));
}

VOK_AVX2_INLINE bool IsAny(Vector lanes)
{
    return _mm256_testz_si256(lanes, lanes) == 0;
}

struct Run
{
    Vector parts[RunSize / StepSize];
};

VOK_AVX2_INLINE Run LoadRun(wchar_t const* text)
{
    return {{Load(text), Load(text + StepSize), Load(text + 2 * StepSize), Load(text + 3 * StepSize)}};
}

VOK_AVX2_INLINE bool IsAscii(Run const& run)
{
    auto const all =
        _mm256_or_si256(_mm256_or_si256(run.parts[0], run.parts[1]), _mm256_or_si256(run.parts[2], run.parts[3]));
    return _mm256_testz_si256(all, Units(~0x7FU)) != 0;
}

VOK_AVX2_INLINE void NarrowRun(Run const& run, char* out)
{
    auto const low = _mm256_packs_epi32(run.parts[0], run.parts[1]);
    auto const high = _mm256_packs_epi32(run.parts[2], run.parts[3]);
    auto const order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    Store(out, _mm256_permutevar8x32_epi32(_mm256_packus_epi16(low, high), order));
}

/// Bytes that a step's units need beyond one for each.
VOK_AVX2_INLINE std::size_t ExtraBytes(wchar_t const* text, std::size_t left)
{
    auto const units = LoadUnits(text, left);
    // Units too large become U+FFFD, which has as many bytes as U+FFFF.
    auto const capped = _mm256_min_epu32(units, Units(0xFFFF));
    auto const twoBytes = LaneBits(_mm256_cmpgt_epi32(capped, Units(0x7F)));
    auto const threeBytes = LaneBits(_mm256_cmpgt_epi32(capped, Units(0x7FF)));
    std::size_t const extra = Count(twoBytes) + Count(threeBytes);
    if (!IsAny(SurrogateLanes(units)))
        return extra;
    unsigned const nextIsLow = left > StepSize && IsLowSurrogate(text[StepSize]) ? 1 : 0;
    auto const followedByLow = LaneBits(LowSurrogateLanes(units)) >> 1 | nextIsLow << (StepSize - 1);
    // A pair has four bytes, where two units alone would have six.
    return extra - 2 * Count(LaneBits(HighSurrogateLanes(units)) & followedByLow);
}

/// Pushes the bytes of four units together. Each has its bytes in four, the last one first; the index has a bit for
/// each unit with two or more bytes, and above these one for each with three.
constexpr auto pushRows = []
{
    std::array<std::array<std::uint8_t, 16>, 256> rows{};
    for (unsigned index = 0; index < rows.size(); ++index)
    {
        rows[index].fill(0x80);
        unsigned position = 0;
        for (unsigned unit = 0; unit < 4; ++unit)
        {
            unsigned const length = 1 + (index >> unit & 1) + (index >> (unit + 4) & 1);
            for (unsigned i = length; i > 0; --i)
                rows[index][position++] = static_cast<std::uint8_t>(4 * unit + i - 1);
        }
    }
    return rows;
}();

/// The bytes of eight units, each in four bytes with the last one first, and which of them have two and three.
struct Encoded
{
    Vector bytes;
    unsigned twoBytes;
    unsigned threeBytes;
};

/// Encodes units that are neither surrogates nor too large.
VOK_AVX2_INLINE Encoded EncodePlain(Vector units)
{
    auto const two = _mm256_cmpgt_epi32(units, Units(0x7F));
    auto const three = _mm256_cmpgt_epi32(units, Units(0x7FF));
    auto const low = _mm256_and_si256(units, Units(0x3F));
    auto const middle = _mm256_and_si256(_mm256_slli_epi32(units, 2), Units(0x3F00));
    auto const high = _mm256_and_si256(_mm256_slli_epi32(units, 4), Units(0xF0000));
    auto const marks = _mm256_blendv_epi8(Units(0xC080), Units(0xE08080), three);
    auto const bytes = _mm256_or_si256(_mm256_or_si256(low, middle), _mm256_or_si256(high, marks));
    return {_mm256_blendv_epi8(units, bytes, two), LaneBits(two), LaneBits(three)};
}

/// Encodes any units, knowing their neighbours on both sides. Each unit of a surrogate pair has two of its four bytes.
VOK_AVX2_INLINE Encoded EncodeAny(Vector units, wchar_t previous, wchar_t next)
{
    auto const rotateUp = _mm256_setr_epi32(7, 0, 1, 2, 3, 4, 5, 6);
    auto const rotateDown = _mm256_setr_epi32(1, 2, 3, 4, 5, 6, 7, 0);
    auto const before =
        _mm256_blend_epi32(_mm256_permutevar8x32_epi32(units, rotateUp), _mm256_set1_epi32(previous), 0x01);
    auto const after =
        _mm256_blend_epi32(_mm256_permutevar8x32_epi32(units, rotateDown), _mm256_set1_epi32(next), 0x80);
    auto const firsts = _mm256_and_si256(HighSurrogateLanes(units), LowSurrogateLanes(after));
    auto const seconds = _mm256_and_si256(LowSurrogateLanes(units), HighSurrogateLanes(before));
    auto const pairs = _mm256_or_si256(firsts, seconds);
    auto const fits = _mm256_cmpeq_epi32(units, _mm256_min_epu32(units, Units(0xFFFF)));
    auto const plain = _mm256_or_si256(pairs, _mm256_andnot_si256(SurrogateLanes(units), fits));
    auto encoded = EncodePlain(_mm256_blendv_epi8(Units(ReplacementCharacter), units, plain));

    // The ten bits of a first unit, moved up by the 0x10000 that a pair leaves out: three bits and six bits, and two
    // that go into the second unit's upper byte.
    auto const data = _mm256_and_si256(units, Units(0x3FF));
    auto const upper = _mm256_add_epi32(data, Units(0x40));
    auto const firstBytes = _mm256_or_si256(_mm256_or_si256(_mm256_and_si256(upper, Units(0x700)), Units(0xF080)),
                                            _mm256_and_si256(_mm256_srli_epi32(upper, 2), Units(0x3F)));
    auto const passedOn = _mm256_slli_epi32(_mm256_and_si256(before, Units(0x3)), 12);
    auto const secondBytes = _mm256_or_si256(_mm256_or_si256(passedOn, Units(0x8080)),
                                             _mm256_or_si256(_mm256_and_si256(_mm256_slli_epi32(data, 2), Units(0xF00)),
                                                             _mm256_and_si256(data, Units(0x3F))));
    encoded.bytes = _mm256_blendv_epi8(encoded.bytes, firstBytes, firsts);
    encoded.bytes = _mm256_blendv_epi8(encoded.bytes, secondBytes, seconds);
    encoded.threeBytes &= ~LaneBits(pairs);
    return encoded;
}

VOK_AVX2_INLINE Encoded EncodeStep(wchar_t const* text, std::size_t left, wchar_t previous)
{
    auto const units = LoadUnits(text, left);
    auto const fits = _mm256_cmpeq_epi32(units, _mm256_min_epu32(units, Units(0xFFFF)));
    auto const plain = _mm256_andnot_si256(SurrogateLanes(units), fits);
    if (LaneBits(plain) == 0xFF)
        return EncodePlain(units);
    return EncodeAny(units, previous, left > StepSize ? text[StepSize] : L'\0');
}

/// Converts up to eight units. False when there is no room.
VOK_AVX2_INLINE bool ConvertStep(ToUtf8& at, wchar_t const* begin)
{
    auto const left = at.Left();
    auto const encoded = EncodeStep(at.text, left, at.text == begin ? L'\0' : at.text[-1]);
    unsigned const lowIndex = (encoded.twoBytes & 0xF) | (encoded.threeBytes & 0xF) << 4;
    unsigned const highIndex = encoded.twoBytes >> 4 | (encoded.threeBytes & 0xF0);
    auto const rows = _mm256_inserti128_si256(_mm256_castsi128_si256(LoadHalf(pushRows[lowIndex].data())),
                                              LoadHalf(pushRows[highIndex].data()), 1);
    auto const pushed = _mm256_shuffle_epi8(encoded.bytes, rows);
    auto const lowLength = 4 + Count(lowIndex);
    std::size_t length = lowLength + 4 + Count(highIndex);
    length -= left < StepSize ? StepSize - left : 0;
    if (at.Room() >= lowLength + sizeof(Half))
    {
        StoreHalf(at.out, _mm256_castsi256_si128(pushed));
        StoreHalf(at.out + lowLength, _mm256_extracti128_si256(pushed, 1));
    }
    else
    {
        if (at.Room() < length)
            return false;
        char bytes[2 * sizeof(Half)];
        StoreHalf(bytes, _mm256_castsi256_si128(pushed));
        StoreHalf(bytes + lowLength, _mm256_extracti128_si256(pushed, 1));
        std::memcpy(at.out, bytes, length);
    }
    at.out += length;
    at.text += std::min(left, StepSize);
    return true;
}

} // namespace

VOK_AVX2 std::size_t Utf8LengthOfWide(wchar_t const* text, std::size_t length) noexcept
{
    std::size_t bytes = length;
    std::size_t i = 0;
    while (i < length)
    {
        if (length - i >= RunSize && IsAscii(LoadRun(text + i)))
        {
            i += RunSize;
            continue;
        }
        for (std::size_t const stop = i + RunSize; i < stop && i < length; i += StepSize)
            bytes += ExtraBytes(text + i, length - i);
    }
    return bytes;
}

VOK_AVX2 char* WideToUtf8(wchar_t const* text, std::size_t length, char* out, std::size_t size) noexcept
{
    ToUtf8 at{text, text + length, out, out + size};
    while (at.Left() > 0)
    {
        if (at.Left() >= RunSize)
        {
            auto const run = LoadRun(at.text);
            if (IsAscii(run))
            {
                if (at.Room() < RunSize)
                    return nullptr;
                NarrowRun(run, at.out);
                at.text += RunSize;
                at.out += RunSize;
                continue;
            }
        }
        for (unsigned i = 0; i < RunSize / StepSize && at.Left() > 0; ++i)
            if (!ConvertStep(at, text))
                return nullptr;
    }
    return at.out;
}

} // namespace Brindle::Vok::Platform::Utf::Avx2

#endif
