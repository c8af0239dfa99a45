#include "Utf.h"
#include "UtfConverters.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace
{

namespace Utf = Brindle::Vok::Platform::Utf;

struct Converter
{
    char const* name;
    std::size_t (*utf8LengthOfWide)(wchar_t const*, std::size_t) noexcept;
    std::size_t (*wideLengthOfUtf8)(char const*, std::size_t) noexcept;
    char* (*wideToUtf8)(wchar_t const*, std::size_t, char*, std::size_t) noexcept;
    wchar_t* (*utf8ToWide)(char const*, std::size_t, wchar_t*, std::size_t) noexcept;
};

std::vector<Converter> Converters()
{
    std::vector<Converter> converters{{"Portable", Utf::Portable::Utf8LengthOfWide, Utf::Portable::WideLengthOfUtf8,
                                       Utf::Portable::WideToUtf8, Utf::Portable::Utf8ToWide}};
#ifdef VOK_UTF_AVX2
    if (Utf::Avx2::IsSupported())
        converters.push_back({"Avx2", Utf::Avx2::Utf8LengthOfWide, Utf::Avx2::WideLengthOfUtf8, Utf::Avx2::WideToUtf8,
                              Utf::Avx2::Utf8ToWide});
#endif
    return converters;
}

/// The well-formed byte sequences, row by row: the ranges of the first and the second byte, and the length.
struct WellFormedRow
{
    unsigned char first[2];
    unsigned char second[2];
    std::size_t length;
};

constexpr WellFormedRow wellFormedRows[] = {
    {{0x00, 0x7F}, {0x80, 0xBF}, 1}, {{0xC2, 0xDF}, {0x80, 0xBF}, 2}, {{0xE0, 0xE0}, {0xA0, 0xBF}, 3},
    {{0xE1, 0xEC}, {0x80, 0xBF}, 3}, {{0xED, 0xED}, {0x80, 0x9F}, 3}, {{0xEE, 0xEF}, {0x80, 0xBF}, 3},
    {{0xF0, 0xF0}, {0x90, 0xBF}, 4}, {{0xF1, 0xF3}, {0x80, 0xBF}, 4}, {{0xF4, 0xF4}, {0x80, 0x8F}, 4},
};

/// The expected conversion, spelled out byte by byte.
std::wstring ExpectedWide(std::string_view text)
{
    std::wstring result;
    for (std::size_t i = 0; i < text.size();)
    {
        auto const byteAt = [&](std::size_t k) { return static_cast<unsigned char>(text[i + k]); };
        std::size_t matched = 1;
        std::uint32_t codePoint = 0xFFFD;
        for (auto const& row : wellFormedRows)
        {
            if (byteAt(0) < row.first[0] || byteAt(0) > row.first[1])
                continue;
            std::uint32_t bits = row.length == 1 ? byteAt(0) : byteAt(0) & ((0x80U >> row.length) - 1);
            for (; matched < row.length && i + matched < text.size(); ++matched)
            {
                bool const isSecond = matched == 1;
                if (byteAt(matched) < (isSecond ? row.second[0] : 0x80) ||
                    byteAt(matched) > (isSecond ? row.second[1] : 0xBF))
                    break;
                bits = bits * 64 + byteAt(matched) % 64;
            }
            if (matched == row.length)
                codePoint = bits;
        }
        i += matched;
        if (codePoint >= 0x10000)
            result += {static_cast<wchar_t>(0xD800 + (codePoint - 0x10000) / 0x400),
                       static_cast<wchar_t>(0xDC00 + codePoint % 0x400)};
        else
            result += static_cast<wchar_t>(codePoint);
    }
    return result;
}

std::string ExpectedUtf8(std::wstring_view text)
{
    std::u32string characters;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        auto const unit = static_cast<char32_t>(text[i]);
        auto const next = i + 1 < text.size() ? static_cast<char32_t>(text[i + 1]) : 0;
        bool const isPair = unit >= 0xD800 && unit <= 0xDBFF && next >= 0xDC00 && next <= 0xDFFF;
        bool const isAlone = unit <= 0xFFFF && (unit < 0xD800 || unit > 0xDFFF);
        characters += isPair ? 0x10000 + (unit - 0xD800) * 0x400 + (next - 0xDC00) : isAlone ? unit : U'\xFFFD';
        i += isPair ? 1 : 0;
    }
    return std::filesystem::path(characters).string(); // the standard library's own conversion
}

/// Memory between two pages that can't be touched, so that an access outside of it ends the test in any build.
template <class Unit>
class GuardedBuffer
{
public:
    GuardedBuffer()
    {
        auto* const memory = mmap(nullptr, capacity + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        begin = static_cast<char*>(memory) + page;
        if (memory == MAP_FAILED || mprotect(begin, capacity, PROT_READ | PROT_WRITE) != 0)
            throw std::bad_alloc();
    }
    ~GuardedBuffer() { munmap(begin - page, capacity + 2 * page); }
    GuardedBuffer(GuardedBuffer const&) = delete;
    GuardedBuffer& operator=(GuardedBuffer const&) = delete;

    /// Room for this many units, beginning right behind the page before or ending right before the page behind.
    Unit* Place(std::size_t count, bool atEnd = true) const
    {
        return atEnd ? reinterpret_cast<Unit*>(begin + capacity) - count : reinterpret_cast<Unit*>(begin);
    }

private:
    static constexpr std::size_t capacity = std::size_t{1} << 16;
    std::size_t const page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    char* begin;
};

/// Holds all that one direction of a converter does with a text against the expectation.
template <class Unit, class OutputUnit, class Length, class Convert>
bool IsAsExpected(std::basic_string_view<Unit> text, std::basic_string<OutputUnit> const& expected, Length length,
                  Convert convert)
{
    static GuardedBuffer<Unit> const input;
    static GuardedBuffer<OutputUnit> const output;
    for (bool const atEnd : {false, true})
    {
        Unit* const place = input.Place(text.size(), atEnd);
        text.copy(place, text.size());
        if (length(place, text.size()) != expected.size())
            return false;
        for (std::size_t const spare : {std::size_t{0}, std::size_t{1}, std::size_t{40}, 4 * text.size()})
        {
            auto* const out = output.Place(expected.size() + spare);
            auto* const end = convert(place, text.size(), out, expected.size() + spare);
            if (end != out + expected.size() || std::basic_string_view(out, expected.size()) != expected)
                return false;
        }
        for (std::size_t const missing : {std::size_t{1}, expected.size() / 2, expected.size()})
            if (missing > 0 && missing <= expected.size() &&
                convert(place, text.size(), output.Place(expected.size() - missing), expected.size() - missing))
                return false;
    }
    return true;
}

class UtfTest : public ::testing::TestWithParam<Converter>
{
protected:
    static void Expect(std::string_view text, std::wstring const& expected)
    {
        EXPECT_TRUE(IsAsExpected(text, expected, GetParam().wideLengthOfUtf8, GetParam().utf8ToWide))
            << ::testing::PrintToString(text);
    }
    static void Expect(std::wstring_view text, std::string const& expected)
    {
        EXPECT_TRUE(IsAsExpected(text, expected, GetParam().utf8LengthOfWide, GetParam().wideToUtf8))
            << ::testing::PrintToString(text);
    }
};

INSTANTIATE_TEST_SUITE_P(, UtfTest, ::testing::ValuesIn(Converters()),
                         [](auto const& info) { return std::string(info.param.name); });

/// Texts of one kind are these characters and parts of characters at random.
std::vector<std::vector<std::string>> const kindsOfText = {
    {"a", "b", "/"},
    {"\xD0\xB0", "\xD1\x8F"},
    {"\xE4\xB8\x80", "\xED\x9F\xBF", "\xE0\xA0\x80"},
    {"\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBF", "\xF0\x90\x80\x80"},
    {"a", "b", "c", "d", "e", "f", "g", "h", "\xC3\xA9"},
    {"a", "\xC3\xA9", "\xE4\xB8\x80", "\xF0\x9F\x98\x80", "\xE4\xB8", "\x80", "\xFF", "\xF0\x9F"},
    {"\x80", "\xBF", "\xC0", "\xC2", "\xE0", "\xED", "\xEF", "\xF0", "\xF4", "\xF5", "\x9F", "\xA0", "\x90", "a"},
};

TEST_P(UtfTest, ConvertsEveryLengthOfEveryKindOfTextAndAnyUnits)
{
    std::mt19937 random(20240229);
    for (auto const& kind : kindsOfText)
        for (std::size_t length = 0; length <= 200; ++length)
        {
            std::string text;
            while (text.size() < length)
                text += kind[random() % kind.size()];
            text.resize(length);
            auto const wide = ExpectedWide(text);
            Expect(text, wide);
            Expect(wide, ExpectedUtf8(wide));
        }
    std::wstring const units = L"a\x7F\x80\x7FF\x800\xD7FF\xD800\xDBFF\xDC00\xDFFF\xE000\xFFFF\x10000\x80000000";
    for (unsigned round = 0; round < 2000; ++round)
    {
        std::wstring wide(random() % 100, L'\0');
        for (auto& unit : wide)
            unit = units[random() % units.size()];
        Expect(wide, ExpectedUtf8(wide));
    }
}

TEST_P(UtfTest, JudgesEveryPairOfBytesAcrossABlocksEnd)
{
    for (std::size_t const at : {61U, 62U, 63U})
        for (unsigned const tail : {0x41U, 0x80U})
            for (unsigned pair = 0x7F00; pair < 0x10000; ++pair)
            {
                std::string text(70, 'x');
                text[at] = static_cast<char>(pair >> 8);
                text[at + 1] = static_cast<char>(pair);
                text[at + 2] = text[at + 3] = static_cast<char>(tail);
                auto const expected = ExpectedWide(text);
                std::wstring wide(expected.size(), L'\0');
                ASSERT_EQ(GetParam().wideLengthOfUtf8(text.data(), text.size()), expected.size()) << pair;
                ASSERT_TRUE(GetParam().utf8ToWide(text.data(), text.size(), wide.data(), wide.size())) << pair;
                ASSERT_EQ(wide, expected) << pair;
            }
}

TEST_P(UtfTest, BringsEveryCharacterThereAndBack)
{
    std::wstring all;
    for (char32_t codePoint = 0; codePoint <= 0x10FFFF; ++codePoint)
    {
        wchar_t units[2];
        if (Utf::IsCharacter(codePoint))
            all.append(units, Utf::EncodeWide(codePoint, units));
    }
    std::string bytes(GetParam().utf8LengthOfWide(all.data(), all.size()), '\0');
    GetParam().wideToUtf8(all.data(), all.size(), bytes.data(), bytes.size());
    ASSERT_TRUE(bytes == ExpectedUtf8(all));
    std::wstring back(GetParam().wideLengthOfUtf8(bytes.data(), bytes.size()), L'\0');
    GetParam().utf8ToWide(bytes.data(), bytes.size(), back.data(), back.size());
    EXPECT_TRUE(back == all);
}

} // namespace
