// The ATL names that the library uses: the string class in both widths, and the exception.
//
//     ATL::CStringW name(L"report");
//     Show(name.GetString(), name.GetLength());
#pragma once

#include <Brindle/Platform/ErrorCodes.h>
#include <Brindle/Platform/Types.h>

#include <cstddef>
#include <string>
#include <utility>

namespace ATL
{

/// What a character type says about itself.
template <typename T>
struct ChTraitsCRT
{
    using XCHAR = T;
    using PXSTR = T*;
    using PCXSTR = T const*;
};

template <typename BaseType, class StringIterator = ChTraitsCRT<BaseType>>
struct StrTraitATL : StringIterator
{
};

/// A string of its own; narrow ones are UTF-8 here. Lengths count code units without the terminator.
template <typename BaseType, class StringTraits>
class CStringT
{
public:
    using XCHAR = typename StringTraits::XCHAR;
    using PXSTR = typename StringTraits::PXSTR;
    using PCXSTR = typename StringTraits::PCXSTR;

    CStringT() noexcept = default;

    /// A copy of the text; null gives an empty string.
    CStringT(PCXSTR source) : text(source != nullptr ? source : EmptyText()) {}

    /// A copy of the first length units.
    CStringT(PCXSTR source, int length) : text(source, static_cast<std::size_t>(length)) {}

    CStringT(CStringT const&) = default;
    CStringT(CStringT&&) noexcept = default;
    CStringT& operator=(CStringT const&) = default;
    CStringT& operator=(CStringT&&) noexcept = default;
    ~CStringT() = default;

    CStringT& operator=(PCXSTR source)
    {
        text = std::basic_string<BaseType>(source != nullptr ? source : EmptyText());
        return *this;
    }

    /// The string's own characters with a terminator; never null, and valid until the string changes.
    PCXSTR GetString() const noexcept { return text.c_str(); }
    operator PCXSTR() const noexcept { return text.c_str(); }

    int GetLength() const noexcept { return static_cast<int>(text.size()); }
    bool IsEmpty() const noexcept { return text.empty(); }

private:
    static PCXSTR EmptyText() noexcept
    {
        static constexpr XCHAR terminator = 0;
        return &terminator;
    }

    std::basic_string<BaseType> text;
};

using CAtlStringW = CStringT<wchar_t, StrTraitATL<wchar_t>>;
using CAtlStringA = CStringT<char, StrTraitATL<char>>;
using CStringW = CAtlStringW;
using CStringA = CAtlStringA;

/// The exception of ATL's own code. A handler in one module catches what another one threw.
class VOK_PLATFORM_EXPORT CAtlException
{
public:
    CAtlException() noexcept : m_hr(E_FAIL) {}
    CAtlException(HRESULT code) noexcept : m_hr(code) {}

    operator HRESULT() const noexcept { return m_hr; }

    HRESULT m_hr;
};

} // namespace ATL
