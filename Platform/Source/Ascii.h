// Letters A to Z in either case. Everything else, letters beyond ASCII too, equals only itself here.
#pragma once

#include <algorithm>
#include <string_view>

namespace Brindle::Vok::Platform
{

template <class Character>
constexpr Character UpperCase(Character character) noexcept
{
    return character >= 'a' && character <= 'z' ? static_cast<Character>(character - 'a' + 'A') : character;
}

template <class Character>
constexpr Character LowerCase(Character character) noexcept
{
    return character >= 'A' && character <= 'Z' ? static_cast<Character>(character - 'A' + 'a') : character;
}

template <class Character>
constexpr bool IsLetter(Character character) noexcept
{
    return UpperCase(character) >= 'A' && UpperCase(character) <= 'Z';
}

inline bool EqualWithoutCase(std::string_view left, std::string_view right) noexcept
{
    return std::ranges::equal(left, right, {}, UpperCase<char>, UpperCase<char>);
}

inline bool EqualWithoutCase(std::wstring_view left, std::wstring_view right) noexcept
{
    return std::ranges::equal(left, right, {}, UpperCase<wchar_t>, UpperCase<wchar_t>);
}

} // namespace Brindle::Vok::Platform
