// What the formats of FormatString.h make of their arguments before fmt gets them. Include FormatString.h, which has
// the formatters too.
#pragma once

#include <Brindle/Vok/Platform.h>

#include <fmt/format.h>
#include <fmt/xchar.h>

#include <concepts>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

namespace Legacy
{
/// A string class from outside this library; its first member is a std::wstring.
class CString;
} // namespace Legacy

namespace Brindle::Vok::Detail
{

using WideStringAtl = ATL::CStringT<wchar_t, ATL::StrTraitATL<wchar_t, ATL::ChTraitsCRT<wchar_t>>>;
using NarrowStringAtl = ATL::CStringT<char, ATL::StrTraitATL<char, ATL::ChTraitsCRT<char>>>;

/// Logs the exception in flight as the failure of this format, and gives the format back. Call it in a handler only.
/// An exception that is not derived from std::exception passes through.
VOK_EXPORT char const* HandleFormatException(char const* format);
VOK_EXPORT wchar_t const* HandleFormatException(wchar_t const* format);

/// What stands for a foreign string in a narrow format (FormatParameter) and in a wide one (FormatParameterW). A
/// pointer lives as long as its string.
VOK_EXPORT std::string FormatParameter(WideStringAtl const& text);
VOK_EXPORT char const* FormatParameter(NarrowStringAtl const& text);
VOK_EXPORT std::string FormatParameter(Legacy::CString const& text);
VOK_EXPORT std::wstring FormatParameterW(NarrowStringAtl const& text);
VOK_EXPORT wchar_t const* FormatParameterW(WideStringAtl const& text);
VOK_EXPORT wchar_t const* FormatParameterW(Legacy::CString const& text);
VOK_EXPORT wchar_t const* GetAtlStringValue(WideStringAtl const& text);
VOK_EXPORT wchar_t const* GetLegacyStringValue(Legacy::CString const& text);

/// The formats behind the templates below, with arguments that have been adapted. A null format counts as a failure.
VOK_EXPORT std::string FormatNarrow(char const* format, fmt::format_args arguments);
VOK_EXPORT std::wstring FormatWide(wchar_t const* format, fmt::wformat_args arguments);
VOK_EXPORT std::string FormatWideAsUtf8(wchar_t const* format, fmt::wformat_args arguments);

/// A wide text as an argument of a narrow format, converted only when it is formatted.
struct WideArgument
{
    std::wstring_view text;
};

/// A narrow text as an argument of a wide format: widened byte by byte, with no UTF-8 decoding.
struct NarrowArgument
{
    std::string_view text;
};

/// Any value with a stream insertion operator.
template <class T>
struct StreamedArgument
{
    T const& value;
};

template <class T, class Char>
concept Streamable = requires(std::basic_ostream<Char>& stream, T const& value)
{
    stream << value;
};

/// An operator found beside the type, or one of the library for C strings; the stream's members, which would print a
/// number or an address, don't count.
template <class T, class Char>
concept HasOwnInsertion = requires(std::basic_ostream<Char>& stream, T const& value)
{
    operator<<(stream, value);
};

/// Whether a value is printed by an operator of that width: an enumeration by its own only.
template <class T, class Char>
concept PrintsItself = HasOwnInsertion<T, Char> ||(!std::is_enum_v<T> && Streamable<T, Char>);

/// A class such as _bstr_t, of which a stream would print the address.
template <class T>
concept ConvertsToWideText =
    std::is_class_v<T> && std::convertible_to<T const&, wchar_t const*> && !HasOwnInsertion<T, char> &&
    !HasOwnInsertion<T, wchar_t>;

template <class Char>
constexpr std::basic_string_view<Char> TextOrNull(Char const* text)
{
    if (text != nullptr)
        return text;
    if constexpr (std::is_same_v<Char, char>)
        return "(null)";
    else
        return L"(null)";
}

/// A text argument in the form that a format over Char takes.
template <class Char>
auto AdaptText(std::string_view text)
{
    if constexpr (std::is_same_v<Char, char>)
        return text;
    else
        return NarrowArgument{text};
}

template <class Char>
auto AdaptText(std::wstring_view text)
{
    if constexpr (std::is_same_v<Char, char>)
        return WideArgument{text};
    else
        return text;
}

/// A descendant of a foreign string without an operator of its own. (Of a type that is only declared nobody can say
/// so.)
template <class T>
concept DerivedString = requires
{
    sizeof(T);
}
&&(std::derived_from<T, WideStringAtl> || std::derived_from<T, NarrowStringAtl> ||
   std::derived_from<T, Legacy::CString>)&&!HasOwnInsertion<T, char> &&
    !HasOwnInsertion<T, wchar_t>;

template <class T>
concept ForeignString = std::same_as<T, WideStringAtl> || std::same_as<T, NarrowStringAtl> ||
    std::same_as<T, Legacy::CString> || DerivedString<T>;

/// A foreign string, which goes through FormatParameter or FormatParameterW when it is formatted, or a class that
/// converts to wide text then.
template <class T>
struct ForeignArgument
{
    T const& value;
};

/// The argument in the form that a format over Char takes. It refers to the caller's object, and never throws: what
/// can fail happens inside the format.
template <class Char, class T>
decltype(auto) Adapt(T const& value)
{
    using Plain = std::decay_t<T const&>;
    if constexpr (ForeignString<T>)
        return ForeignArgument<T>{value};
    else if constexpr (std::is_null_pointer_v<T>)
        return AdaptText<Char>(TextOrNull<char>(nullptr));
    else if constexpr (std::same_as<Plain, char*> || std::same_as<Plain, char const*>)
        return AdaptText<Char>(TextOrNull<char>(value));
    else if constexpr (std::same_as<Plain, wchar_t*> || std::same_as<Plain, wchar_t const*>)
        return AdaptText<Char>(TextOrNull<wchar_t>(value));
    else if constexpr (std::convertible_to<T const&, std::string_view>)
        return AdaptText<Char>(static_cast<std::string_view>(value));
    else if constexpr (std::convertible_to<T const&, std::wstring_view>)
        return AdaptText<Char>(static_cast<std::wstring_view>(value));
    else if constexpr (ConvertsToWideText<T>)
        return ForeignArgument<T>{value};
    else if constexpr (std::is_enum_v<T> && !HasOwnInsertion<T, char> && !HasOwnInsertion<T, wchar_t>)
        return static_cast<std::underlying_type_t<T>>(value);
    else if constexpr (std::is_arithmetic_v<T> || std::is_pointer_v<Plain>)
        return (value);
    else if constexpr (PrintsItself<T, char> || PrintsItself<T, wchar_t>)
        return StreamedArgument<T>{value};
    else
        return (value);
}

template <class... Arguments>
std::string FormatAdapted(char const* format, Arguments const&... arguments)
{
    return FormatNarrow(format, fmt::make_format_args(arguments...));
}

template <class... Arguments>
std::wstring FormatAdapted(wchar_t const* format, Arguments const&... arguments)
{
    return FormatWide(format, fmt::make_wformat_args(arguments...));
}

template <class... Arguments>
std::string FormatAdaptedAsUtf8(wchar_t const* format, Arguments const&... arguments)
{
    return FormatWideAsUtf8(format, fmt::make_wformat_args(arguments...));
}

} // namespace Brindle::Vok::Detail
