#include "Utf.h"
#include "UtfConverters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <string_view>
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

/// Holds what one direction of a converter does with a text against the expectation. Memory is of exactly the size that
/// is needed, for those who watch it.
template <class Unit, class OutputUnit, class Length, class Convert>
bool IsAsExpected(std::basic_string_view<Unit> text, std::basic_string<OutputUnit> const& expected, Length length,
                  Convert convert)
{
    std::vector<Unit> const input(text.begin(), text.end());
    if (length(input.data(), input.size()) != expected.size())
        return false;
    std::size_t const whole = expected.size();
    for (std::size_t const size : {whole / 2, whole - (whole > 0 ? 1 : 0), whole, whole + 1, whole + 40, 4 * whole})
    {
        std::vector<OutputUnit> output(size);
        auto* const end = convert(input.data(), input.size(), output.data(), size);
        bool const isRight =
            size < whole ? end == nullptr
                         : end == output.data() + whole && std::basic_string_view(output.data(), whole) == expected;
        if (!isRight)
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

} // namespace
