#include "Support/LogRecorder.h"
#include "Support/Thrown.h"

#include <Brindle/Vok/Error.h>

#include <gmock/gmock.h>

#include <memory>
#include <utility>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
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

} // namespace

TEST(Error, MessagesToTheLetter)
{
    Expect(Error(Error()), 0, win32, false, "success");
    Expect(WindowsError(), 0, win32, false, "Windows ERROR_SUCCESS");
    Expect(WindowsError(5, "src", 10, "F", "x"), 5, win32, true, "src(10): F Access is denied. (Windows Error 5). x");
    Expect(WindowsError(5, "src", 10, nullptr, "x"), 5, win32, true, "Access is denied. (Windows Error 5). x");
    Expect(ComError(0x80004005, "src", -1, "F", "x"), static_cast<int>(0x80004005), com, true,
           "src(-1): F " + HresultToStringA(E_FAIL) + " (Com Error -7FFFBFFB). x");
    Expect(ComError(1, nullptr, 0, nullptr, "{}"), 1, com, false, HresultToStringA(1) + " (Com Error 1). {}");
}

TEST(Error, TextsOfCodes)
{
    std::pair<std::string, char const*> const cases[] = {
        {WindowsErrorToStringA(0x100000005), "Access is denied."},            // only the low 32 bits of a code count
        {WindowsErrorToStringA(ERROR_BAD_EXE_FORMAT), "Unknown Error Code."}, // its text needs an argument
        {WideToUtf8(WindowsErrorToString(987654)), "Unknown Error Code."},
        {HresultToStringA(0x180070005), "Access is denied."},
        {HresultToStringA(Hresult(0x800700C1)), "%1 is not a valid program."},
        {HresultToStringA(Hresult(0x80040200)), "Unknown error 0x80040200"},
        {WideToUtf8(HresultToString(Hresult(0x8004FFFF))), "IDispatch error #65023"},
    };
    for (auto const& [actual, expected] : cases)
        EXPECT_EQ(actual, expected);
}

TEST(Error, AssignmentBringsTheCodeIntoTheTargetsCategory)
{
    auto const windows = [](unsigned long code) { return std::make_shared<WindowsError>(code, "s", 1, "S", "t"); };
    auto const hresult = [](unsigned code) { return std::make_shared<ComError>(Hresult(code), "s", 1, "S", "t"); };
    std::tuple<std::shared_ptr<Error>, std::shared_ptr<Error>, unsigned> const cases[] = {
        {windows(7), hresult(0x8007FFFF), 0xFFFF},     {windows(7), hresult(0x80004005), ERROR_FUNCTION_FAILED},
        {windows(7), hresult(0x8004D000), 0x8004D000}, {windows(7), hresult(0x00070005), 0x70005},
        {hresult(1), windows(0x12345), 0x80072345},    {hresult(1), windows(0), 0},
        {hresult(1), windows(0x80000005), 0x80000005}, // negative as a signed number: unchanged
    };
    for (auto const& [target, source, expected] : cases)
    {
        auto const& category = target->code().category();
        *target = *source;
        Expect(*target, static_cast<int>(expected), category, source->Failed(), source->Message());
    }
}

TEST(ErrorMacros, ThrowLogsItsNoticeAndKeepsTheType)
{
    LogRecorder recorder;
    ComError const error = Thrown<ComError>([] { VOK_THROW(ComError, E_FAIL, "x {}", 1); });
    EXPECT_THAT(recorder.Lines(), ElementsAre("error: Throwing " + error.Message()));
    LogStatement const statement = recorder.Statements().at(0);
    EXPECT_STREQ(statement.file, "Tests/ErrorTest.cpp");
    EXPECT_EQ(error.Message(), ComError(E_FAIL, statement.file, statement.line, statement.function, "x 1").Message());
}

TEST(ErrorMacros, LastErrorIsReadBehindTheFormat)
{
    LogRecorder recorder;
    SetLastError(ERROR_ACCESS_DENIED);
    WindowsError const thrown =
        Thrown<WindowsError>([] { VOK_THROW_LAST_ERROR(L"wide {}{}", L"text", ChangesLastError()); });
    EXPECT_EQ(thrown.code().value(), ERROR_INVALID_HANDLE);
    EXPECT_THAT(recorder.Lines(), ElementsAre("error: Throwing last error " + thrown.Message()));
    EXPECT_TRUE(thrown.Message().ends_with(WindowsErrorToStringA(6) + " (Windows Error 6). wide textchanged"));
}

TEST(ErrorMacros, SetConvertsIntoTheTargetsCategoryAndLogsNothing)
{
    LogRecorder const recorder;
    Error error;
    VOK_SET_ERROR(error, ComError, E_ACCESSDENIED, L"[{}]", L"\u20AC");
    EXPECT_EQ(error.code(), std::error_code(5, win32));
    EXPECT_TRUE(error.Message().ends_with("(Com Error -7FF8FFFB). [\xE2\x82\xAC]"));
    EXPECT_THAT(recorder.Lines(), IsEmpty());
}
