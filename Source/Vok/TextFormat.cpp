#include "TextFormat.h"

#include "UninitializedStorage.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace Brindle::Vok::Detail
{
namespace
{

/// CR LF, lone CR and lone LF all become CR LF: one pass gives what replacing CR LF by LF, CR by LF and LF by CR LF
/// one after the other gives.
template <class Char>
std::basic_string<Char> WithWindowsLineEndings(std::basic_string<Char> const& text)
{
    constexpr Char carriageReturn = '\r';
    constexpr Char lineFeed = '\n';
    auto const isLineEnd = [](Char c) { return c == carriageReturn || c == lineFeed; };

    std::basic_string<Char> result;
    result.reserve(text.size() + static_cast<std::size_t>(std::count_if(text.begin(), text.end(), isLineEnd)));
    for (auto position = text.begin(); position != text.end();)
    {
        auto const end = std::find_if(position, text.end(), isLineEnd);
        result.append(position, end);
        if (end == text.end())
            break;
        result.push_back(carriageReturn);
        result.push_back(lineFeed);
        bool const isPair = *end == carriageReturn && end + 1 != text.end() && end[1] == lineFeed;
        position = end + (isPair ? 2 : 1);
    }
    return result;
}

} // namespace

template <class Char>
NormalizedText<Char>::NormalizedText(std::basic_string<Char> const& source, LineEndingPolicy policy) : text(&own)
{
    if (policy == LineEndingPolicy::Unchanged)
        text = &source;
    else if (policy == LineEndingPolicy::Windows)
        own = WithWindowsLineEndings(source);
    // Any other policy drops the text; the file is written all the same.
}

template class NormalizedText<char>;
template class NormalizedText<wchar_t>;

Utf16Units::Utf16Units(std::wstring_view text) : data(text.data()), count(text.size())
{
    if constexpr (sizeof(wchar_t) != sizeof(char16_t))
    {
        own = std::make_unique_for_overwrite<char16_t[]>(count);
        // A wider unit is no code unit of UTF-16 and becomes what it becomes in every other conversion.
        std::transform(text.begin(), text.end(), own.get(),
                       [](wchar_t unit) {
                           return static_cast<std::uint32_t>(unit) > 0xFFFFU ? u'\xFFFD' : static_cast<char16_t>(unit);
                       });
        data = own.get();
    }
}

std::wstring WideTextOf(std::span<unsigned char const> bytes)
{
    static_assert(std::endian::native == std::endian::little, "units are written and read as they lie in memory");
    std::wstring text;
    ResizeUninitialized(text, bytes.size() / sizeof(char16_t));
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        char16_t unit;
        std::memcpy(&unit, bytes.data() + i * sizeof unit, sizeof unit);
        text[i] = static_cast<wchar_t>(unit);
    }
    return text;
}

} // namespace Brindle::Vok::Detail
