// Converts bytes from a code page, which the first one chooses, and back. Counting must agree with writing, into memory
// of exactly that size; a strict conversion must give what a tolerant one gives, or refuse; and a text that a page
// holds comes back.
#include "Input.h"

#include "CodePages.h"
#include "Utf.h"

#include <Brindle/Platform/ErrorCodes.h>

#include <memory>
#include <utility>

using namespace Brindle::Vok::Platform;

namespace
{

/// Of a conversion into an output: its code and what it gives.
template <class Unit, class Convert>
std::pair<DWORD, std::basic_string<Unit>> Converted(Convert convert)
{
    CodePages::Output<Unit> counted(nullptr, 0);
    DWORD const code = convert(counted);
    auto const units = std::make_unique<Unit[]>(counted.Count());
    CodePages::Output<Unit> output(units.get(), counted.Count());
    Require(convert(output) == code && output.Count() == counted.Count(), "Counted and written aren't the same");
    return {code, {units.get(), counted.Count()}};
}

auto Wide(UINT page, std::string_view bytes, bool strict)
{
    return Converted<wchar_t>([=](auto& output)
                              { return CodePages::ToWide(page, bytes.data(), bytes.size(), strict, output); });
}

auto Narrow(UINT page, std::wstring_view text, CodePages::DefaultCharacter& instead)
{
    return Converted<char>([&](auto& output)
                           { return CodePages::FromWide(page, text.data(), text.size(), true, instead, output); });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    constexpr UINT pages[] = {28591, 1251, 1252, 437, 932, 936, 949, 950, 20932, CodePages::gb18030, CodePages::utf7};
    if (size == 0)
        return 0;
    UINT const page = pages[*data % std::size(pages)];
    auto const input = std::make_unique<char[]>(size - 1); // of its exact size, for the sanitizer
    std::copy(data + 1, data + size, input.get());
    std::string_view const bytes(input.get(), size - 1);

    auto const [tolerantCode, text] = Wide(page, bytes, false);
    Require(tolerantCode == ERROR_SUCCESS, "A tolerant conversion fails");
    auto const [code, strictText] = Wide(page, bytes, true);
    Require(code == ERROR_SUCCESS ? strictText == text : code == ERROR_NO_UNICODE_TRANSLATION, "Otherwise when strict");
    Require(page != 28591 || std::wstring(data + 1, data + size) == text, "Latin-1 is its own number");
    if (code != ERROR_SUCCESS || !Utf::IsValidWide(text.data(), text.size()))
        return 0;
    CodePages::DefaultCharacter instead{nullptr};
    auto const [backCode, back] = Narrow(page, text, instead);
    Require(backCode == ERROR_SUCCESS, "A valid text is refused");
    if (!instead.used)
        Require(Wide(page, back, true) == std::pair(DWORD{ERROR_SUCCESS}, text), "Another text comes back");
    return 0;
}
