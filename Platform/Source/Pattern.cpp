#include "Pattern.h"

#include "Ascii.h"

namespace Brindle::Vok::Platform
{
namespace
{

constexpr wchar_t star = L'*';
// Any characters up to the name's last dot.
constexpr wchar_t starToDot = L'<';
// Any one character but a dot, or nothing in front of a dot and at the end.
constexpr wchar_t oneOrNone = L'>';
// A dot, or nothing at the end.
constexpr wchar_t dotOrEnd = L'"';

bool IsAnyStar(wchar_t unit)
{
    return unit == star || unit == starToDot;
}

} // namespace

Pattern::Pattern(std::wstring_view text) : units(text), fitsAll(text == L"*" || text == L"*.*")
{
    isWild = units.find_first_of(L"*?<>\"") != std::wstring::npos;
    for (std::size_t at = 0; at < units.size(); ++at)
    {
        if (at > 0 && units[at] == L'.' && units[at - 1] == star)
            units[at - 1] = starToDot;
        if (units[at] != L'?' && units[at] != star)
            continue;
        if (at > 0 && units[at - 1] == L'.')
            units[at - 1] = dotOrEnd;
        if (units[at] == L'?')
            units[at] = oneOrNone;
    }
    // The platform takes a dot at the end away before it looks for names.
    if (units.size() >= 2 && units.back() == L'.' && IsAnyStar(units[units.size() - 2]))
        units.pop_back();
}

// Goes along both, and where that fails goes back to the last star, which then takes one character more. One star is
// enough to go back to: what the stars before it took need not change.
bool Pattern::FitsFrom(std::wstring_view pattern, std::wstring_view name) noexcept
{
    constexpr std::size_t none = std::wstring_view::npos;
    std::size_t const lastDot = name.rfind(L'.');
    std::size_t at = 0;
    std::size_t position = 0;
    std::size_t backAt = none;
    std::size_t backPosition = 0;
    for (;;)
    {
        wchar_t const wanted = at < pattern.size() ? pattern[at] : L'\0';
        bool const isEnd = position == name.size();
        if (at == pattern.size() && isEnd)
            return true;
        if (IsAnyStar(wanted))
        {
            backAt = at++;
            backPosition = position;
            continue;
        }
        bool const standsForNothing =
            (wanted == oneOrNone && (isEnd || name[position] == L'.')) || (wanted == dotOrEnd && isEnd);
        if (standsForNothing)
        {
            ++at;
            continue;
        }
        if (!isEnd && at < pattern.size() &&
            (wanted == oneOrNone || UpperCase(wanted == dotOrEnd ? L'.' : wanted) == UpperCase(name[position])))
        {
            ++at;
            ++position;
            continue;
        }
        if (backAt == none || backPosition == name.size())
            return false;
        // A star that ends at the last dot doesn't take that dot.
        if (pattern[backAt] == starToDot && backPosition == lastDot)
            return false;
        at = backAt + 1;
        position = ++backPosition;
    }
}

} // namespace Brindle::Vok::Platform
