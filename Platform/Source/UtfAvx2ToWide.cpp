// UTF-8 is taken in blocks of 64 bytes that begin with a character: one look tells whether a block is ASCII, another
// whether it is well-formed. In a well-formed block every byte is decoded as if its character ended there, and a
// shuffle then drops those where none does; so the work is the same for any text. A block with a fault goes character
// by character, and the next one begins behind it.
#include "UtfAvx2.h"

#ifdef VOK_UTF_AVX2

#include "UtfCharacters.h"

namespace Brindle::Vok::Platform::Utf::Avx2
{

namespace
{

using ToWide = Progress<char, wchar_t>;

constexpr std::size_t blockSize = 2 * sizeof(Vector);

struct Block
{
    Vector first;
    Vector second;
};

VOK_AVX2_INLINE Block LoadBlock(char const* text)
{
    return {Load(text), Load(text + sizeof(Vector))};
}

VOK_AVX2_INLINE bool IsAscii(Block const& block)
{
    return HighBits(_mm256_or_si256(block.first, block.second)) == 0;
}

// The faults that two neighbouring bytes can show. Each table below tells for one half byte which faults it leaves
// possible; what all three leave is there. Two continuation bytes in a row are right behind a long enough lead.
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

// The bytes that stand Distance before each of these; before the first of all stands what came before.
template <int Distance>
VOK_AVX2_INLINE Vector Before(Vector bytes, Vector before)
{
    return _mm256_alignr_epi8(bytes, _mm256_permute2x128_si256(before, bytes, 0x21), 16 - Distance);
}

// Not zero where a byte is wrong behind those before it.
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

// Whether a block that begins with a character has no fault, apart from a character that goes on behind its end.
VOK_AVX2_INLINE bool IsWellFormed(Block const& block)
{
    auto const faults =
        _mm256_or_si256(FindFaults(block.first, _mm256_setzero_si256()), FindFaults(block.second, block.first));
    return !IsAnyBitSet(faults);
}

// Bytes at the end of a well-formed block that belong to a character that goes on behind it. At most one of the three
// conditions holds; a sum of them keeps what comes next from waiting for a guess.
VOK_AVX2_INLINE unsigned CutOffLength(char const* block)
{
    auto const* const bytes = reinterpret_cast<unsigned char const*>(block);
    unsigned const one = bytes[blockSize - 1] >= 0xC0 ? 1 : 0;
    unsigned const two = bytes[blockSize - 2] >= 0xE0 ? 2 : 0;
    unsigned const three = bytes[blockSize - 3] >= 0xF0 ? 3 : 0;
    return one + two + three;
}

// Has the highest bit of a byte set if it and the next lower ones, count in all, are set there.
template <int Count>
VOK_AVX2_INLINE Vector LeadingOnes(Vector bytes)
{
    auto result = bytes;
    for (int i = 1; i < Count; ++i)
        result = _mm256_and_si256(result, _mm256_slli_epi16(bytes, i));
    return result;
}

VOK_AVX2_INLINE std::uint64_t BlockBits(Vector first, Vector second)
{
    return HighBits(first) | static_cast<std::uint64_t>(HighBits(second)) << 32;
}

// Marks the bytes of a well-formed block at which a code unit ends: all but leads and the byte behind a lead that has
// two or more to come. So a character of four bytes has two marks, one for each surrogate.
VOK_AVX2_INLINE std::uint64_t UnitEnds(Block const& block)
{
    auto const leads = BlockBits(LeadingOnes<2>(block.first), LeadingOnes<2>(block.second));
    auto const longLeads = BlockBits(LeadingOnes<3>(block.first), LeadingOnes<3>(block.second));
    return ~(leads | longLeads << 1);
}

VOK_AVX2_INLINE bool HasFourByteCharacters(Block const& block)
{
    auto const highest = _mm256_max_epu8(block.first, block.second);
    return HighBits(_mm256_subs_epu8(highest, Bytes(0xF0 - 0x80))) != 0;
}

// Keeps those of eight words whose bit is set.
constexpr auto keepRows = []
{
    std::array<ShuffleRow, 256> rows{};
    for (unsigned bits = 0; bits < rows.size(); ++bits)
    {
        rows[bits].fill(0x80);
        unsigned position = 0;
        for (unsigned word = 0; word < 8; ++word)
        {
            if ((bits >> word & 1) == 0)
                continue;
            rows[bits][position++] = static_cast<std::uint8_t>(2 * word);
            rows[bits][position++] = static_cast<std::uint8_t>(2 * word + 1);
        }
    }
    return rows;
}();

template <class Output>
VOK_AVX2_INLINE void PushWords(Half words, std::uint32_t bits, Output& output)
{
    output.Push(_mm256_cvtepu16_epi32(words), Count(bits));
}

// Words of what each byte ends, for half of the positions: data in the lower byte's place, then six bits from the
// byte before, then four bits from the one before that.
VOK_AVX2_INLINE Vector JoinBits(Vector dataAndMiddle, Vector upper)
{
    return _mm256_or_si256(_mm256_maddubs_epi16(dataAndMiddle, Words(0x4001)), _mm256_slli_epi16(upper, 4));
}

// Makes surrogates of the words that belong to characters of four bytes: behind the third byte there the word holds
// its data in the wrong place, behind the fourth all that is missing is the mark.
VOK_AVX2_INLINE Vector MarkSurrogates(Vector words, Vector highs, Vector lows)
{
    auto const high = _mm256_add_epi16(_mm256_srli_epi16(words, 4), Words(0xD7C0));
    return _mm256_or_si256(_mm256_blendv_epi8(words, high, highs), _mm256_and_si256(lows, Words(0xDC00)));
}

// Decodes 32 bytes of a well-formed block into the units that end in them.
template <bool HasFour, class Output>
VOK_AVX2_INLINE void DecodeVector(Vector bytes, Vector before, std::uint32_t ends, Output& output)
{
    auto const zero = _mm256_setzero_si256();
    auto const isContinuation = _mm256_cmpgt_epi8(Bytes(0xC0), bytes);
    auto const data = _mm256_and_si256(bytes, Bytes(0x7F));
    auto middle = _mm256_and_si256(_mm256_and_si256(Before<1>(bytes, before), Bytes(0x3F)), isContinuation);
    auto const secondBefore = Before<2>(bytes, before);
    auto const upper = _mm256_subs_epu8(secondBefore, Bytes(0xE0));
    auto const firstFour = Bytes(0xF0);
    auto const thirdBefore = Before<3>(bytes, before);
    auto const lows = _mm256_cmpeq_epi8(_mm256_max_epu8(thirdBefore, firstFour), thirdBefore);
    if constexpr (HasFour)
        middle = _mm256_andnot_si256(_mm256_and_si256(lows, Bytes(0x30)), middle);
    auto even = JoinBits(_mm256_unpacklo_epi8(data, middle), _mm256_unpacklo_epi8(zero, upper));
    auto odd = JoinBits(_mm256_unpackhi_epi8(data, middle), _mm256_unpackhi_epi8(zero, upper));
    if constexpr (HasFour)
    {
        auto const highs = _mm256_cmpeq_epi8(_mm256_max_epu8(secondBefore, firstFour), secondBefore);
        even = MarkSurrogates(even, _mm256_unpacklo_epi8(highs, highs), _mm256_unpacklo_epi8(lows, lows));
        odd = MarkSurrogates(odd, _mm256_unpackhi_epi8(highs, highs), _mm256_unpackhi_epi8(lows, lows));
    }
    // The even one holds what ends in the bytes from 0 and from 16 on, the odd one from 8 and from 24 on.
    even = _mm256_shuffle_epi8(even, LoadRows(keepRows[ends & 0xFF], keepRows[ends >> 16 & 0xFF]));
    odd = _mm256_shuffle_epi8(odd, LoadRows(keepRows[ends >> 8 & 0xFF], keepRows[ends >> 24]));
    PushWords(_mm256_castsi256_si128(even), ends & 0xFF, output);
    PushWords(_mm256_castsi256_si128(odd), ends >> 8 & 0xFF, output);
    PushWords(_mm256_extracti128_si256(even, 1), ends >> 16 & 0xFF, output);
    PushWords(_mm256_extracti128_si256(odd, 1), ends >> 24, output);
}

// Decodes the units of a well-formed block that end where it is marked.
template <class Output>
VOK_AVX2_INLINE void DecodeBlock(Block const& block, std::uint64_t ends, Output& output)
{
    auto const zero = _mm256_setzero_si256();
    auto const firstEnds = static_cast<std::uint32_t>(ends);
    auto const secondEnds = static_cast<std::uint32_t>(ends >> 32);
    if (HasFourByteCharacters(block))
    {
        DecodeVector<true>(block.first, zero, firstEnds, output);
        DecodeVector<true>(block.second, block.first, secondEnds, output);
        return;
    }
    DecodeVector<false>(block.first, zero, firstEnds, output);
    DecodeVector<false>(block.second, block.first, secondEnds, output);
}

// Decodes a block within the buffer. False when there is no room.
VOK_AVX2_INLINE bool ConvertBlock(Block const& block, std::uint64_t ends, ToWide& at)
{
    auto const count = Count(ends);
    if (at.Room() >= count + sizeof(Vector) / sizeof(wchar_t))
    {
        FreeOutput<wchar_t> output{at.out};
        DecodeBlock(block, ends, output);
    }
    else if (at.Room() >= count)
    {
        BoundedOutput<wchar_t> output{at.out, count};
        DecodeBlock(block, ends, output);
    }
    else
        return false;
    at.out += count;
    return true;
}

// Converts character by character until a block's worth of bytes is behind. False when there is no room.
VOK_AVX2_APART bool ConvertCharacters(ToWide& at)
{
    auto const* const blockEnd = at.text + std::min(at.Left(), blockSize);
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

VOK_AVX2_INLINE bool ConvertIllFormedBlock(ToWide& at)
{
    // Only a copy has an address, so that the caller's own can live in registers.
    auto copy = at;
    bool const hadRoom = ConvertCharacters(copy);
    at = copy;
    return hadRoom;
}

constexpr std::size_t widenStep = sizeof(Vector) / sizeof(wchar_t);

VOK_AVX2_INLINE void WidenBytes(char const* text, wchar_t* out)
{
    Store(out, _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<Half const*>(text))));
}

// Texts from this length on are worth a step that aligns what is written.
constexpr std::size_t longText = 8 * blockSize;

// Converts the blocks of ASCII that come next, as far as there is room.
VOK_AVX2_INLINE void ConvertAsciiBlocks(ToWide& at)
{
    while (at.Left() >= blockSize && at.Room() >= blockSize && IsAscii(LoadBlock(at.text)))
    {
        for (std::size_t i = 0; i < blockSize; i += widenStep)
            WidenBytes(at.text + i, at.out + i);
        auto const misaligned = reinterpret_cast<std::uintptr_t>(at.out) % sizeof(Vector) / sizeof(wchar_t);
        // Of the first block of many only so much counts that what is written after it is aligned.
        auto const step = blockSize - (at.Left() >= longText ? misaligned : 0);
        at.text += step;
        at.out += step;
    }
}

// The end of the blocks of ASCII at the beginning of a text.
VOK_AVX2_INLINE char const* SkipAsciiBlocks(char const* text, char const* end)
{
    constexpr std::size_t stride = 4 * blockSize;
    auto const left = [&] { return static_cast<std::size_t>(end - text); };
    if (left() < blockSize || !IsAscii(LoadBlock(text)))
        return text;
    text += blockSize;
    while (left() >= stride)
    {
        Block all = LoadBlock(text);
        for (std::size_t i = blockSize; i < stride; i += blockSize)
        {
            auto const block = LoadBlock(text + i);
            all = {_mm256_or_si256(all.first, block.first), _mm256_or_si256(all.second, block.second)};
        }
        if (!IsAscii(all))
            break;
        text += stride;
    }
    while (left() >= blockSize && IsAscii(LoadBlock(text)))
        text += blockSize;
    return text;
}

template <class Word>
Word LoadWord(char const* text)
{
    Word word;
    std::memcpy(&word, text, sizeof(word));
    return word;
}

// Whether fewer bytes than a block has are ASCII. The last look overlaps the one before it.
VOK_AVX2_INLINE bool IsShortAscii(char const* text, std::size_t length)
{
    if (length >= sizeof(Vector))
        return HighBits(_mm256_or_si256(Load(text), Load(text + length - sizeof(Vector)))) == 0;
    if (length >= sizeof(Half))
        return _mm_movemask_epi8(_mm_or_si128(LoadHalf(text), LoadHalf(text + length - sizeof(Half)))) == 0;
    std::uint64_t bytes = 0;
    if (length >= sizeof(std::uint64_t))
        bytes = LoadWord<std::uint64_t>(text) | LoadWord<std::uint64_t>(text + length - sizeof(std::uint64_t));
    else if (length >= sizeof(std::uint32_t))
        bytes = LoadWord<std::uint32_t>(text) | LoadWord<std::uint32_t>(text + length - sizeof(std::uint32_t));
    else
        for (std::size_t i = 0; i < length; ++i)
            bytes |= static_cast<unsigned char>(text[i]);
    return (bytes & 0x8080808080808080) == 0;
}

VOK_AVX2_INLINE void WidenShortAscii(char const* text, std::size_t length, wchar_t* out)
{
    if (length < widenStep)
    {
        for (std::size_t i = 0; i < length; ++i)
            out[i] = text[i];
        return;
    }
    for (std::size_t i = 0; i + widenStep < length; i += widenStep)
        WidenBytes(text + i, out + i);
    WidenBytes(text + length - widenStep, out + length - widenStep);
}

// Fewer bytes than a block has, with zeros behind them.
VOK_AVX2_INLINE Block LoadPadded(char const* text, std::size_t length)
{
    alignas(Vector) char padded[blockSize];
    Store(padded, _mm256_setzero_si256());
    Store(padded + sizeof(Vector), _mm256_setzero_si256());
    if (length >= sizeof(Vector))
    {
        Store(padded, Load(text));
        Store(padded + length - sizeof(Vector), Load(text + length - sizeof(Vector)));
    }
    else if (length >= sizeof(Half))
    {
        StoreHalf(padded, LoadHalf(text));
        StoreHalf(padded + length - sizeof(Half), LoadHalf(text + length - sizeof(Half)));
    }
    else
        std::memcpy(padded, text, length);
    return LoadBlock(padded);
}

// Marks the bytes of a block that are text and not padding; there is at least one.
VOK_AVX2_INLINE std::uint64_t WithoutPadding(std::size_t length)
{
    return ~std::uint64_t{0} >> (blockSize - length);
}

// Converts what is left when it is less than a block. False when there is no room.
VOK_AVX2_INLINE bool ConvertTail(ToWide& at)
{
    auto const length = at.Left();
    // A character that is cut off by the text's end is a fault in front of the padding.
    auto const block = LoadPadded(at.text, length);
    if (!IsWellFormed(block))
        return ConvertIllFormedBlock(at);
    return ConvertBlock(block, UnitEnds(block) & WithoutPadding(length), at);
}

// Converts what is left when it is ASCII, and shorter than a block. False when it isn't, or when there is no room.
VOK_AVX2_INLINE bool ConvertShortAscii(ToWide& at)
{
    auto const length = at.Left();
    if (length >= blockSize || length > at.Room() || !IsShortAscii(at.text, length))
        return false;
    WidenShortAscii(at.text, length, at.out);
    at.text += length;
    at.out += length;
    return true;
}

VOK_AVX2_APART wchar_t* ConvertAny(char const* text, char const* end, wchar_t* out, wchar_t* outEnd)
{
    ToWide at{text, end, out, outEnd};
    while (at.Left() >= blockSize)
    {
        auto const block = LoadBlock(at.text);
        if (IsAscii(block))
        {
            if (at.Room() < blockSize)
                return nullptr;
            ConvertAsciiBlocks(at);
            continue;
        }
        if (!IsWellFormed(block))
        {
            if (!ConvertIllFormedBlock(at))
                return nullptr;
            continue;
        }
        auto const cutOff = CutOffLength(at.text);
        if (!ConvertBlock(block, UnitEnds(block) << cutOff >> cutOff, at))
            return nullptr;
        at.text += blockSize - cutOff;
    }
    return at.Left() == 0 || ConvertShortAscii(at) || ConvertTail(at) ? at.out : nullptr;
}

VOK_AVX2_APART std::size_t LengthOfAny(char const* text, char const* end)
{
    std::size_t units = 0;
    while (static_cast<std::size_t>(end - text) >= blockSize)
    {
        auto const block = LoadBlock(text);
        if (IsAscii(block))
        {
            auto const* const asciiEnd = SkipAsciiBlocks(text, end);
            units += static_cast<std::size_t>(asciiEnd - text);
            text = asciiEnd;
            continue;
        }
        if (IsWellFormed(block))
        {
            auto const cutOff = CutOffLength(text);
            units += Count(UnitEnds(block) << cutOff);
            text += blockSize - cutOff;
            continue;
        }
        for (auto const* const blockEnd = text + blockSize; text < blockEnd;)
        {
            auto const character = DecodeUtf8(text, static_cast<std::size_t>(end - text));
            units += character.codePoint > 0xFFFF ? 2 : 1;
            text += character.consumed;
        }
    }
    auto const left = static_cast<std::size_t>(end - text);
    if (IsShortAscii(text, left))
        return units + left;
    auto const block = LoadPadded(text, left);
    if (!IsWellFormed(block))
        return units + Portable::WideLengthOfUtf8(text, left);
    return units + Count(UnitEnds(block) & WithoutPadding(left));
}

} // namespace

VOK_AVX2 std::size_t WideLengthOfUtf8(char const* text, std::size_t length) noexcept
{
    auto const* const end = text + length;
    auto const* const asciiEnd = SkipAsciiBlocks(text, end);
    auto const left = static_cast<std::size_t>(end - asciiEnd);
    if (left < blockSize && IsShortAscii(asciiEnd, left))
        return length;
    return static_cast<std::size_t>(asciiEnd - text) + LengthOfAny(asciiEnd, end);
}

VOK_AVX2 wchar_t* Utf8ToWide(char const* text, std::size_t length, wchar_t* out, std::size_t size) noexcept
{
    ToWide at{text, text + length, out, out + size};
    ConvertAsciiBlocks(at);
    return at.Left() == 0 || ConvertShortAscii(at) ? at.out : ConvertAny(at.text, at.end, at.out, at.outEnd);
}

} // namespace Brindle::Vok::Platform::Utf::Avx2

#endif
