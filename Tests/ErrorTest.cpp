#include "Support/LogRecorder.h"

#include <Brindle/Vok/Error.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>
#include <type_traits>

using namespace Brindle::Vok;
using Brindle::Vok::Testing::LogRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

auto const& win32 = std::system_category();
std::error_category const& com = Detail::ComErrorCategory::Instance();

long Hresult(unsigned bits)
{
    return static_cast<HRESULT>(bits);
}

/// Code, category, Failed and the whole message of an error.
void Expect(Error const& error, int code, std::error_category const& category, bool failed, std::string const& message)
{
    EXPECT_EQ(error.code().value(), code);
    EXPECT_EQ(&error.code().category(), &category);
    EXPECT_EQ(error.Failed(), failed);
    EXPECT_EQ(error.Message(), message);
    EXPECT_STREQ(error.what(), message.c_str());
}

/// A text argument whose formatting leaves another last error behind.
struct ChangesLastError
{
};

std::ostream& operator<<(std::ostream& stream, ChangesLastError const&)
{
    SetLastError(ERROR_INVALID_HANDLE);
    return stream << "changed";
}

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

struct SourceOnly final : IErrorInfo
{
    HRESULT QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG AddRef() override { return ++count; }
    ULONG Release() override { return --count; }
    HRESULT GetGUID(GUID*) override { return E_NOTIMPL; }
    HRESULT GetSource(BSTR* source) override
    {
        *source = SysAllocString(L"the source");
        return S_OK;
    }
    HRESULT GetDescription(BSTR*) override { return E_NOTIMPL; }
    HRESULT GetHelpFile(BSTR*) override { return E_NOTIMPL; }
    HRESULT GetHelpContext(DWORD*) override { return E_NOTIMPL; }
    ULONG count = 0;
};

} // namespace

TEST(Error, MessagesToTheLetter)
{
    Expect(Error(Error()), 0, win32, false, "success");
    Expect(WindowsError(), 0, win32, false, "Windows ERROR_SUCCESS");
    Expect(WindowsError(5, "src", 10, "F", "x"), 5, win32, true, "src(10): F Access is denied. (Windows Error 5). x");
    Expect(WindowsError(5, "src", 10, "F", ""), 5, win32, true, "src(10): F Access is denied. (Windows Error 5).");
    Expect(WindowsError(5, nullptr, 10, "F", "x"), 5, win32, true, "Access is denied. (Windows Error 5). x");
    Expect(WindowsError(5, "src", 10, nullptr, "x"), 5, win32, true, "Access is denied. (Windows Error 5). x");
    Expect(WindowsError(0, nullptr, 0, nullptr, ""), 0, win32, false, WindowsErrorToStringA(0) + " (Windows Error 0).");
    Expect(WindowsError(0xDEADBEEF, nullptr, 0, nullptr, ""), static_cast<int>(0xDEADBEEF), win32, true,
           "Unknown Error Code. (Windows Error 3735928559).");
    Expect(ComError(0x80004005, "src", -1, "F", "x"), static_cast<int>(0x80004005), com, true,
           "src(-1): F " + HresultToStringA(E_FAIL) + " (Com Error -7FFFBFFB). x");
    Expect(ComError(Hresult(0x80070005), nullptr, 0, nullptr, ""), static_cast<int>(0x80070005), com, true,
           "Access is denied. (Com Error -7FF8FFFB).");
    Expect(ComError(1, nullptr, 0, nullptr, "{}"), 1, com, false, HresultToStringA(1) + " (Com Error 1). {}");
    Expect(ComError(0x7FFFFFFF, nullptr, 0, nullptr, ""), 0x7FFFFFFF, com, false,
           "Unknown error 0x7FFFFFFF (Com Error 7FFFFFFF).");
}

TEST(Error, OnlyTheLowBitsOfACodeCount)
{
    EXPECT_FALSE(WindowsError(0x100000000, nullptr, 0, nullptr, "").Failed());
    EXPECT_EQ(WindowsError(0x100000005, nullptr, 0, nullptr, "").code().value(), 5);
    EXPECT_EQ(WindowsErrorToStringA(0x100000005), "Access is denied.");
    EXPECT_EQ(HresultToStringA(0x180070005), "Access is denied.");
}

TEST(Error, TextsOfCodes)
{
    struct
    {
        std::string actual;
        char const* expected;
    } const cases[] = {
        {WindowsErrorToStringA(5), "Access is denied."},
        {WideToUtf8(WindowsErrorToString(5)), "Access is denied."},
        {WindowsErrorToStringA(ERROR_BAD_EXE_FORMAT), "Unknown Error Code."}, // its text needs an argument
        {WideToUtf8(WindowsErrorToString(987654)), "Unknown Error Code."},
        {HresultToStringA(Hresult(0x80040205)), "IDispatch error #5"},
        {HresultToStringA(Hresult(0x80040200)), "Unknown error 0x80040200"},
        {HresultToStringA(Hresult(0x80040201)), "IDispatch error #1"},
        {WideToUtf8(HresultToString(Hresult(0x8004FFFF))), "IDispatch error #65023"},
        {WideToUtf8(HresultToString(Hresult(0x80050000))), "Unknown error 0x80050000"},
    };
    for (auto const& each : cases)
        EXPECT_EQ(each.actual, each.expected);
}

TEST(Error, AssignmentBringsTheCodeIntoTheTargetsCategory)
{
    auto const windows = [](unsigned long code) { return std::make_unique<WindowsError>(code, "s", 1, "S", "t"); };
    auto const hresult = [](unsigned code) { return std::make_unique<ComError>(Hresult(code), "s", 1, "S", "t"); };
    auto const none = [] { return std::make_unique<Error>(); };
    struct Case
    {
        std::unique_ptr<Error> target;
        std::unique_ptr<Error> source;
        unsigned expected;
    };
    std::vector<Case> table;
    table.push_back({none(), windows(5), 5});
    table.push_back({none(), hresult(0x80070005), 5});
    table.push_back({none(), hresult(0x80004005), ERROR_FUNCTION_FAILED});
    table.push_back({none(), hresult(0x8004D000), 0x8004D000});
    table.push_back({none(), hresult(1), 1});
    table.push_back({windows(7), hresult(0x8007FFFF), 0xFFFF});
    table.push_back({hresult(1), windows(5), 0x80070005});
    table.push_back({hresult(1), windows(0x12345), 0x80072345});
    table.push_back({hresult(1), windows(0), 0});
    table.push_back({hresult(1), windows(0x80000005), 0x80000005}); // negative as a signed number: unchanged
    table.push_back({hresult(1), hresult(0x80070005), 0x80070005});
    for (Case& each : table)
    {
        auto const& category = each.target->code().category();
        *each.target = *each.source;
        Expect(*each.target, static_cast<int>(each.expected), category, each.source->Failed(), each.source->Message());
    }
}

TEST(Error, AssignmentCopiesFailedAndRebuildsTheBase)
{
    ComError const notFailed(Hresult(0x00070005), nullptr, 0, nullptr, "");
    WindowsError target(5, nullptr, 0, nullptr, "");
    Error const copy = target;
    target = notFailed; // code 0x70005 as a Win32 code, and not failed
    Expect(target, 0x70005, win32, false, notFailed.Message());
    Error const& sameObject = target;
    target = sameObject;
    EXPECT_EQ(target.code().value(), 0x70005);
    Expect(copy, 5, win32, true, "Access is denied. (Windows Error 5).");
    // The base's own text follows the code too.
    EXPECT_STREQ(static_cast<std::system_error const&>(target).std::system_error::what(),
                 std::system_error(0x70005, win32).what());
}

TEST(ComErrorCategory, TellsTheTextsOfHresults)
{
    EXPECT_STREQ(com.name(), "VokCom");
    EXPECT_EQ(com.message(static_cast<int>(0x80070005)), "Access is denied.");
    EXPECT_EQ(com.default_error_condition(3), std::error_condition(3, com));
    EXPECT_TRUE(std::error_code(3, com) == std::error_condition(3, com));
    EXPECT_FALSE(std::error_code(3, win32) == std::error_condition(3, com));
    static_assert(!std::is_default_constructible_v<Detail::ComErrorCategory>);
}

TEST(ErrorMacros, ThrowLogsItsNoticeAndKeepsTheType)
{
    LogRecorder recorder;
    try
    {
        VOK_THROW(ComError, E_FAIL, "x {}", 1);
    }
    catch (ComError const& error)
    {
        auto const statements = recorder.Statements();
        ASSERT_EQ(statements.size(), 1U);
        EXPECT_EQ(statements[0].message, "Throwing " + error.Message());
        EXPECT_EQ(statements[0].severity, VokLogSeverity::error);
        std::string const location = std::string(statements[0].file) + "(" + std::to_string(statements[0].line) +
                                     "): " + statements[0].function + " ";
        EXPECT_TRUE(error.Message().starts_with(location)) << error.Message();
        EXPECT_TRUE(error.Message().ends_with(" (Com Error -7FFFBFFB). x 1"));
        EXPECT_STREQ(statements[0].file, "Tests/ErrorTest.cpp");
        return;
    }
    FAIL() << "nothing was thrown";
}

TEST(ErrorMacros, LastErrorIsReadBehindTheFormat)
{
    LogRecorder recorder;
    SetLastError(ERROR_ACCESS_DENIED);
    Error error;
    VOK_SET_LAST_ERROR(error, "{}", ChangesLastError());
    EXPECT_EQ(error.code().value(), ERROR_INVALID_HANDLE);
    EXPECT_THAT(recorder.Lines(), IsEmpty());
    SetLastError(ERROR_ACCESS_DENIED);
    try
    {
        VOK_THROW_LAST_ERROR(L"wide {}{}", L"text", ChangesLastError());
    }
    catch (WindowsError const& thrown)
    {
        EXPECT_EQ(thrown.code().value(), ERROR_INVALID_HANDLE);
        EXPECT_THAT(recorder.Lines(), ElementsAre("error: Throwing last error " + thrown.Message()));
        EXPECT_TRUE(thrown.Message().ends_with(": ErrorMacros_LastErrorIsReadBehindTheFormat_Test::TestBody " +
                                               WindowsErrorToStringA(ERROR_INVALID_HANDLE) +
                                               " (Windows Error 6). wide textchanged"));
        return;
    }
    FAIL() << "nothing was thrown";
}

TEST(ErrorMacros, SetConvertsIntoTheTargetsCategory)
{
    Error error;
    VOK_SET_ERROR(error, ComError, E_ACCESSDENIED, L"[{}]", L"\u20AC");
    EXPECT_EQ(error.code(), std::error_code(5, win32));
    EXPECT_TRUE(error.Failed());
    EXPECT_TRUE(error.Message().ends_with("(Com Error -7FF8FFFB). [\xE2\x82\xAC]")) << error.Message();
}

TEST(ExceptionTranslation, EveryKindInItsOwnWords)
{
    std::error_code const eacces(13, std::generic_category());
    SourceOnly info;
    auto const check = [](auto const& exception, int code, std::error_category const& category,
                          std::string const& textOfMessage, std::string const& logged)
    {
        LogRecorder recorder;
        Error const error = Translated(exception);
        EXPECT_EQ(error.code().value(), code);
        EXPECT_EQ(&error.code().category(), &category);
        EXPECT_EQ(typeid(error), typeid(Error));
        EXPECT_EQ(error.Message(), textOfMessage);
        EXPECT_THAT(recorder.LinesWithFunction(), ElementsAre("F: " + logged));
        EXPECT_EQ(recorder.Statements().at(0).severity, VokLogSeverity::error);
        EXPECT_STREQ(recorder.Statements().at(0).file, "src");
        EXPECT_EQ(recorder.Statements().at(0).line, 10);
    };
    auto const composed = [](unsigned long code, std::string const& text)
    { return WindowsError(code, "src", 10, "F", text).Message(); };

    WindowsError const windowsError(5, "a", 1, "A", "t");
    check(windowsError, 5, win32, windowsError.Message(), "Caught Vok::WindowsError. [" + windowsError.Message() + "]");
    ComError const comError(Hresult(0x80070005), "a", 1, "A", "\xC3\xA9");
    check(comError, static_cast<int>(0x80070005), com, comError.Message(),
          "Caught Vok::ComError. [" + comError.Message() + "]");
    Error plain;
    plain = windowsError;
    check(plain, 5, win32, windowsError.Message(), "Caught Vok::Error. [" + windowsError.Message() + "]");
    check(ATL::CAtlException(E_FAIL), E_FAIL, com, ComError(E_FAIL, "src", 10, "F", "").Message(),
          "Caught CAtlException [-7FFFBFFB]");
    std::string const ofCom =
        ComError(E_ACCESSDENIED, "src", 10, "F", "_com_error msg=Access is denied. source=the source").Message();
    check(_com_error(E_ACCESSDENIED, &info, true), E_ACCESSDENIED, com, ofCom, "Caught [" + ofCom + "]");
    std::string const withoutSource =
        ComError(E_ACCESSDENIED, "src", 10, "F", "_com_error msg=Access is denied. source=").Message();
    check(_com_error(E_ACCESSDENIED), E_ACCESSDENIED, com, withoutSource, "Caught [" + withoutSource + "]");
    std::bad_alloc const badAlloc;
    check(badAlloc, 14, win32, composed(14, std::string("std::bad_alloc ") + badAlloc.what()),
          std::string("Caught std::bad_alloc what[") + badAlloc.what() + "], returning ERROR_OUTOFMEMORY");
    check(std::invalid_argument("x"), 160, win32, composed(160, "std::invalid_argument x"),
          "Caught std::invalid_argument what[x], returning ERROR_BAD_ARGUMENTS");
    std::system_error const systemError(2, win32, "x");
    // This statement alone is wide and widens the standard library's texts, which follow the locale, byte by byte.
    auto const byteByByte = [](std::string_view text)
    {
        std::wstring wide;
        for (char const byte : text)
            wide.push_back(static_cast<unsigned char>(byte));
        return WideToUtf8(wide);
    };
    check(systemError, 2, win32, composed(2, std::string("std::system_error ") + systemError.what()),
          "Caught std::system_error code[2] message[" + byteByByte(systemError.code().message()) + "] what[" +
              byteByByte(systemError.what()) + "]");
    std::system_error const genericError(eacces, "x");
    std::string const ofGeneric = "Caught std::system_error category[generic] code[13] message[" + eacces.message() +
                                  "] what[" + genericError.what() + "]";
    check(genericError, 13, win32, composed(13, ofGeneric), ofGeneric + " returning ERROR_FUNCTION_FAILED");
    check(std::runtime_error("{x}"), 1627, win32, composed(1627, "Caught std::exception. what[{x}]"),
          "Caught std::exception. what[{x}] returning ERROR_FUNCTION_FAILED");
    EXPECT_EQ(info.count, 0U);
}

TEST(ExceptionTranslation, WithoutAFunctionNothingIsLoggedAndNothingIsLocated)
{
    LogRecorder recorder;
    EXPECT_EQ(Translated(std::runtime_error("x"), nullptr).Message(),
              WindowsError(1627, nullptr, 0, nullptr, "Caught std::exception. what[x]").Message());
    EXPECT_FALSE(Translated(ATL::CAtlException(S_OK), nullptr).Failed());
    EXPECT_THAT(recorder.Lines(), IsEmpty());
}

TEST(ExceptionTranslation, OtherTypesPassThrough)
{
    EXPECT_THROW(Translated(7), int);
}
