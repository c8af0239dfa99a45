#include "Support/ErrorInformation.h"
#include "Support/LogRecorder.h"

#include <Brindle/Vok/Error.h>

#include <gmock/gmock.h>

#include <new>
#include <stdexcept>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

auto const& win32 = std::system_category();
std::error_category const& com = Detail::ComErrorCategory::Instance();

template <class Exception>
Error Translated(Exception const& exception, char const* function = "F")
{
    try
    {
        throw exception;
    }
    catch (...)
    {
        return Detail::CurrentExceptionToError("src", 10, function);
    }
}

/// The translation of an exception, its whole message and its one log statement.
template <class Exception>
void Expect(Exception const& exception, int code, std::error_category const& category, std::string const& message,
            std::string const& logged)
{
    LogRecorder recorder;
    Error const error = Translated(exception);
    EXPECT_EQ(typeid(error), typeid(Error));
    EXPECT_EQ(error.code().value(), code);
    EXPECT_EQ(&error.code().category(), &category);
    EXPECT_EQ(error.Message(), message);
    EXPECT_THAT(recorder.LinesWithFunction(), ElementsAre("F: " + logged));
    EXPECT_EQ(recorder.Statements().at(0).severity, VokLogSeverity::error);
}

std::string MessageOf(unsigned long code, std::string const& text)
{
    return WindowsError(code, "src", 10, "F", text).Message();
}

std::string MessageOfCom(long code, std::string const& text)
{
    return ComError(code, "src", 10, "F", text).Message();
}

} // namespace

TEST(ExceptionTranslation, OfTheLibrarysOwnErrorsKeepsThem)
{
    WindowsError const windowsError(5, "a", 1, "A", "t");
    Expect(windowsError, 5, win32, windowsError.Message(),
           "Caught Vok::WindowsError. [" + windowsError.Message() + "]");
    ComError const comError(E_ACCESSDENIED, "a", 1, "A", "\xC3\xA9");
    Expect(comError, E_ACCESSDENIED, com, comError.Message(), "Caught Vok::ComError. [" + comError.Message() + "]");
    Expect(Error(windowsError), 5, win32, windowsError.Message(),
           "Caught Vok::Error. [" + windowsError.Message() + "]");
}

TEST(ExceptionTranslation, OfComsExceptionsKeepsTheirCode)
{
    Expect(ATL::CAtlException(E_FAIL), E_FAIL, com, MessageOfCom(E_FAIL, ""), "Caught CAtlException [-7FFFBFFB]");
    ErrorInformation info;
    std::string const ofCom = MessageOfCom(E_ACCESSDENIED, "_com_error msg=Access is denied. source=the source");
    Expect(_com_error(E_ACCESSDENIED, &info, true), E_ACCESSDENIED, com, ofCom, "Caught [" + ofCom + "]");
    EXPECT_EQ(info.references, 1U);
}

TEST(ExceptionTranslation, OfStandardExceptionsGivesEachKindItsCode)
{
    std::string const ofBadAlloc = std::bad_alloc().what();
    Expect(std::bad_alloc(), 14, win32, MessageOf(14, "std::bad_alloc " + ofBadAlloc),
           "Caught std::bad_alloc what[" + ofBadAlloc + "], returning ERROR_OUTOFMEMORY");
    Expect(std::invalid_argument("x"), 160, win32, MessageOf(160, "std::invalid_argument x"),
           "Caught std::invalid_argument what[x], returning ERROR_BAD_ARGUMENTS");
    Expect(std::runtime_error("{x}"), 1627, win32, MessageOf(1627, "Caught std::exception. what[{x}]"),
           "Caught std::exception. what[{x}] returning ERROR_FUNCTION_FAILED");
}

TEST(ExceptionTranslation, OfSystemErrorsGoesByTheirCategory)
{
    std::system_error const systemError(2, win32, "x");
    LogRecorder const recorder;
    EXPECT_EQ(Translated(systemError).Message(), MessageOf(2, std::string("std::system_error ") + systemError.what()));
    EXPECT_THAT(recorder.Lines(), ElementsAre(testing::StartsWith("error: Caught std::system_error code[2] message[")));
    std::system_error const genericError(13, std::generic_category(), "x");
    std::string const ofGeneric = "Caught std::system_error category[generic] code[13] message[" +
                                  genericError.code().message() + "] what[" + genericError.what() + "]";
    Expect(genericError, 13, win32, MessageOf(13, ofGeneric), ofGeneric + " returning ERROR_FUNCTION_FAILED");
}

TEST(ExceptionTranslation, WithoutAFunctionLogsAndLocatesNothingAndLetsOtherTypesPass)
{
    LogRecorder recorder;
    EXPECT_EQ(Translated(std::runtime_error("x"), nullptr).Message(),
              WindowsError(1627, nullptr, 0, nullptr, "Caught std::exception. what[x]").Message());
    EXPECT_THAT(recorder.Lines(), IsEmpty());
    EXPECT_THROW(Translated(7), int);
}
