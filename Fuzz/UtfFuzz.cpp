// Holds each converter against the character functions, in both directions, with buffers of exactly the size that is
// needed, and of one less.
#include "Input.h"

#include "Utf.h"
#include "UtfConverters.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>

namespace Utf = Brindle::Vok::Platform::Utf;

namespace
{

std::wstring ExpectedWide(std::string const& text)
{
    std::wstring result;
    for (std::size_t i = 0; i < text.size();)
    {
        auto const character = Utf::DecodeUtf8(text.data() + i, text.size() - i);
        wchar_t units[2];
        result.append(units, Utf::EncodeWide(character.codePoint, units));
        i += character.consumed;
    }
    return result;
}

std::string ExpectedUtf8(std::wstring const& text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size();)
    {
        auto const character = Utf::DecodeWide(text.data() + i, text.size() - i);
        char bytes[4];
        result.append(bytes, Utf::EncodeUtf8(character.codePoint, bytes));
        i += character.consumed;
    }
    return result;
}

/// The input stands in memory of its own exact size, as the output does, so that the sanitizer sees every step beyond.
template <class Unit, class OutputUnit>
void Check(std::basic_string<Unit> const& text, std::basic_string<OutputUnit> const& expected,
           std::size_t (*length)(Unit const*, std::size_t) noexcept,
           OutputUnit* (*convert)(Unit const*, std::size_t, OutputUnit*, std::size_t) noexcept)
{
    auto const input = std::make_unique<Unit[]>(text.size());
    std::copy(text.begin(), text.end(), input.get());
    Require(length(input.get(), text.size()) == expected.size());
    auto const output = std::make_unique<OutputUnit[]>(expected.size());
    auto* const end = convert(input.get(), text.size(), output.get(), expected.size());
    Require(end == output.get() + expected.size());
    Require(std::equal(expected.begin(), expected.end(), output.get()));
    if (expected.empty())
        return;
    auto const small = std::make_unique<OutputUnit[]>(expected.size() - 1);
    Require(convert(input.get(), text.size(), small.get(), expected.size() - 1) == nullptr);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    std::string const bytes(reinterpret_cast<char const*>(data), size);
    auto const wide = MakeWide(bytes);
    auto const expectedWide = ExpectedWide(bytes);
    auto const expectedBytes = ExpectedUtf8(wide);
    Check(bytes, expectedWide, Utf::Portable::WideLengthOfUtf8, Utf::Portable::Utf8ToWide);
    Check(wide, expectedBytes, Utf::Portable::Utf8LengthOfWide, Utf::Portable::WideToUtf8);
#ifdef VOK_UTF_AVX2
    if (Utf::Avx2::IsSupported())
    {
        Check(bytes, expectedWide, Utf::Avx2::WideLengthOfUtf8, Utf::Avx2::Utf8ToWide);
        Check(wide, expectedBytes, Utf::Avx2::Utf8LengthOfWide, Utf::Avx2::WideToUtf8);
    }
#endif
    Check(expectedWide, ExpectedUtf8(expectedWide), Utf::Utf8LengthOfWide,
          static_cast<char* (*)(wchar_t const*, std::size_t, char*, std::size_t) noexcept>(Utf::WideToUtf8));
    return 0;
}
