#include "Utf.h"
#include "UtfConverters.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>
#include <utility>
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

/// Pieces of text that mean the same whatever stands beside them.
using Pieces = std::vector<std::pair<std::string, std::wstring>>;

std::vector<Pieces> const wellFormed = {
    {{"a", L"a"}, {"\x7F", L"\x7F"}, {"/", L"/"}},
    {{"\xC2\x80", L"\x80"}, {"\xD0\xB0", L"\u0430"}, {"\xDF\xBF", L"\x7FF"}},
    {{"\xE0\xA0\x80", L"\u0800"},
     {"\xED\x9F\xBF", L"\xD7FF"},
     {"\xEE\x80\x80", L"\xE000"},
     {"\xEF\xBF\xBF", L"\xFFFF"}},
    {{"\xF0\x90\x80\x80", L"\xD800\xDC00"},
     {"\xF0\x9F\x98\x80", L"\xD83D\xDE00"},
     {"\xF4\x8F\xBF\xBF", L"\xDBFF\xDFFF"}},
    {{"a", L"a"}, {"b", L"b"}, {"cdefg", L"cdefg"}, {"hijklmnopqrstuvw", L"hijklmnopqrstuvw"}, {"\xC3\xA9", L"\u00E9"}},
    {{"a", L"a"}, {"\xC3\xA9", L"\u00E9"}, {"\xE4\xB8\x80", L"\u4E00"}, {"\xF0\x9F\x98\x80", L"\xD83D\xDE00"}},
};

/// One replacement for each maximal part of a character.
Pieces const illFormedBytes = {
    {"a", L"a"},
    {"\xE4\xB8\x80", L"\u4E00"},
    {"\xFF", L"\xFFFD"},
    {"\x80", L"\xFFFD"},
    {"\xC2z", L"\xFFFDz"},
    {"\xC1\xBF", L"\xFFFD\xFFFD"},
    {"\xC3\xA9\x80", L"\u00E9\xFFFD"},
    {"\xE4\xB8z", L"\xFFFDz"},
    {"\xE0\x9F\xBF", L"\xFFFD\xFFFD\xFFFD"},
    {"\xED\xA0\x80", L"\xFFFD\xFFFD\xFFFD"},
    {"\xF0\x9F\x98z", L"\xFFFDz"},
    {"\xF0\x8F\xBF\xBF", L"\xFFFD\xFFFD\xFFFD\xFFFD"},
    {"\xF4\x90\x80\x80", L"\xFFFD\xFFFD\xFFFD\xFFFD"},
    {"\xF5\x80\x80\x80", L"\xFFFD\xFFFD\xFFFD\xFFFD"},
    {"\xFF\x90\x80\x80", L"\xFFFD\xFFFD\xFFFD\xFFFD"},
};

Pieces const illFormedUnits = {
    {"a", L"a"},
    {"\xF0\x9F\x98\x80", L"\xD83D\xDE00"},
    {"\xEF\xBF\xBDz", L"\xD800z"},
    {"\xEF\xBF\xBDz", L"\xDBFFz"},
    {"\xEF\xBF\xBD", L"\xDC00"},
    {"\xEF\xBF\xBD", L"\xDFFF"},
    {"\xEF\xBF\xBD", L"\x10000"},
    {"\xEF\xBF\xBD", L"\x80000000"},
};

/// Holds what one direction of a converter does with a text against the expectation. Memory is of exactly the size that
/// is needed, for those who watch it.
template <class Unit, class OutputUnit, class Length, class Convert>
void Expect(std::basic_string<Unit> const& text, std::basic_string<OutputUnit> const& expected, Length length,
            Convert convert)
{
    std::vector<Unit> const input(text.begin(), text.end());
    std::size_t const whole = expected.size();
    ASSERT_EQ(length(input.data(), input.size()), whole) << testing::PrintToString(text);
    for (std::size_t const size : {whole / 2, whole - (whole > 0 ? 1 : 0), whole, whole + 1, whole + 40, 4 * whole})
    {
        std::vector<OutputUnit> output(size);
        auto* const end = convert(input.data(), input.size(), output.data(), size);
        ASSERT_EQ(end, size < whole ? nullptr : output.data() + whole) << testing::PrintToString(text);
        ASSERT_TRUE(end == nullptr || std::basic_string_view(output.data(), whole) == expected)
            << testing::PrintToString(text);
    }
}

class UtfTest : public ::testing::TestWithParam<Converter>
{
protected:
    void ExpectWide(std::string const& bytes, std::wstring const& wide) const
    {
        Expect(bytes, wide, GetParam().wideLengthOfUtf8, GetParam().utf8ToWide);
    }
    void ExpectUtf8(std::wstring const& wide, std::string const& bytes) const
    {
        Expect(wide, bytes, GetParam().utf8LengthOfWide, GetParam().wideToUtf8);
    }
    std::pair<std::string, std::wstring> Text(Pieces const& pieces, int count)
    {
        std::pair<std::string, std::wstring> text;
        while (count-- > 0)
        {
            auto const& [bytes, wide] = pieces[random() % pieces.size()];
            text.first += bytes;
            text.second += wide;
        }
        return text;
    }

    std::mt19937 random{20240229};
};

INSTANTIATE_TEST_SUITE_P(, UtfTest, ::testing::ValuesIn(Converters()),
                         [](auto const& info) { return std::string(info.param.name); });

TEST_P(UtfTest, ConvertsTextsOfEveryLengthAndReplacesWhatIsIllFormed)
{
    for (int count = 0; count <= 200; ++count)
    {
        for (Pieces const& pieces : wellFormed)
        {
            auto const [bytes, wide] = Text(pieces, count);
            ExpectWide(bytes, wide);
            ExpectUtf8(wide, bytes);
        }
        for (char const* const tail : {"\xC3", "\xE4\xB8", "\xF0\x9F\x98"})
        {
            auto const [bytes, wide] = Text(illFormedBytes, count);
            ExpectWide(bytes + tail, wide + L'\xFFFD');
        }
        auto const [replaced, units] = Text(illFormedUnits, count);
        ExpectUtf8(units + L'\xD83D', replaced + "\xEF\xBF\xBD");
        // A single fault, at each place of a block.
        auto const length = static_cast<std::size_t>(count);
        std::pair const before(std::string(length, 'a'), std::wstring(length, L'a'));
        std::pair const behind(std::string(100, 'b'), std::wstring(100, L'b'));
        for (auto const& [bytes, wide] : illFormedBytes)
            ExpectWide(before.first + bytes + behind.first, before.second + wide + behind.second);
        for (auto const& [bytes, wide] : illFormedUnits)
            ExpectUtf8(before.second + wide + behind.second, before.first + bytes + behind.first);
    }
}

} // namespace
