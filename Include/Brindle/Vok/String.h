// Conversions between narrow text in any code page and wide text. For UTF-8 WideToUtf8 and Utf8ToWide of FormatString.h
// are the everyday ones, which never fail.
//
//     std::wstring wide = Brindle::Vok::String::StringToWstring(bytes, CP_UTF8);
//
// The code page is a number of the platform: 65001 (CP_UTF8) is UTF-8, 437 and 850 are pages of DOS, 1250 to 1258 those
// of Windows, 28591 is ISO 8859-1. Brindle/Platform/Text.h lists the pages that the stand-in knows; UTF-16 (1200) is
// none of them. An unknown page is a failure (87), and so is a text of 2^31 code units or more.
//
// No other text is an error, so a conversion may lose something: bytes that are invalid in the page become U+FFFD,
// ill-formed units of wide text count as U+FFFD, and a character that the page lacks becomes a question mark. All
// functions may be called from any thread.
#pragma once

#include <Brindle/Vok/Platform.h>

#include <string>

namespace Brindle::Vok::String
{

/// Wide text of a narrow one, NULs in it included. Empty text gives an empty result, whatever the page. Throws
/// WindowsError with the platform's code: 87 for an unknown page and for a text that is too long.
VOK_EXPORT std::wstring StringToWstring(std::string const& text, int codePage);
/// The same up to the first NUL. A null pointer gives an empty result.
VOK_EXPORT std::wstring StringToWstring(char const* text, int codePage);

/// Narrow text of a wide one, in the same way; 534 where the narrow text would have 2^31 bytes or more.
VOK_EXPORT std::string WstringToString(std::wstring const& text, int codePage);
/// The same up to the first NUL. A null pointer gives an empty result.
VOK_EXPORT std::string WstringToString(wchar_t const* text, int codePage);

} // namespace Brindle::Vok::String
