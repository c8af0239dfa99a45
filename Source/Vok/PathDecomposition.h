// The pure logic of paths, on views: the pieces that a path's text falls into, and its normal form. Nothing here
// allocates, logs or knows a platform.
#pragma once

#include <Brindle/Vok/Path.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace Brindle::Vok::Detail
{

inline constexpr wchar_t separator = L'\\';

/// A path's text behind its prefix, which falls into pieces when it is asked for them. They are views into it, or into
/// static text.
class PathPieces
{
public:
    PathPieces(std::wstring_view remainder, PathPrefix prefix) noexcept
        : remainder(remainder), isUnc(prefix == PathPrefix::unc || prefix == PathPrefix::extendedLengthUnc),
          root(isUnc ? EndOfShare() : EndOfDrive()), showsRoot(root < remainder.size() && remainder[root] == separator)
    {
    }

    std::wstring_view Remainder() const noexcept { return remainder; }
    std::wstring_view DriveWithColon() const noexcept
    {
        return isUnc ? std::wstring_view() : remainder.substr(0, root);
    }
    std::wstring_view Server() const noexcept
    {
        return isUnc ? remainder.substr(0, remainder.find(separator)) : std::wstring_view();
    }
    std::wstring_view Share() const noexcept
    {
        return isUnc ? remainder.substr(0, root).substr(std::min(Server().size() + 1, root)) : std::wstring_view();
    }
    std::wstring_view Directory() const noexcept
    {
        return remainder.substr(BehindRoot(), EndOfDirectory() - BehindRoot());
    }
    /// Drive, `\` if the path is rooted, which UNC paths always are, and directory.
    std::wstring_view DriveAndDirectory() const noexcept
    {
        if (isUnc && !showsRoot)
            return L"\\";
        std::size_t const begin = isUnc ? root : 0;
        return remainder.substr(begin, EndOfDirectory() - begin);
    }
    std::wstring_view NameWithExtension() const noexcept
    {
        std::size_t const end = EndOfDirectory();
        return remainder.substr(end == BehindRoot() ? end : end + 1);
    }

private:
    static constexpr std::size_t missing = std::wstring_view::npos;

    /// Whatever stands before a colon is a drive.
    std::size_t EndOfDrive() const noexcept { return remainder.size() >= 2 && remainder[1] == L':' ? 2 : 0; }
    std::size_t EndOfShare() const noexcept
    {
        std::size_t const endOfServer = remainder.find(separator);
        if (endOfServer == missing)
            return remainder.size();
        return std::min(remainder.find(separator, endOfServer + 1), remainder.size());
    }
    std::size_t BehindRoot() const noexcept { return showsRoot ? root + 1 : root; }
    /// Where the last separator stands, or behind the root if there is no directory. A separator there stays in the
    /// name. Only text that isn't normalised has one: `C:\\x`.
    std::size_t EndOfDirectory() const noexcept
    {
        std::size_t const last = remainder.rfind(separator);
        return last != missing && last > BehindRoot() ? last : BehindRoot();
    }

    std::wstring_view remainder;
    bool isUnc;
    std::size_t root; ///< behind the drive or the share, where the root's `\` stands if there is one
    bool showsRoot;
};

/// What stands before and from the last dot of a last component on.
inline std::wstring_view WithoutExtension(std::wstring_view name) noexcept
{
    return name.substr(0, name.rfind(L'.'));
}
inline std::wstring_view ExtensionWithDot(std::wstring_view name) noexcept
{
    return name.substr(std::min(name.rfind(L'.'), name.size()));
}

/// The last component of a text that begins with no prefix, if it certainly is that of the normal form too. Empty if
/// only the normal form tells.
std::wstring_view FindPlainName(std::wstring_view text) noexcept;

/// Where the first step of normalisation would find something to do, or the text's length. A place where it then finds
/// nothing to do is given too: the name in `\.bashrc` begins like a component that goes.
std::size_t FindSuspect(std::wstring_view text, std::size_t from = 0) noexcept;

/// Writes the normal form of the text to a place for as many code units, which may be the text's own. Gives its length.
std::size_t NormalizeNonExtendedLengthPath(std::wstring_view text, wchar_t* normal) noexcept;

inline bool IsSeparatorOfAnyKind(wchar_t unit) noexcept
{
    return unit == separator || unit == L'/';
}

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

inline std::wstring_view FindPlainName(std::wstring_view text) noexcept
{
    std::size_t begin = text.size();
    while (begin > 0 && !IsSeparatorOfAnyKind(text[begin - 1]))
        --begin;
    std::wstring_view const name = text.substr(begin);
    if (begin == 0 || begin == text.size() || DotsAt(text, begin) != 0)
        return {};
    // What stands before the separator has to stay, and the separator with it: `..` goes, and so does what it leaves.
    // In `\:a` the separator is the drive's letter.
    bool const staysApart =
        begin == 1 ? text[1] != L':' : text[begin - 2] != L'.' && !IsSeparatorOfAnyKind(text[begin - 2]);
    return staysApart ? name : std::wstring_view();
}

inline bool IsSuspect(wchar_t unit, wchar_t next) noexcept
{
    return unit == L'/' || (unit == separator && (next == L'.' || next == separator || next == L'/'));
}

/// IsSuspect of any of the units from `begin` to `end`, behind which another one stands. No branch: it goes by vectors.
inline bool IsAnySuspect(wchar_t const* begin, wchar_t const* end) noexcept
{
    unsigned suspects = 0;
    for (wchar_t const* unit = begin; unit != end; ++unit)
    {
        unsigned const isSlash = unit[0] == L'/';
        unsigned const isSeparator = unit[0] == separator;
        unsigned const isSeparatorNext = unit[1] == separator;
        unsigned const isDotOrSlashNext = (unit[1] | 1) == L'/';
        suspects |= isSlash | (isSeparator & (isSeparatorNext | isDotOrSlashNext));
    }
    return suspects != 0;
}

inline std::size_t FindSuspect(std::wstring_view text, std::size_t from) noexcept
{
    constexpr std::size_t block = 64;
    if (from >= text.size())
        return text.size();
    wchar_t const* const units = text.data();
    std::size_t const last = text.size() - 1;
    while (from < last)
    {
        std::size_t const end = std::min(from + block, last);
        if (IsAnySuspect(units + from, units + end))
        {
            while (!IsSuspect(units[from], units[from + 1]))
                ++from;
            return from;
        }
        from = end;
    }
    return units[last] == L'/' ? last : text.size();
}

inline bool BeginsWithParent(std::wstring_view text) noexcept
{
    return text.size() >= 2 && text[0] == L'.' && text[1] == L'.';
}

/// `text` ends in the `\` of a `\..\`, or of a `\..` at the path's end. Takes the component before it away, with what
/// that leaves to be the text's new length; or finds that it can't be taken away.
inline bool CollapseParent(std::wstring_view text, bool isAtEnd, std::size_t& length) noexcept
{
    constexpr std::size_t missing = std::wstring_view::npos;
    std::size_t const pattern = text.size() - 1;
    if (pattern == 0)
        return false;
    std::wstring_view const before = text.substr(0, pattern);
    if (std::size_t const anchor = before.rfind(separator); anchor != missing)
    {
        std::wstring_view const component = before.substr(anchor + 1);
        // At the end the search is for `\..` alone, so `..b` counts there as a parent that wasn't resolved.
        if (BeginsWithParent(component) && (isAtEnd || component.size() == 2))
            return false;
        length = anchor + 1;
        return true;
    }
    if (std::size_t const anchor = pattern < 2 ? missing : before.rfind(L':', pattern - 2); anchor != missing)
    {
        length = anchor + 1;
        return true;
    }
    // `..\..` becomes the empty text, although `..\..\` stays: a text of five code units has no protection.
    bool const isDrive = pattern >= 2 && before[1] == L':';
    if (isDrive || (!isAtEnd && before.size() == 2 && BeginsWithParent(before)))
        return false;
    length = 0;
    return true;
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
        bool const hasSeparatorBefore = length > 0 && normal[length - 1] == separator;
        // Of `.` components in a row every second one stays: the search goes on behind the separator that is left.
        tookDotAway = dots == 1 && !tookDotAway;
        bool const isTaken =
            tookDotAway || (dots == 2 && hasSeparatorBefore && CollapseParent({normal, length}, isAtEnd, length));
        if (!isTaken)
        {
            if (isAtEnd)
                return;
            normal[length++] = L'.';
            if (dots == 2)
                normal[length++] = L'.';
            normal[length++] = separator;
        }
        read += dots;
        if (isAtEnd)
            return;
    }
}

inline std::size_t NormalizeNonExtendedLengthPath(std::wstring_view text, wchar_t* normal) noexcept
{
    std::size_t length = 0;
    for (std::size_t read = 0;;)
    {
        std::size_t const suspect = FindSuspect(text, read);
        if (normal + length != text.data() + read)
            std::char_traits<wchar_t>::move(normal + length, text.data() + read, suspect - read);
        length += suspect - read;
        if (suspect == text.size())
            return length;
        normal[length++] = separator;
        read = suspect + 1;
        FoldDots(text, read, normal, length);
    }
}

} // namespace Brindle::Vok::Detail
