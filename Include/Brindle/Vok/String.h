// Conversions between narrow and wide text that report failure, for data. (WideToUtf8 and Utf8ToWide of FormatString.h
// never fail and serve diagnostics.)
//
//     std::wstring wide = Brindle::Vok::String::StringToWstring(bytes, CP_UTF8);
//
// The code page is a number of the platform; 65001 (CP_UTF8) is UTF-8, 1252 Western European, 932 Japanese, 28591 to
// 28606 the pages of ISO 8859, and so on. What is reported is a page that the platform doesn't know. Input that is
// invalid for the page is not an error: the platform puts a replacement in its place. A text of 2^31 code units or more
// is not provided for. All functions may be called from any thread.
#pragma once

#include <Brindle/Vok/Platform.h>

#include <string>

namespace Brindle::Vok::String
{

/// Wide text of a narrow one. Empty text and a null pointer give an empty result, whatever the page. The string
/// overload converts embedded NULs like any other character, the pointer overload stops at the first one. Throws
/// WindowsError with the platform's code: 87 for an unknown page.
VOK_EXPORT std::wstring StringToWstring(std::string const& text, int codePage);
VOK_EXPORT std::wstring StringToWstring(char const* text, int codePage);

/// Narrow text of a wide one, in the same way.
VOK_EXPORT std::string WstringToString(std::wstring const& text, int codePage);
VOK_EXPORT std::string WstringToString(wchar_t const* text, int codePage);

} // namespace Brindle::Vok::String
