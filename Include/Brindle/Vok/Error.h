// The error model: every failure of the library is an Error, thrown or handed back.
//
//     void Open(wchar_t const* path)
//     {
//         if (!TryOpen(path))
//             VOK_THROW_LAST_ERROR(L"Open failed, path[{}]", path);
//     }
//
//     try
//     {
//         Open(L"C:\\a");
//     }
//     catch (Brindle::Vok::Error const& error)
//     {
//         // "Source/Open.cpp(10): Open The file was not found. (Windows Error 2). Open failed, path[C:\a]"
//         std::cerr << error.what();
//     }
//
// A fallible function throws, or comes as a pair of overloads of which one takes a trailing Error&. That one assigns
// its parameter on failure only, unless it says otherwise, so the caller passes a default Error and asks Failed()
// afterwards.
//
// Win32 codes stand in std::system_category(), HRESULTs in Detail::ComErrorCategory. The texts that the standard
// library has for the codes of std::system_category() are the host's own and mean nothing here; Message() and what()
// show them only as part of what a std::system_error from elsewhere said. A code is its low 32 bits. What is not
// guaranteed: that the text of a code is the same on every host.
//
// VOK_THROW and its like take a format, which may be an empty text: VOK_THROW_LAST_ERROR(L"") says no more than the
// code, VOK_THROW_LAST_ERROR() doesn't compile. It is a literal or a pointer to char or wchar_t; what a wide format
// does to narrow text stands at VOK_LOG in Log.h.
//
// Error objects are plain values: one object isn't synchronised, different objects are independent.
#pragma once

#include <Brindle/Vok/Detail/FunctionName.h>
#include <Brindle/Vok/FormatString.h>
#include <Brindle/Vok/Log.h>
#include <Brindle/Vok/Platform.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <system_error>
#include <utility>

namespace Brindle::Vok
{

/// The system's text of a Win32 code, without its line end; "Unknown Error Code." for a code that has none, or whose
/// text needs arguments (the thread's last error is then another one). Any thread may call it.
VOK_EXPORT std::wstring WindowsErrorToString(unsigned long code);
/// The same in UTF-8.
VOK_EXPORT std::string WindowsErrorToStringA(unsigned long code);

/// The system's text of an HRESULT, without its line end; "Unknown error 0x..." or "IDispatch error #..." for a code
/// that has none. Any thread may call it.
VOK_EXPORT std::wstring HresultToString(long code);
/// The same in UTF-8.
VOK_EXPORT std::string HresultToStringA(long code);

/// Inner names that callers meet.
namespace Detail
{

/// The category of HRESULTs. A process has one instance, however many modules use it.
class VOK_EXPORT ComErrorCategory final : public std::error_category
{
public:
    /// What stands for the category's identity wherever it has to be written down.
    static constexpr std::uint32_t identity = 0xA955E5E0U;

    /// It lives as long as the process does.
    static ComErrorCategory const& Instance() noexcept;

    /// "VokCom".
    char const* name() const noexcept override;
    /// HresultToStringA of the code.
    std::string message(int code) const override;
    /// The code in this same category.
    std::error_condition default_error_condition(int code) const noexcept override;

private:
    union Storage;
    constexpr ComErrorCategory() noexcept = default;
};

/// The code that stands for `code` of one category in another: a Win32 code becomes an HRESULT of facility 7, such an
/// HRESULT becomes its Win32 code and E_FAIL becomes 1627. Everything else stays as it is.
VOK_EXPORT int ConvertCode(int code, std::error_category const& from, std::error_category const& to) noexcept;

/// Code 0 in std::system_category(). Copying it takes a tenth of the time that making one takes, as the standard
/// library composes a text then. It lives as long as the process does.
VOK_EXPORT std::system_error const& Success();

/// "file(line): function system text (Windows Error code). text", with no location if `file` or `function` is null.
VOK_EXPORT std::string ComposeWindowsMessage(unsigned long code, char const* file, int line, char const* function,
                                             std::string const& text);
/// The same with "(Com Error code)", the code as a signed hexadecimal number.
VOK_EXPORT std::string ComposeComMessage(long code, char const* file, int line, char const* function,
                                         std::string const& text);

} // namespace Detail

/// A failure, or the success that a default object stands for: a code in its category, a source location, and one
/// composed UTF-8 message. Compare code().value() with the platform's ERROR_* codes; code().message() and comparisons
/// with std::errc follow the host's numbers and mean nothing here.
class VOK_EXPORT_TYPE Error : public std::system_error
{
public:
    /// Success: code 0 in std::system_category(), message "success".
    Error() : Error(Detail::Success(), "success") {}

    /// There is no move: an error that has failed always has its message.
    Error(Error const&) = default;

    /// Keeps the category of this object and brings the other's code into it; everything else is copied. So a Win32
    /// target shows the Win32 code of an HRESULT in code(), and the HRESULT in its message.
    Error& operator=(Error const& other)
    {
        if (this == &other)
            return *this;
        int const converted = Detail::ConvertCode(other.code().value(), other.code().category(), code().category());
        std::system_error::operator=(std::system_error(converted, code().category()));
        file = other.file;
        function = other.function;
        line = other.line;
        message = other.message;
        failed = other.failed;
        return *this;
    }

    ~Error() override = default;

    /// The message as a C string, which lives until the object changes or goes.
    char const* what() const noexcept override { return message.c_str(); }
    /// The composed text in UTF-8. Whether this is a failure can't be told from it.
    std::string const& Message() const noexcept { return message; }
    /// Whether this object records a failure.
    bool Failed() const noexcept { return failed; }

protected:
    /// A success with a message of its own.
    Error(std::system_error const& success, std::string composed)
        : std::system_error(success), message(std::move(composed))
    {
    }

    /// Everything as it is given; file and function have static lifetime or are null.
    Error(int initialCode, std::error_category const& category, char const* sourceFile, int sourceLine,
          char const* scopedFunction, std::string composed, bool hasFailed)
        : std::system_error(initialCode, category), file(sourceFile), function(scopedFunction), line(sourceLine),
          message(std::move(composed)), failed(hasFailed)
    {
    }

private:
    char const* file = nullptr;
    char const* function = nullptr;
    int line = 0;
    std::string message;
    bool failed = false;
};

/// A failure with a Win32 code.
class VOK_EXPORT_TYPE WindowsError : public Error
{
public:
    /// Of Win32 codes; the macros below use it.
    using Code = unsigned long;

    /// Success, with the message "Windows ERROR_SUCCESS".
    WindowsError() : Error(Detail::Success(), "Windows ERROR_SUCCESS") {}

    /// File and function must have static lifetime; if either is null the message has no location. `text` is UTF-8 and
    /// may be empty. A code other than 0 has failed.
    WindowsError(unsigned long errorCode, char const* sourceFile, int sourceLine, char const* scopedFunction,
                 std::string const& text)
        : Error(static_cast<int>(errorCode), std::system_category(), sourceFile, sourceLine, scopedFunction,
                Detail::ComposeWindowsMessage(errorCode, sourceFile, sourceLine, scopedFunction, text),
                static_cast<int>(errorCode) != 0)
    {
    }

    WindowsError(WindowsError const&) = default;
    WindowsError& operator=(WindowsError const&) = default;
    using Error::operator=;
    ~WindowsError() override = default;
};

/// A failure with an HRESULT.
class VOK_EXPORT_TYPE ComError : public Error
{
public:
    /// Of HRESULTs; the macros below use it.
    using Code = long;

    /// As for WindowsError. A negative code has failed; S_FALSE, say, has not.
    ComError(long errorCode, char const* sourceFile, int sourceLine, char const* scopedFunction,
             std::string const& text)
        : Error(static_cast<int>(errorCode), Detail::ComErrorCategory::Instance(), sourceFile, sourceLine,
                scopedFunction, Detail::ComposeComMessage(errorCode, sourceFile, sourceLine, scopedFunction, text),
                static_cast<int>(errorCode) < 0)
    {
    }

    ComError(ComError const&) = default;
    ComError& operator=(ComError const&) = default;
    using Error::operator=;
    ~ComError() override = default;
};

/// Writes the message; an error stands as an argument of a log format through this.
inline std::wostream& operator<<(std::wostream& stream, Error const& error)
{
    return stream << Utf8ToWide(error.Message());
}

namespace Detail
{

/// Turns the exception in flight into an Error and logs it at error in its own words, with the location of the boundary
/// that calls this. Call it in a handler only. A null function logs nothing. The library's own errors are copied (their
/// own location stays); a lack of memory is 14, std::invalid_argument 160, std::system_error its own number, and any
/// other std::exception 1627; an exception that is neither one of the known kinds nor derived from std::exception
/// passes through, and so does what a subscriber throws.
VOK_EXPORT Error CurrentExceptionToError(char const* file, int line, char const* function);

/// Where a macro stands.
struct Location
{
    char const* file;
    int line;
    char const* function;
};

/// An error of a formatted text. The macros call these with everything they need, so that at the throw itself no
/// temporary is left to be destroyed on the way out.
template <class ErrorType, class Char, class... Arguments>
ErrorType MakeError(Location const& location, typename ErrorType::Code code, Char const* format,
                    Arguments const&... arguments)
{
    return ErrorType(code, location.file, location.line, location.function, FormatText(format, arguments...));
}

/// The same with the calling thread's last error, which is read after the text has been formatted.
template <class Char, class... Arguments>
WindowsError MakeLastError(Location const& location, Char const* format, Arguments const&... arguments)
{
    std::string const text = FormatText(format, arguments...);
    return WindowsError(GetLastError(), location.file, location.line, location.function, text);
}

/// Logs a notice and the error's message at error, if anyone wants it.
VOK_EXPORT void LogNotice(char const* notice, Location const& location, Error const& error);

// Out of line: the throwing function stays small, and unwinding through it quick.
template <class ErrorType, class Char, class... Arguments>
[[gnu::noinline]] ErrorType MakeErrorToThrow(Location const& location, typename ErrorType::Code code,
                                             Char const* format, Arguments const&... arguments)
{
    ErrorType error = MakeError<ErrorType>(location, code, format, arguments...);
    LogNotice("Throwing ", location, error);
    return error;
}

template <class Char, class... Arguments>
[[gnu::noinline]] WindowsError MakeLastErrorToThrow(Location const& location, Char const* format,
                                                    Arguments const&... arguments)
{
    WindowsError error = MakeLastError(location, format, arguments...);
    LogNotice("Throwing last error ", location, error);
    return error;
}

} // namespace Detail
} // namespace Brindle::Vok

/// VOK_THROW(type, code, format, arguments...): throws a WindowsError or a ComError with this location, and logs
/// "Throwing " and its message at error.
#define VOK_THROW(type, code, ...)                                                                                     \
    throw ::Brindle::Vok::Detail::MakeErrorToThrow<type>(VOK_DETAIL_LOCATION, code, __VA_ARGS__)

/// VOK_THROW_LAST_ERROR(format, arguments...): the same with a WindowsError of GetLastError(), which is read after the
/// text has been formatted, and "Throwing last error ".
#define VOK_THROW_LAST_ERROR(...) throw ::Brindle::Vok::Detail::MakeLastErrorToThrow(VOK_DETAIL_LOCATION, __VA_ARGS__)

/// VOK_SET_ERROR(error, type, code, format, arguments...): assigns to an Error&; logs nothing, throws nothing.
#define VOK_SET_ERROR(error, type, code, ...)                                                                          \
    ((error) = ::Brindle::Vok::Detail::MakeError<type>(VOK_DETAIL_LOCATION, code, __VA_ARGS__))

/// VOK_SET_LAST_ERROR(error, format, arguments...): the same with a WindowsError of GetLastError(), which is read after
/// the text has been formatted.
#define VOK_SET_LAST_ERROR(error, ...)                                                                                 \
    ((error) = ::Brindle::Vok::Detail::MakeLastError(VOK_DETAIL_LOCATION, __VA_ARGS__))

/// Where the macro stands that has it.
#define VOK_DETAIL_LOCATION (::Brindle::Vok::Detail::Location{__FILE__, __LINE__, VOK_FUNCTION_NAME})
