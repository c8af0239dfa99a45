// The pure logic of paths, on views: the pieces that a path's text falls into, and its normal form. Nothing here
// allocates, logs or knows a platform.
#pragma once

#include <Brindle/Vok/Path.h>

#include <cstddef>
#include <string_view>

namespace Brindle::Vok::Detail
{

inline constexpr wchar_t separator = L'\\';

/// A path's text behind its prefix, in pieces. The views are into `remainder` or into static text.
struct PathPieces
{
    std::wstring_view remainder;
    PathPrefix prefix = PathPrefix::none;
    bool rooted = false; ///< `\` behind the drive or at the start; always for the UNC prefixes
    std::wstring_view driveWithColon;
    std::wstring_view directory;
    std::wstring_view name;
    std::wstring_view extensionWithDot;
    std::wstring_view server;
    std::wstring_view share;
    std::wstring_view driveAndDirectory; ///< drive, `\` if rooted, directory
    std::wstring_view nameWithExtension;
};

PathPieces Decompose(std::wstring_view remainder, PathPrefix prefix) noexcept;

/// Whether a text is certainly in normal form. The answer is no for some that are too, such as one with `\.bashrc`.
bool IsPlainlyNormal(std::wstring_view text) noexcept;

/// Writes the normal form of the text to a place for as many code units, which may be the text's own. Gives its length.
std::size_t NormalizeNonExtendedLengthPath(std::wstring_view text, wchar_t* normal) noexcept;

/// Cuts off the drive, or server and share. Gives the index behind them, where the root's `\` stands if there is one.
inline std::size_t CutToRoot(PathPieces& pieces) noexcept
{
    constexpr std::size_t missing = std::wstring_view::npos;
    std::wstring_view const text = pieces.remainder;
    if (pieces.prefix == PathPrefix::none || pieces.prefix == PathPrefix::extendedLength)
    {
        // Whatever stands before the colon is a drive.
        std::size_t const root = text.size() >= 2 && text[1] == L':' ? 2 : 0;
        pieces.driveWithColon = text.substr(0, root);
        return root;
    }
    std::size_t const endOfServer = text.find(separator);
    pieces.server = text.substr(0, endOfServer);
    if (endOfServer == missing)
        return text.size();
    std::size_t const endOfShare = text.find(separator, endOfServer + 1);
    if (endOfShare == missing)
    {
        pieces.share = text.substr(endOfServer + 1);
        return text.size();
    }
    pieces.share = text.substr(endOfServer + 1, endOfShare - endOfServer - 1);
    return endOfShare;
}

inline PathPieces Decompose(std::wstring_view remainder, PathPrefix prefix) noexcept
{
    constexpr std::size_t missing = std::wstring_view::npos;
    PathPieces pieces;
    pieces.remainder = remainder;
    pieces.prefix = prefix;
    std::size_t const root = CutToRoot(pieces);
    bool const isUnc = prefix == PathPrefix::unc || prefix == PathPrefix::extendedLengthUnc;
    bool const showsRoot = root < remainder.size() && remainder[root] == separator;
    pieces.rooted = isUnc || showsRoot;

    std::size_t name = showsRoot ? root + 1 : root;
    std::size_t endOfDirectory = name;
    // A last separator at `name` itself stays in the name. Only text that isn't normalised has one there: `C:\\x`.
    if (std::size_t const last = remainder.rfind(separator); last != missing && name < last)
    {
        pieces.directory = remainder.substr(name, last - name);
        endOfDirectory = last;
        name = last + 1;
    }
    std::size_t const begin = isUnc ? root : 0;
    if (isUnc && !showsRoot)
        pieces.driveAndDirectory = L"\\";
    else
        pieces.driveAndDirectory = remainder.substr(begin, endOfDirectory - begin);

    pieces.nameWithExtension = remainder.substr(name);
    std::size_t const dot = pieces.nameWithExtension.rfind(L'.');
    pieces.name = pieces.nameWithExtension.substr(0, dot);
    if (dot != missing)
        pieces.extensionWithDot = pieces.nameWithExtension.substr(dot);
    return pieces;
}

inline bool IsSeparatorOfAnyKind(wchar_t unit) noexcept
{
    return unit == separator || unit == L'/';
}

inline bool IsPlainlyNormal(std::wstring_view text) noexcept
{
    if (text.empty())
        return true;
    // Every step of normalisation begins at one of these. With no exit from the loop it goes by vectors.
    unsigned suspects = text.back() == L'/';
    for (std::size_t i = 0; i + 1 < text.size(); ++i)
    {
        unsigned const isSlash = text[i] == L'/';
        unsigned const isSeparator = text[i] == separator;
        unsigned const isSeparatorBehind = text[i + 1] == separator;
        unsigned const isDotBehind = text[i + 1] == L'.';
        suspects |= isSlash | (isSeparator & (isSeparatorBehind | isDotBehind));
    }
    return suspects == 0;
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
        if (isAtEnd ? component.starts_with(L"..") : component == L"..")
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
    if (isDrive || (!isAtEnd && before == L".."))
        return false;
    length = 0;
    return true;
}

inline std::size_t NormalizeNonExtendedLengthPath(std::wstring_view text, wchar_t* normal) noexcept
{
    std::size_t length = 0;
    std::size_t read = 0;
    bool tookDotAway = false;
    for (;;)
    {
        std::size_t const begin = length;
        bool const isFirst = read == 0;
        for (; read < text.size() && !IsSeparatorOfAnyKind(text[read]); ++read)
            normal[length++] = text[read];
        std::wstring_view const component(normal + begin, length - begin);
        bool const isParent = component == L".." && begin > 0 && normal[begin - 1] == separator;
        if (read == text.size())
        {
            if (isParent)
                CollapseParent({normal, begin}, true, length);
            return length;
        }
        while (read < text.size() && IsSeparatorOfAnyKind(text[read]))
            ++read;

        // Of `.` components in a row every second one stays: the search goes on behind the separator that is left.
        tookDotAway = component == L"." && !isFirst && !tookDotAway;
        if (tookDotAway)
            length = begin;
        else if (!isParent || !CollapseParent({normal, begin}, false, length))
            normal[length++] = separator;
    }
}

} // namespace Brindle::Vok::Detail
