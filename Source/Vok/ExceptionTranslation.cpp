#include <Brindle/Vok/Error.h>

#include "LogAt.h"

#include <exception>
#include <new>
#include <stdexcept>

namespace Brindle::Vok::Detail
{
namespace
{

/// The boundary is where exceptions are translated: the location of new errors and statements. No function, no
/// statements.
template <class Char, class... Arguments>
void LogCaught(Location const& boundary, Char const* format, Arguments const&... arguments)
{
    if (boundary.function != nullptr)
        LogAt(boundary, VokLogSeverity::error, format, arguments...);
}

template <class ErrorType>
ErrorType MakeErrorOf(Location const& boundary, typename ErrorType::Code code, std::string const& text)
{
    return ErrorType(code, boundary.file, boundary.line, boundary.function, text);
}

/// The source that the error information names; empty without any.
std::wstring SourceOf(_com_error const& exception)
{
    _bstr_t const source = exception.Source();
    wchar_t const* const text = source;
    return text == nullptr ? std::wstring() : std::wstring(text);
}

Error Translate(_com_error const& exception, Location const& boundary)
{
    std::string const text = FormatString("_com_error msg={} source={}", exception.ErrorMessage(), SourceOf(exception));
    ComError const error = MakeErrorOf<ComError>(boundary, exception.Error(), text);
    LogCaught(boundary, L"Caught [{}]", error);
    return error;
}

Error Translate(std::system_error const& exception, Location const& boundary)
{
    int const value = exception.code().value();
    if (exception.code().category() == std::system_category())
    {
        LogCaught(boundary, L"Caught std::system_error code[{}] message[{}] what[{}]", value,
                  exception.code().message(), exception.what());
        return MakeErrorOf<WindowsError>(boundary, static_cast<unsigned long>(value),
                                         std::string("std::system_error ") + exception.what());
    }
    std::string const text =
        FormatString("Caught std::system_error category[{}] code[{}] message[{}] what[{}]",
                     exception.code().category().name(), value, exception.code().message(), exception.what());
    // The statement names 1627, and the code stays what it was.
    LogCaught(boundary, "{} returning ERROR_FUNCTION_FAILED", text);
    return MakeErrorOf<WindowsError>(boundary, static_cast<unsigned long>(value), text);
}

Error Translate(std::exception const& exception, Location const& boundary)
{
    std::string const text = FormatString("Caught std::exception. what[{}]", exception.what());
    LogCaught(boundary, "{} returning ERROR_FUNCTION_FAILED", text);
    return MakeErrorOf<WindowsError>(boundary, ERROR_FUNCTION_FAILED, text);
}

} // namespace

Error CurrentExceptionToError(char const* file, int line, char const* function)
{
    Location const boundary{file, line, function};
    try
    {
        throw;
    }
    catch (WindowsError const& exception)
    {
        LogCaught(boundary, L"Caught Vok::WindowsError. [{}]", exception);
        return exception;
    }
    catch (ComError const& exception)
    {
        LogCaught(boundary, L"Caught Vok::ComError. [{}]", exception);
        return exception;
    }
    catch (Error const& exception)
    {
        LogCaught(boundary, L"Caught Vok::Error. [{}]", exception);
        return exception;
    }
    catch (ATL::CAtlException const& exception)
    {
        LogCaught(boundary, L"Caught CAtlException [{:X}]", exception.m_hr);
        return MakeErrorOf<ComError>(boundary, exception.m_hr, {});
    }
    catch (_com_error const& exception)
    {
        return Translate(exception, boundary);
    }
    catch (std::bad_alloc const& exception)
    {
        LogCaught(boundary, "Caught std::bad_alloc what[{}], returning ERROR_OUTOFMEMORY", exception.what());
        return MakeErrorOf<WindowsError>(boundary, ERROR_OUTOFMEMORY,
                                         std::string("std::bad_alloc ") + exception.what());
    }
    catch (std::invalid_argument const& exception)
    {
        LogCaught(boundary, "Caught std::invalid_argument what[{}], returning ERROR_BAD_ARGUMENTS", exception.what());
        return MakeErrorOf<WindowsError>(boundary, ERROR_BAD_ARGUMENTS,
                                         std::string("std::invalid_argument ") + exception.what());
    }
    catch (std::system_error const& exception)
    {
        return Translate(exception, boundary);
    }
    catch (std::exception const& exception)
    {
        return Translate(exception, boundary);
    }
}

} // namespace Brindle::Vok::Detail
