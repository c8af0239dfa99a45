#include <Brindle/Vok/FormatString.h>

#include <Brindle/Vok/Log.h>

#include "LongestText.h"
#include "UninitializedStorage.h"

#include <algorithm>
#include <new>
#include <system_error>
#include <utility>

namespace Brindle::Vok
{
namespace
{
/// Up to this length UTF-8 is made on the stack, which spares the pass that finds out its length. A longer text that
/// begins with so much ASCII is taken to go on so.
constexpr std::size_t shortLength = 128;

/// A longer text doesn't get room for as many units as it has bytes before it is known whether it has so many.
constexpr std::size_t longestGuess = 16 << 20;

template <class Unit>
bool BeginsInAscii(std::basic_string_view<Unit> text)
{
    std::basic_string_view<Unit> const begin = text.substr(0, shortLength);
    return std::all_of(begin.begin(), begin.end(), [](Unit unit) { return unit >= 0 && unit < 0x80; });
}

/// ASCII has as many bytes as units, so that one pass does it. Any other text does not fit and gives false.
bool ConvertAscii(std::wstring_view text, std::string& result)
{
    DWORD const lastError = GetLastError();
    int const length = static_cast<int>(text.size());
    Detail::ResizeUninitialized(result, text.size());
    if (WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), length, nullptr, nullptr) == length)
        return true;
    SetLastError(lastError);
    return false;
}
} // namespace

std::string WideToUtf8(std::wstring_view text)
{
    std::string result;
    if (text.empty() || text.size() > Detail::longestText)
        return result;
    int const length = static_cast<int>(text.size());
    if (text.size() <= shortLength)
    {
        char buffer[3 * shortLength];
        int const written =
            WideCharToMultiByte(CP_UTF8, 0, text.data(), length, buffer, sizeof(buffer), nullptr, nullptr);
        result.assign(buffer, static_cast<std::size_t>(written));
        return result;
    }
    if (BeginsInAscii(text) && ConvertAscii(text, result))
        return result;
    int const size = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    Detail::ResizeUninitialized(result, static_cast<std::size_t>(size));
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), size, nullptr, nullptr);
    return result;
}

std::string WideToUtf8(wchar_t const* text)
{
    return text == nullptr ? std::string() : WideToUtf8(std::wstring_view(text));
}

std::wstring Utf8ToWide(std::string_view text)
{
    std::wstring result;
    if (text.empty() || text.size() > Detail::longestText)
        return result;
    int const length = static_cast<int>(text.size());
    if (text.size() <= shortLength || (text.size() <= longestGuess && BeginsInAscii(text)))
    {
        // There are at most as many units as bytes, and in ASCII just as many.
        Detail::ResizeUninitialized(result, text.size());
        int const written = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, result.data(), length);
        result.resize(static_cast<std::size_t>(written));
        // It didn't go on in ASCII. A copy costs less than to keep more room than text.
        if (text.size() > shortLength && result.size() < text.size() / 2)
            result.shrink_to_fit();
        return result;
    }
    int const size = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
    Detail::ResizeUninitialized(result, static_cast<std::size_t>(size));
    MultiByteToWideChar(CP_UTF8, 0, text.data(), length, result.data(), size);
    return result;
}

std::wstring Utf8ToWide(char const* text)
{
    return text == nullptr ? std::wstring() : Utf8ToWide(std::string_view(text));
}

namespace Detail
{
namespace
{

template <class Char>
using StackBuffer = fmt::basic_memory_buffer<Char, 512>;

/// The text up to its first NUL, as a C string would be read.
template <class Char>
std::basic_string_view<Char> UpToNul(StackBuffer<Char> const& buffer)
{
    std::basic_string_view<Char> const text(buffer.data(), buffer.size());
    return text.substr(0, text.find(Char()));
}

template <class Char>
void FormatInto(StackBuffer<Char>& buffer, Char const* format,
                fmt::basic_format_args<fmt::buffer_context<Char>> arguments)
{
    if (format == nullptr)
        throw fmt::format_error("null format string");
    // The iterator that fmt itself uses: any other one makes it write to a buffer of its own first.
    using Iterator = typename fmt::buffer_context<Char>::iterator;
    fmt::vformat_to(Iterator(buffer), fmt::basic_string_view<Char>(format), arguments);
}

/// What a failed format gives; in a handler.
template <class Char>
std::basic_string<Char> FallBack(Char const* format)
{
    Char const* const fallback = HandleFormatException(format);
    return fallback == nullptr ? std::basic_string<Char>() : fallback;
}

template <class Char>
std::basic_string<Char> FormatOrFallBack(Char const* format,
                                         fmt::basic_format_args<fmt::buffer_context<Char>> arguments)
{
    try
    {
        StackBuffer<Char> buffer;
        FormatInto(buffer, format, arguments);
        return std::basic_string<Char>(UpToNul(buffer));
    }
    catch (std::exception const&)
    {
        return FallBack(format);
    }
}

/// The same as UTF-8. What the conversion throws isn't the format's failure.
std::string FormatOrFallBackAsUtf8(wchar_t const* format, fmt::wformat_args arguments)
{
    StackBuffer<wchar_t> buffer;
    try
    {
        FormatInto(buffer, format, arguments);
    }
    catch (std::exception const&)
    {
        return WideToUtf8(FallBack(format));
    }
    return WideToUtf8(UpToNul(buffer));
}

/// Formats like FormatString, but doesn't fall back: without memory that would fail, and fall back, again and again.
template <class... Arguments>
std::string FormatWithoutFallBack(char const* format, Arguments const&... adapted)
{
    StackBuffer<char> buffer;
    FormatInto(buffer, format, fmt::format_args(fmt::make_format_args(adapted...)));
    return std::string(UpToNul(buffer));
}

/// The text is made before anyone is asked whether it is wanted. There is no statement if there is no memory for it.
template <class... Arguments>
void LogFormatFailure(int line, char const* function, char const* format, Arguments const&... arguments)
{
    std::string text;
    try
    {
        text = FormatWithoutFallBack(format, Adapt<char>(arguments)...);
    }
    catch (std::bad_alloc const&)
    {
        return;
    }
    if (ShouldLog(VokLogSeverity::error))
        Log(false, VokLogSeverity::error, __FILE__, function, line, std::move(text));
}

std::wstring const& TextOf(Legacy::CString const& text)
{
    return reinterpret_cast<std::wstring const&>(text); // its first member
}

} // namespace

template <class Char>
Char const* HandleFormatExceptionGeneric(Char const* format)
{
    try
    {
        throw;
    }
    catch (std::system_error const& exception)
    {
        LogFormatFailure(__LINE__, VOK_FUNCTION_NAME, "Failed to format formatString[{}] msg[{}] error_code[{}]",
                         format, exception.what(), exception.code().value());
    }
    catch (std::exception const& exception)
    {
        LogFormatFailure(__LINE__, VOK_FUNCTION_NAME, "Failed to format formatString[{}] msg[{}]", format,
                         exception.what());
    }
    return format;
}

char const* HandleFormatException(char const* format)
{
    return HandleFormatExceptionGeneric(format);
}

wchar_t const* HandleFormatException(wchar_t const* format)
{
    return HandleFormatExceptionGeneric(format);
}

std::string FormatNarrow(char const* format, fmt::format_args arguments)
{
    return FormatOrFallBack(format, arguments);
}

std::wstring FormatWide(wchar_t const* format, fmt::wformat_args arguments)
{
    return FormatOrFallBack(format, arguments);
}

std::string FormatWideAsUtf8(wchar_t const* format, fmt::wformat_args arguments)
{
    try
    {
        return FormatOrFallBackAsUtf8(format, arguments);
    }
    catch (std::system_error const&) // a subscriber of the failure's statement may throw one, say
    {
        return "Failed to format log message";
    }
}

std::string FormatParameter(WideStringAtl const& text)
{
    return WideToUtf8(std::wstring_view(text.GetString(), static_cast<std::size_t>(text.GetLength())));
}

char const* FormatParameter(NarrowStringAtl const& text)
{
    return text.GetString();
}

std::string FormatParameter(Legacy::CString const& text)
{
    return WideToUtf8(std::wstring_view(TextOf(text)));
}

std::wstring FormatParameterW(NarrowStringAtl const& text)
{
    return Utf8ToWide(std::string_view(text.GetString(), static_cast<std::size_t>(text.GetLength())));
}

wchar_t const* FormatParameterW(WideStringAtl const& text)
{
    return text.GetString();
}

wchar_t const* FormatParameterW(Legacy::CString const& text)
{
    return TextOf(text).c_str();
}

wchar_t const* GetAtlStringValue(WideStringAtl const& text)
{
    return text.GetString();
}

wchar_t const* GetLegacyStringValue(Legacy::CString const& text)
{
    return TextOf(text).c_str();
}

} // namespace Detail
} // namespace Brindle::Vok
