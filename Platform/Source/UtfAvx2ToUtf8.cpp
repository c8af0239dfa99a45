// Wide text is taken in runs of 32 units. As words of 16 bits, each unit becomes its bytes in place, the last one
// first, and a shuffle pushes these together in the right order. Each unit of a surrogate pair has two of the four
// bytes.
#include "UtfAvx2.h"

#ifdef VOK_UTF_AVX2

#include "UtfCharacters.h"

namespace Brindle::Vok::Platform::Utf::Avx2
{

namespace
{

using ToUtf8 = Progress<wchar_t, char>;

constexpr std::size_t partSize = sizeof(Vector) / sizeof(wchar_t);
constexpr std::size_t runSize = 4 * partSize;

// Units in the order of the text. Zeros stand behind the text's end.
struct Run
{
    Vector parts[runSize / partSize];
};

VOK_AVX2_INLINE Run LoadRun(wchar_t const* text)
{
    return {{Load(text), Load(text + partSize), Load(text + 2 * partSize), Load(text + 3 * partSize)}};
}

// The first units of a part, with zeros behind them.
VOK_AVX2_INLINE Vector LoadPadded(wchar_t const* text, std::size_t length)
{
    auto const lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    auto const wanted = _mm256_cmpgt_epi32(_mm256_set1_epi32(static_cast<int>(length)), lanes);
    return _mm256_maskload_epi32(reinterpret_cast<int const*>(text), wanted);
}

VOK_AVX2_INLINE Run LoadRun(wchar_t const* text, std::size_t left)
{
    if (left >= runSize)
        return LoadRun(text);
    Run run;
    for (auto& part : run.parts)
    {
        auto const length = std::min(left, partSize);
        part = length == partSize ? Load(text) : LoadPadded(text, length);
        text += length;
        left -= length;
    }
    return run;
}

VOK_AVX2_INLINE Vector AllBits(Run const& run)
{
    return _mm256_or_si256(_mm256_or_si256(run.parts[0], run.parts[1]), _mm256_or_si256(run.parts[2], run.parts[3]));
}

// Whether no unit has a bit that the limit hasn't; the limit is one less than a power of two.
VOK_AVX2_INLINE bool IsWithin(Vector allBits, unsigned limit)
{
    return _mm256_testz_si256(allBits, Units(~limit)) != 0;
}

// A run as words, in the order of the text.
struct WordRun
{
    Vector first;
    Vector second;
};

VOK_AVX2_INLINE Vector PackWords(Vector first, Vector second)
{
    return _mm256_permute4x64_epi64(_mm256_packus_epi32(first, second), 0xD8);
}

// Units that are too large become U+FFFD.
VOK_AVX2_INLINE WordRun PackWords(Run run, Vector allBits)
{
    if (!IsWithin(allBits, 0xFFFF))
        for (auto& part : run.parts)
        {
            auto const fits = _mm256_cmpeq_epi32(part, _mm256_min_epu32(part, Units(0xFFFF)));
            part = _mm256_blendv_epi8(Units(replacementCharacter), part, fits);
        }
    return {PackWords(run.parts[0], run.parts[1]), PackWords(run.parts[2], run.parts[3])};
}

// The words whose bits in the mask have the value.
VOK_AVX2_INLINE Vector FindWords(Vector words, int mask, int value)
{
    return _mm256_cmpeq_epi16(_mm256_and_si256(words, Words(mask)), Words(value));
}

// One bit for each word: eight of the first vector, eight of the second, and again eight of both.
VOK_AVX2_INLINE std::uint32_t MixedBits(Vector firstWords, Vector secondWords)
{
    return HighBits(_mm256_packs_epi16(firstWords, secondWords));
}

VOK_AVX2_INLINE std::uint32_t FindMixed(WordRun const& words, int mask, int value)
{
    return MixedBits(FindWords(words.first, mask, value), FindWords(words.second, mask, value));
}

// Mixed bits in the order of the text.
VOK_AVX2_INLINE std::uint32_t Sort(std::uint32_t mixed)
{
    return (mixed & 0xFF0000FF) | (mixed & 0xFF00) << 8 | (mixed >> 8 & 0xFF00);
}

// Masks and values of words, for FindWords.
constexpr int beyondAscii = 0xFF80;
constexpr int beyondTwoBytes = 0xF800;
constexpr int surrogateMask = 0xF800;
constexpr int halfSurrogateMask = 0xFC00;
constexpr int highSurrogate = 0xD800;
constexpr int lowSurrogate = 0xDC00;

// Bytes of a run beyond one for each unit; next is the unit behind it.
VOK_AVX2_INLINE std::size_t ExtraBytes(Run const& run, wchar_t next)
{
    auto const allBits = AllBits(run);
    if (IsWithin(allBits, 0x7F))
        return 0;
    auto const words = PackWords(run, allBits);
    std::size_t const extra = Count(~FindMixed(words, beyondAscii, 0)) + Count(~FindMixed(words, beyondTwoBytes, 0));
    if (FindMixed(words, surrogateMask, highSurrogate) == 0)
        return extra;
    // A pair has four bytes, where two units alone would have six.
    auto const highs = Sort(FindMixed(words, halfSurrogateMask, highSurrogate));
    auto const lows = Sort(FindMixed(words, halfSurrogateMask, lowSurrogate));
    std::uint64_t const nextIsLow = IsLowSurrogate(next) ? 1 : 0;
    return extra - 2 * Count(highs & (lows | nextIsLow << runSize) >> 1);
}

// Pushes the bytes of eight words together; the index has a bit for each word with two.
constexpr auto pushWordRows = []
{
    std::array<ShuffleRow, 256> rows{};
    for (unsigned index = 0; index < rows.size(); ++index)
    {
        rows[index].fill(0x80);
        unsigned position = 0;
        for (unsigned byte = 0; byte < sizeof(Half); ++byte)
            if (byte % 2 == 0 || (index >> byte / 2 & 1) != 0)
                rows[index][position++] = static_cast<std::uint8_t>(byte);
    }
    return rows;
}();

// Each word as its one byte or its two bytes.
VOK_AVX2_INLINE Vector EncodeShort(Vector words)
{
    auto const continuation = _mm256_slli_epi16(_mm256_and_si256(words, Words(0x3F)), 8);
    auto const lead = _mm256_or_si256(_mm256_srli_epi16(words, 6), Words(0x80C0));
    return _mm256_blendv_epi8(_mm256_or_si256(continuation, lead), words, FindWords(words, beyondAscii, 0));
}

// Encodes a run of words up to 0x7FF.
template <class Output>
VOK_AVX2_INLINE void EncodeShortRun(WordRun const& words, Output& output)
{
    auto const two = ~FindMixed(words, beyondAscii, 0);
    auto const indexes = std::array{two & 0xFF, two >> 16 & 0xFF, two >> 8 & 0xFF, two >> 24};
    auto const first =
        _mm256_shuffle_epi8(EncodeShort(words.first), LoadRows(pushWordRows[indexes[0]], pushWordRows[indexes[1]]));
    auto const second =
        _mm256_shuffle_epi8(EncodeShort(words.second), LoadRows(pushWordRows[indexes[2]], pushWordRows[indexes[3]]));
    output.Push(_mm256_castsi256_si128(first), 8 + Count(indexes[0]));
    output.Push(_mm256_extracti128_si256(first, 1), 8 + Count(indexes[1]));
    output.Push(_mm256_castsi256_si128(second), 8 + Count(indexes[2]));
    output.Push(_mm256_extracti128_si256(second, 1), 8 + Count(indexes[3]));
}

// Pushes the bytes of four units together. Each has its bytes in four, the last one first; the index has a bit for
// each unit with two or more bytes, and above these one for each with three.
constexpr auto pushUnitRows = []
{
    std::array<ShuffleRow, 256> rows{};
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

// The bytes of sixteen words: a word of the last one and the one before it, and a word of the one before that. Words
// that are used have all bits set in two, and in three.
struct EncodedWords
{
    Vector lower;
    Vector upper;
    Vector two;
    Vector three;
};

VOK_AVX2_INLINE Vector Not(Vector vector)
{
    return _mm256_xor_si256(vector, Bytes(0xFF));
}

// Encodes words that are no surrogates.
VOK_AVX2_INLINE EncodedWords EncodePlain(Vector words)
{
    auto const ascii = FindWords(words, beyondAscii, 0);
    auto const two = FindWords(words, beyondTwoBytes, 0);
    auto const last = _mm256_and_si256(words, Words(0x3F));
    auto const middle = _mm256_and_si256(_mm256_slli_epi16(words, 2), Words(0x3F00));
    auto const marks = _mm256_blendv_epi8(Words(0x8080), Words(0xC080), two);
    auto const lower = _mm256_or_si256(_mm256_or_si256(last, middle), marks);
    auto const upper = _mm256_or_si256(_mm256_srli_epi16(words, 12), Words(0xE0));
    return {_mm256_blendv_epi8(lower, words, ascii), upper, Not(ascii), Not(two)};
}

// Encodes any words, knowing those before and behind each. Each word of a surrogate pair has two of its four bytes.
VOK_AVX2_INLINE EncodedWords EncodeAny(Vector before, Vector words, Vector behind)
{
    auto const highs = FindWords(words, halfSurrogateMask, highSurrogate);
    auto const lows = FindWords(words, halfSurrogateMask, lowSurrogate);
    auto const firsts = _mm256_and_si256(highs, FindWords(behind, halfSurrogateMask, lowSurrogate));
    auto const seconds = _mm256_and_si256(lows, FindWords(before, halfSurrogateMask, highSurrogate));
    auto const pairs = _mm256_or_si256(firsts, seconds);
    auto const lone = _mm256_andnot_si256(pairs, _mm256_or_si256(highs, lows));
    auto encoded = EncodePlain(_mm256_blendv_epi8(words, Words(replacementCharacter), lone));

    // A first word has ten bits, moved up by the 0x10000 that a pair leaves out: three bits and six bits, and two that
    // go into the second word, in the place of two bits of its mark.
    auto const moved = _mm256_add_epi16(words, Words(0x40));
    auto const firstBytes = _mm256_or_si256(_mm256_or_si256(_mm256_and_si256(moved, Words(0x700)), Words(0xF080)),
                                            _mm256_and_si256(_mm256_srli_epi16(moved, 2), Words(0x3F)));
    auto const passedOn = _mm256_or_si256(_mm256_slli_epi16(before, 12), Words(0xCFFF));
    auto const kept = _mm256_blendv_epi8(Bytes(0xFF), passedOn, seconds);
    encoded.lower = _mm256_blendv_epi8(_mm256_and_si256(encoded.lower, kept), firstBytes, firsts);
    encoded.three = _mm256_andnot_si256(pairs, encoded.three);
    return encoded;
}

template <class Output>
VOK_AVX2_INLINE void Push(EncodedWords const& words, Output& output)
{
    // One byte of index for each four words.
    auto const marks = _mm256_shuffle_epi32(_mm256_packs_epi16(words.two, words.three), 0xD8);
    auto const indexes = HighBits(marks);
    auto const index = [=](unsigned group) { return indexes >> (8 * group) & 0xFF; };
    auto const even = _mm256_shuffle_epi8(_mm256_unpacklo_epi16(words.lower, words.upper),
                                          LoadRows(pushUnitRows[index(0)], pushUnitRows[index(2)]));
    auto const odd = _mm256_shuffle_epi8(_mm256_unpackhi_epi16(words.lower, words.upper),
                                         LoadRows(pushUnitRows[index(1)], pushUnitRows[index(3)]));
    output.Push(_mm256_castsi256_si128(even), 4 + Count(index(0)));
    output.Push(_mm256_castsi256_si128(odd), 4 + Count(index(1)));
    output.Push(_mm256_extracti128_si256(even, 1), 4 + Count(index(2)));
    output.Push(_mm256_extracti128_si256(odd, 1), 4 + Count(index(3)));
}

// The word before each of these, the first of them behind the last one of the vector before.
VOK_AVX2_INLINE Vector WordsBefore(Vector previous, Vector words)
{
    return _mm256_alignr_epi8(words, _mm256_permute2x128_si256(previous, words, 0x21), 14);
}

VOK_AVX2_INLINE Vector WordsBehind(Vector words, Vector next)
{
    return _mm256_alignr_epi8(_mm256_permute2x128_si256(words, next, 0x21), words, 2);
}

// Where a run stands in its text.
struct Place
{
    wchar_t const* begin;
    wchar_t const* run;
    wchar_t const* end;

    std::size_t Left() const { return static_cast<std::size_t>(end - run); }
    bool IsSecondHalfEmpty() const { return Left() <= runSize / 2; }

    // The units around the run; zero where the text ends. One that is too large for a word must not look like a
    // surrogate in its lower half.
    int Previous() const { return run == begin ? 0 : ToWord(run[-1]); }
    int Next() const { return Left() <= runSize ? 0 : ToWord(run[runSize]); }
    static int ToWord(wchar_t unit) { return static_cast<std::uint32_t>(unit) > 0xFFFF ? 0 : unit; }
};

template <class Output>
VOK_AVX2_INLINE void EncodeRunOfAny(WordRun const& words, Place const& place, Output& output)
{
    auto const previous = WordsBefore(Words(place.Previous()), words.first);
    auto const next = WordsBehind(words.second, Words(place.Next()));
    Push(EncodeAny(previous, words.first, WordsBehind(words.first, words.second)), output);
    if (place.IsSecondHalfEmpty())
        output.Skip(runSize / 2);
    else
        Push(EncodeAny(WordsBefore(words.first, words.second), words.second, next), output);
}

// Encodes a run that isn't ASCII.
template <class Output>
VOK_AVX2_INLINE void EncodeRun(Run const& run, Vector allBits, Place const& place, Output& output)
{
    auto const words = PackWords(run, allBits);
    if (IsWithin(allBits, 0x7FF))
        EncodeShortRun(words, output);
    else if (FindMixed(words, surrogateMask, highSurrogate) != 0)
        EncodeRunOfAny(words, place, output);
    else
    {
        Push(EncodePlain(words.first), output);
        if (place.IsSecondHalfEmpty())
            output.Skip(runSize / 2);
        else
            Push(EncodePlain(words.second), output);
    }
}

// Narrows sixteen words of ASCII from each.
VOK_AVX2_INLINE Vector NarrowAscii(Vector low, Vector high)
{
    auto const order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    return _mm256_permutevar8x32_epi32(_mm256_packus_epi16(low, high), order);
}

// Units from the text's beginning to where its vectors are aligned, which a long text is worth.
VOK_AVX2_INLINE std::size_t AlignmentStep(wchar_t const* text, std::size_t length)
{
    constexpr std::size_t longText = 8 * runSize;
    auto const misaligned = reinterpret_cast<std::uintptr_t>(text) % sizeof(Vector) / sizeof(wchar_t);
    return length >= longText && misaligned != 0 ? runSize - misaligned : runSize;
}

// Converts the runs of ASCII that come next, as far as there is room.
VOK_AVX2_INLINE void ConvertAsciiRuns(ToUtf8& at)
{
    while (at.Left() >= runSize && at.Room() >= runSize)
    {
        auto const run = LoadRun(at.text);
        // Units too large saturate, and stay beyond ASCII.
        auto const low = _mm256_packs_epi32(run.parts[0], run.parts[1]);
        auto const high = _mm256_packs_epi32(run.parts[2], run.parts[3]);
        if (_mm256_testz_si256(_mm256_or_si256(low, high), Words(beyondAscii)) == 0)
            return;
        Store(at.out, NarrowAscii(low, high));
        auto const step = AlignmentStep(at.text, at.Left());
        at.text += step;
        at.out += step;
    }
}

// How many units at the beginning of a text come in runs of ASCII.
VOK_AVX2_INLINE std::size_t SkipAsciiRuns(wchar_t const* text, std::size_t length)
{
    constexpr std::size_t stride = 4 * runSize;
    if (length < runSize || !IsWithin(AllBits(LoadRun(text)), 0x7F))
        return 0;
    std::size_t i = AlignmentStep(text, length);
    for (; i + stride <= length; i += stride)
    {
        auto all = LoadRun(text + i);
        for (std::size_t k = runSize; k < stride; k += runSize)
        {
            auto const run = LoadRun(text + i + k);
            for (std::size_t part = 0; part < std::size(all.parts); ++part)
                all.parts[part] = _mm256_or_si256(all.parts[part], run.parts[part]);
        }
        if (!IsWithin(AllBits(all), 0x7F))
            break;
    }
    while (i + runSize <= length && IsWithin(AllBits(LoadRun(text + i)), 0x7F))
        i += runSize;
    return i;
}

// Eight units as words, or four of them and four zeros.
VOK_AVX2_INLINE Half LoadWords(wchar_t const* text)
{
    return _mm_packs_epi32(LoadHalf(text), LoadHalf(text + partSize / 2));
}

VOK_AVX2_INLINE bool IsAsciiWords(Half words)
{
    return _mm_testz_si128(words, _mm_set1_epi16(static_cast<short>(beyondAscii))) != 0;
}

// Looks at a text shorter than a run in steps of which the last one overlaps the one before it, and hands each as
// words to take. False when it isn't ASCII; then some steps may have been taken.
template <class Take>
VOK_AVX2_INLINE bool TakeShortAscii(wchar_t const* text, std::size_t length, Take take)
{
    if (length >= partSize)
    {
        for (std::size_t i = 0; i < length; i += partSize)
        {
            auto const place = std::min(i, length - partSize);
            auto const words = LoadWords(text + place);
            if (!IsAsciiWords(words))
                return false;
            take.Words(place, words);
        }
        return true;
    }
    for (std::size_t i = 0; i < length; ++i)
    {
        if (static_cast<char32_t>(text[i]) > 0x7F)
            return false;
        take.Unit(i, text[i]);
    }
    return true;
}

struct TakeNothing
{
    VOK_AVX2_INLINE void Words(std::size_t, Half) const {}
    VOK_AVX2_INLINE void Unit(std::size_t, wchar_t) const {}
};

struct TakeBytes
{
    char* out;

    VOK_AVX2_INLINE void Words(std::size_t place, Half words) const
    {
        _mm_storel_epi64(reinterpret_cast<Half*>(out + place), _mm_packus_epi16(words, words));
    }
    VOK_AVX2_INLINE void Unit(std::size_t place, wchar_t unit) const { out[place] = static_cast<char>(unit); }
};

// Converts what is left when it is ASCII, and shorter than a run. False when it isn't, or when there is no room.
VOK_AVX2_INLINE bool ConvertShortAscii(ToUtf8& at)
{
    auto const length = at.Left();
    if (length >= runSize || length > at.Room() || !TakeShortAscii(at.text, length, TakeBytes{at.out}))
        return false;
    at.text += length;
    at.out += length;
    return true;
}

// Converts runs as long as there is surely room for the next one.
VOK_AVX2_INLINE void ConvertRuns(wchar_t const* begin, ToUtf8& at)
{
    constexpr std::size_t mostBytes = 3 * runSize + sizeof(Half);
    while (at.Left() >= runSize && at.Room() >= mostBytes)
    {
        auto const run = LoadRun(at.text);
        auto const allBits = AllBits(run);
        if (IsWithin(allBits, 0x7F))
        {
            ConvertAsciiRuns(at);
            continue;
        }
        // Each unit has a byte at least, so this text can't fit any more.
        if (at.Room() < at.Left())
            return;
        FreeOutput<char> output{at.out};
        EncodeRun(run, allBits, {begin, at.text, at.end}, output);
        at.out = output.out;
        at.text += runSize;
    }
}

// Converts a run, or all that is left if that is less. False when there is no room.
VOK_AVX2_INLINE bool ConvertLastRun(wchar_t const* begin, ToUtf8& at)
{
    auto const length = std::min(at.Left(), runSize);
    auto const run = LoadRun(at.text, length);
    BoundedOutput<char> output{at.out, at.Room()};
    EncodeRun(run, AllBits(run), {begin, at.text, at.end}, output);
    // Each unit of the padding counts as one byte, behind all others.
    auto const count = output.count - (runSize - length);
    if (count > at.Room())
        return false;
    at.out += count;
    at.text += length;
    return true;
}

VOK_AVX2_APART char* ConvertAny(wchar_t const* begin, wchar_t const* text, wchar_t const* end, char* out, char* outEnd)
{
    ToUtf8 at{text, end, out, outEnd};
    ConvertRuns(begin, at);
    while (at.Left() <= at.Room())
    {
        ConvertAsciiRuns(at);
        if (at.Left() == 0 || ConvertShortAscii(at))
            return at.out;
        if (!ConvertLastRun(begin, at))
            break;
    }
    return nullptr;
}

VOK_AVX2_APART std::size_t ExtraBytesOfAny(wchar_t const* text, std::size_t length)
{
    std::size_t extra = 0;
    for (std::size_t i = 0;; i += runSize)
    {
        i += SkipAsciiRuns(text + i, length - i);
        if (length - i <= runSize)
            return extra + ExtraBytes(LoadRun(text + i, length - i), L'\0');
        extra += ExtraBytes(LoadRun(text + i), text[i + runSize]);
    }
}

} // namespace

VOK_AVX2 std::size_t Utf8LengthOfWide(wchar_t const* text, std::size_t length) noexcept
{
    auto const ascii = SkipAsciiRuns(text, length);
    auto const left = length - ascii;
    if (left < runSize && TakeShortAscii(text + ascii, left, TakeNothing()))
        return length;
    return length + ExtraBytesOfAny(text + ascii, left);
}

VOK_AVX2 char* WideToUtf8(wchar_t const* text, std::size_t length, char* out, std::size_t size) noexcept
{
    ToUtf8 at{text, text + length, out, out + size};
    ConvertAsciiRuns(at);
    return at.Left() == 0 || ConvertShortAscii(at) ? at.out : ConvertAny(text, at.text, at.end, at.out, at.outEnd);
}

} // namespace Brindle::Vok::Platform::Utf::Avx2

#endif
