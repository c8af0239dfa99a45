// Search patterns by the platform's rules.
//
// `*` stands for any characters and `?` for one. The rules for names with a dot are the platform's: `*.*` fits every
// name; `*.` fits names without a dot; a `?` in front of a dot or at the end may also stand for nothing, and so may a
// dot in front of `?` or `*` at a name's end. A to Z fit a to z.
#pragma once

#include <string>
#include <string_view>

namespace Brindle::Vok::Platform
{

class Pattern
{
public:
    /// May throw std::bad_alloc.
    explicit Pattern(std::wstring_view text);

    /// There is a character in it that stands for others.
    bool IsWild() const noexcept { return isWild; }
    /// Every name there is.
    bool FitsAll() const noexcept { return fitsAll; }
    bool Fits(std::wstring_view name) const noexcept { return fitsAll || FitsFrom(units, name); }

private:
    static bool FitsFrom(std::wstring_view pattern, std::wstring_view name) noexcept;

    std::wstring units; ///< with the platform's own wildcards, as Pattern.cpp tells
    bool isWild = false;
    bool fitsAll = false;
};

} // namespace Brindle::Vok::Platform
