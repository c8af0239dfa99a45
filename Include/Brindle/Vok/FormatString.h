// Formatting that cannot fail towards its caller, and the conversions between the two text forms.
//
//     std::string text = FormatString("{} of {} done, [{}]", 3, 7, L"näme");   // narrow text is UTF-8
//     std::string line = FormatLogMessage(L"code {:X}", code);                 // wide format, UTF-8 result
//
// A format string that is wrong, or that does not fit its arguments, gives the format string itself as the result, and
// a statement at severity error tells why. A result ends at its first NUL. What is not guaranteed: that an exception
// not derived from std::exception (from a stream insertion operator) stays inside, nor what a subscriber throws at that
// statement, nor std::bad_alloc from the UTF-8 of a wide format, or when there is no memory for the format string
// either.
//
// Every function may be called from any thread.
#pragma once

#include <Brindle/Vok/Detail/FormatArguments.h>
#include <Brindle/Vok/Platform.h>

#include <string>
#include <string_view>

namespace Brindle::Vok
{

/// UTF-8 of UTF-16. An ill-formed unit becomes U+FFFD and nothing is reported. A text of 2^31 units or more, or of as
/// many bytes of UTF-8, gives an empty text.
VOK_EXPORT std::string WideToUtf8(std::wstring_view text);
/// The same up to the first NUL. A null pointer gives an empty text.
VOK_EXPORT std::string WideToUtf8(wchar_t const* text);

/// UTF-16 of UTF-8. Each ill-formed part becomes U+FFFD and nothing is reported. A text of 2^31 bytes or more gives an
/// empty text.
VOK_EXPORT std::wstring Utf8ToWide(std::string_view text);
/// The same up to the first NUL. A null pointer gives an empty text.
VOK_EXPORT std::wstring Utf8ToWide(char const* text);

/// The text of a narrow format. An enumeration without a stream insertion operator of its own prints as its number.
/// Arguments may be any integer, floating-point, enumeration or text type of either width, ATL::CStringW,
/// ATL::CStringA, Legacy::CString, and whatever fmt or a stream insertion operator can print; a null text pointer
/// prints as (null). On failure the format itself; for a null format an empty text.
template <class... Arguments>
std::string FormatString(char const* format, Arguments const&... arguments)
{
    return Detail::FormatAdapted(format, Detail::Adapt<char>(arguments)...);
}

/// The same for a wide format. Narrow text is widened byte by byte there, so that only ASCII comes out as it was; but
/// an ATL::CStringA is taken for UTF-8.
template <class... Arguments>
std::wstring FormatStringW(wchar_t const* format, Arguments const&... arguments)
{
    return Detail::FormatAdapted(format, Detail::Adapt<wchar_t>(arguments)...);
}

/// The text of a wide format in UTF-8, the form of all log and error texts. Where a subscriber of the log throws a
/// std::system_error at the statement of a failure, the result is "Failed to format log message".
template <class... Arguments>
std::string FormatLogMessage(wchar_t const* format, Arguments const&... arguments)
{
    return Detail::FormatAdaptedAsUtf8(format, Detail::Adapt<wchar_t>(arguments)...);
}

} // namespace Brindle::Vok

#include <Brindle/Vok/Detail/Formatters.h>
