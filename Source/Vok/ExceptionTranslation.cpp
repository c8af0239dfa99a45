#include <Brindle/Vok/Error.h>

#include <exception>
#include <new>
#include <stdexcept>

namespace Brindle::Vok::Detail
{
namespace
{

/// The boundary that translates: the location of new errors and of the log statements. No function, no statements.
struct Boundary
{
    char const* file;
    int line;
    char const* function;

    template <class Char, class... Arguments>
    void LogCaught(Char const* format, Arguments const&... arguments) const
    {
        if (function != nullptr && ShouldLog(VokLogSeverity::error))
            Log(false, VokLogSeverity::error, file, function, line, FormatText(format, arguments...));
    }

    WindowsError MakeWindowsError(unsigned long code, std::string const& text) const
    {
        return WindowsError(code, file, line, function, text);
    }

    ComError MakeComError(long code, std::string const& text) const
    {
        return ComError(code, file, line, function, text);
    }
};

/// The source that the error information names; empty without any.
std::wstring SourceOf(_com_error const& exception)
{
    _bstr_t const source = exception.Source();
    wchar_t const* const text = source;
    return text == nullptr ? std::wstring() : std::wstring(text);
}

Error Translate(_com_error const& exception, Boundary const& boundary)
{
    std::string const text = FormatString("_com_error msg={} source={}", exception.ErrorMessage(), SourceOf(exception));
    ComError const error = boundary.MakeComError(exception.Error(), text);
    boundary.LogCaught(L"Caught [{}]", error);
    return error;
}

Error Translate(std::system_error const& exception, Boundary const& boundary)
{
    int const value = exception.code().value();
    if (exception.code().category() == std::system_category())
    {
        boundary.LogCaught(L"Caught std::system_error code[{}] message[{}] what[{}]", value, exception.code().message(),
                           exception.what());
        return boundary.MakeWindowsError(static_cast<unsigned long>(value),
                                         std::string("std::system_error ") + exception.what());
    }
    std::string const text =
        FormatString("Caught std::system_error category[{}] code[{}] message[{}] what[{}]",
                     exception.code().category().name(), value, exception.code().message(), exception.what());
    // The statement names 1627, and the code stays what it was.
    boundary.LogCaught("{} returning ERROR_FUNCTION_FAILED", text);
    return boundary.MakeWindowsError(static_cast<unsigned long>(value), text);
}

Error Translate(std::exception const& exception, Boundary const& boundary)
{
    std::string const text = FormatString("Caught std::exception. what[{}]", exception.what());
    boundary.LogCaught("{} returning ERROR_FUNCTION_FAILED", text);
    return boundary.MakeWindowsError(ERROR_FUNCTION_FAILED, text);
}

} // namespace

Error CurrentExceptionToError(char const* file, int line, char const* function)
{
    Boundary const boundary{file, line, function};
    try
    {
        throw;
    }
    catch (WindowsError const& exception)
    {
        boundary.LogCaught(L"Caught Vok::WindowsError. [{}]", exception);
        return exception;
    }
    catch (ComError const& exception)
    {
        boundary.LogCaught(L"Caught Vok::ComError. [{}]", exception);
        return exception;
    }
    catch (Error const& exception)
    {
        boundary.LogCaught(L"Caught Vok::Error. [{}]", exception);
        return exception;
    }
    catch (ATL::CAtlException const& exception)
    {
        boundary.LogCaught(L"Caught CAtlException [{:X}]", exception.m_hr);
        return boundary.MakeComError(exception.m_hr, {});
    }
    catch (_com_error const& exception)
    {
        return Translate(exception, boundary);
    }
    catch (std::bad_alloc const& exception)
    {
        boundary.LogCaught("Caught std::bad_alloc what[{}], returning ERROR_OUTOFMEMORY", exception.what());
        return boundary.MakeWindowsError(ERROR_OUTOFMEMORY, std::string("std::bad_alloc ") + exception.what());
    }
    catch (std::invalid_argument const& exception)
    {
        boundary.LogCaught("Caught std::invalid_argument what[{}], returning ERROR_BAD_ARGUMENTS", exception.what());
        return boundary.MakeWindowsError(ERROR_BAD_ARGUMENTS, std::string("std::invalid_argument ") + exception.what());
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
