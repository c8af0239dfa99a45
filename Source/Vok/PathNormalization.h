// The normal form of a path's text behind its prefix. Nothing here allocates, logs or knows a platform.
//
// The rules, each applied to the whole text before the next:
//
// 1. Every `/` becomes `\`.
// 2. Separators in a row become one.
// 3. One pass from the left turns `\.\` into `\` and goes on behind it, so of several in a row every second one stays.
// 4. From the left, `\..\` goes together with the component before it, and the search goes on where that began. Where
//    there is no such component, or where it is a `..` itself, both stay.
// 5. A `\..` at the end does the same, once.
//
// Separators and `.` are looked at in the order of the text by all these rules, and a `..` takes away only what stands
// before it and is in its final form already. So one pass that reads on, writes behind itself, and takes back what it
// has written gives the same text. (PathOracle.h of the tests goes rule by rule, and the two are held against each
// other.)
#pragma once

#include "FindLast.h"
#include "Separators.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace Brindle::Vok::Detail
{

inline constexpr std::size_t missing = std::wstring_view::npos;

// Finding out that there is nothing to do

/// Whether rules 1 to 5 may find something to do at a unit and the one behind it. For the name in `\.bashrc` too, which
/// begins like a component that goes.
inline bool MayNeedFolding(wchar_t unit, wchar_t next) noexcept
{
    return unit == L'/' || (unit == separator && (next == L'.' || next == separator || next == L'/'));
}

/// The same for any of the units from `begin` to `end`; *end must be readable. No branch, so that compilers vectorise
/// it.
inline bool MayAnyNeedFolding(wchar_t const* begin, wchar_t const* end) noexcept
{
    unsigned found = 0;
    for (wchar_t const* unit = begin; unit != end; ++unit)
    {
        unsigned const isSlash = unit[0] == L'/';
        unsigned const isSeparator = unit[0] == separator;
        unsigned const isSeparatorNext = unit[1] == separator;
        unsigned const isDotOrSlashNext = (unit[1] | 1) == L'/'; // the two differ in the lowest bit alone
        found |= isSlash | (isSeparator & (isSeparatorNext | isDotOrSlashNext));
    }
    return found != 0;
}

/// The first place at or behind `from` that may need folding, or the text's length.
inline std::size_t FindFirstToFold(std::wstring_view text, std::size_t from = 0) noexcept
{
    constexpr std::size_t block = 64;
    if (from >= text.size())
        return text.size();
    wchar_t const* const units = text.data();
    std::size_t const last = text.size() - 1;
    while (from < last)
    {
        std::size_t const end = std::min(from + block, last);
        if (MayAnyNeedFolding(units + from, units + end))
        {
            while (!MayNeedFolding(units[from], units[from + 1]))
                ++from;
            return from;
        }
        from = end;
    }
    return units[last] == L'/' ? last : text.size();
}

// Folding

/// 1 or 2 where a component `.` or `..` begins, otherwise 0.
inline std::size_t DotsAt(std::wstring_view text, std::size_t position) noexcept
{
    for (std::size_t dots = 0; dots <= 2; ++dots)
    {
        if (position + dots == text.size() || IsSeparatorOfAnyKind(text[position + dots]))
            return dots;
        if (text[position + dots] != L'.')
            break;
    }
    return 0;
}

inline bool BeginsWithParent(std::wstring_view text) noexcept
{
    return text.starts_with(L"..");
}

/// The length that is left of the text in front of a `\..\`, or of a `\..` at the path's end, when that takes the last
/// component away; what is left keeps its own separator. `missing` if there is nothing that can be taken away.
inline std::size_t LengthWithoutLastComponent(std::wstring_view before, bool isAtEnd) noexcept
{
    if (before.empty())
        return missing;
    if (std::size_t const anchor = before.rfind(separator); anchor != missing)
    {
        std::wstring_view const component = before.substr(anchor + 1);
        // At the end the search is for `\..` alone, so `..b` counts there as a parent that wasn't resolved.
        bool const isParent = BeginsWithParent(component) && (isAtEnd || component.size() == 2);
        return isParent ? missing : anchor + 1;
    }
    // Without a separator a colon holds the text too, if something stands between the two.
    std::size_t const colon = before.size() < 2 ? missing : before.rfind(L':', before.size() - 2);
    if (colon != missing)
        return colon + 1;
    bool const isDrive = before.size() == 2 && before[1] == L':';
    // Leading `..\..\` is kept from six code units on. `..\..` has five, so it vanishes, which is required.
    bool const isParent = before == L".." && !isAtEnd;
    return isDrive || isParent ? missing : 0;
}

/// Goes on behind a separator, which was read and written: over more of them and over all `.` and `..`, up to a name
/// or the end.
inline void FoldDots(std::wstring_view text, std::size_t& read, wchar_t* normal, std::size_t& length) noexcept
{
    bool tookDotAway = false;
    for (;;)
    {
        while (read < text.size() && IsSeparatorOfAnyKind(text[read]))
            ++read;
        std::size_t const dots = DotsAt(text, read);
        bool const isAtEnd = read + dots == text.size();
        if (dots == 0 || (dots == 1 && isAtEnd))
            return;
        bool isTaken = false;
        if (dots == 1)
        {
            tookDotAway = !tookDotAway;
            isTaken = tookDotAway;
        }
        else
        {
            tookDotAway = false;
            bool const hasSeparator = length > 0 && normal[length - 1] == separator;
            std::size_t const left = hasSeparator ? LengthWithoutLastComponent({normal, length - 1}, isAtEnd) : missing;
            isTaken = left != missing;
            if (isTaken)
                length = left;
        }
        if (!isTaken)
        {
            if (isAtEnd)
                return;
            std::fill_n(normal + length, dots, L'.');
            length += dots;
            normal[length++] = separator;
        }
        read += dots;
        if (isAtEnd)
            return;
    }
}

/// Writes the normal form of the text to a place for as many code units, which may be the text's own. Gives its length.
inline std::size_t NormalizeNonExtendedLengthPath(std::wstring_view text, wchar_t* normal) noexcept
{
    std::size_t length = 0;
    for (std::size_t read = 0;;)
    {
        std::size_t const toFold = FindFirstToFold(text, read);
        if (normal + length != text.data() + read)
            std::char_traits<wchar_t>::move(normal + length, text.data() + read, toFold - read);
        length += toFold - read;
        if (toFold == text.size())
            return length;
        normal[length++] = separator;
        read = toFold + 1;
        FoldDots(text, read, normal, length);
    }
}

// Names without normalising

/// The last component of a text that begins with no prefix, if it certainly is that of the normal form too; otherwise
/// empty. This spares the walk over the whole text, which the Parse row of the benchmark shows.
inline std::wstring_view FindPlainName(std::wstring_view text) noexcept
{
    std::size_t const begin = FindLast(text, separator, L'/') + 1;
    std::wstring_view const name = text.substr(begin);
    if (begin == 0 || begin == text.size() || DotsAt(text, begin) != 0)
        return {};
    // Certain only if the component before it is a name, because then its separator has to stay. In `\:a` the separator
    // is taken for a drive's letter.
    bool const staysApart =
        begin == 1 ? text[1] != L':' : text[begin - 2] != L'.' && !IsSeparatorOfAnyKind(text[begin - 2]);
    return staysApart ? name : std::wstring_view();
}

} // namespace Brindle::Vok::Detail
