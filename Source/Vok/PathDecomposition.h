// The pieces that a path's text falls into, as views. Nothing here allocates, logs or knows a platform.
#pragma once

#include <Brindle/Vok/Path.h>

#include "FindLast.h"
#include "PathNormalization.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace Brindle::Vok::Detail
{

inline constexpr bool IsUnc(PathPrefix prefix) noexcept
{
    return prefix == PathPrefix::unc || prefix == PathPrefix::extendedLengthUnc;
}

inline constexpr bool IsExtendedLength(PathPrefix prefix) noexcept
{
    return prefix == PathPrefix::extendedLength || prefix == PathPrefix::extendedLengthUnc;
}

/// A path's text behind its prefix, which falls into pieces when it is asked for them. They are views into it, or into
/// static text.
class PathPieces
{
public:
    PathPieces(std::wstring_view remainder, PathPrefix prefix) noexcept
        : remainder(remainder), isUnc(IsUnc(prefix)),
          endOfServer(isUnc ? std::min(remainder.find(separator), remainder.size()) : 0),
          root(isUnc ? EndOfShare() : EndOfDrive()),
          hasRootSeparator(root < remainder.size() && remainder[root] == separator)
    {
    }

    std::wstring_view DriveWithColon() const noexcept
    {
        return isUnc ? std::wstring_view() : remainder.substr(0, root);
    }
    std::wstring_view Server() const noexcept { return remainder.substr(0, endOfServer); }
    std::wstring_view Share() const noexcept
    {
        return isUnc && endOfServer < root ? remainder.substr(endOfServer + 1, root - endOfServer - 1)
                                           : std::wstring_view();
    }
    std::wstring_view Directory() const noexcept
    {
        return remainder.substr(BehindRoot(), EndOfDirectory() - BehindRoot());
    }
    /// Drive, `\` if the path is rooted, which UNC paths always are, and directory.
    std::wstring_view DriveAndDirectory() const noexcept
    {
        if (isUnc && !hasRootSeparator)
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
    /// Whatever stands before a colon is a drive.
    std::size_t EndOfDrive() const noexcept { return remainder.size() >= 2 && remainder[1] == L':' ? 2 : 0; }
    std::size_t EndOfShare() const noexcept
    {
        return std::min(remainder.find(separator, endOfServer + 1), remainder.size());
    }
    std::size_t BehindRoot() const noexcept { return hasRootSeparator ? root + 1 : root; }
    /// Where the last separator stands, or behind the root if there is no directory. A separator right behind the root
    /// stays in the name; only text that isn't normalised has one: `C:\\x`.
    std::size_t EndOfDirectory() const noexcept
    {
        std::size_t const last = FindLast(remainder, separator);
        return last != missing && last > BehindRoot() ? last : BehindRoot();
    }

    std::wstring_view remainder;
    bool isUnc;
    std::size_t endOfServer;
    std::size_t root; ///< behind the drive or the share, where the root's `\` stands if there is one
    bool hasRootSeparator;
};

/// What stands before the last dot of a last component; all of it if there is no dot.
inline std::wstring_view WithoutExtension(std::wstring_view name) noexcept
{
    return name.substr(0, FindLast(name, L'.'));
}
/// The last dot of a last component and what stands behind it; empty if there is no dot.
inline std::wstring_view ExtensionWithDot(std::wstring_view name) noexcept
{
    return name.substr(std::min(FindLast(name, L'.'), name.size()));
}

} // namespace Brindle::Vok::Detail
