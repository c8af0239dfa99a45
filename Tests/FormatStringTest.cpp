#include "Support/LogRecorder.h"

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/FormatString.h>

#include <gmock/gmock.h>

#include <new>

using namespace Brindle::Vok;
using Brindle::Vok::Testing::LogRecorder;
using testing::ElementsAre;
using testing::StartsWith;

namespace Legacy
{
class CString
{
public:
    explicit CString(std::wstring text) : text(std::move(text)) {}

private:
    std::wstring text;
    [[maybe_unused]] int somethingElse = 0;
};
} // namespace Legacy

namespace
{

struct Narrow
{
};

std::ostream& operator<<(std::ostream& stream, Narrow const&)
{
    return stream << "n\xC3\xA9";
}

enum Unscoped
{
    unscoped
};

std::ostream& operator<<(std::ostream& stream, Unscoped)
{
    return stream << "name";
}

struct Derived : Detail::WideStringAtl
{
    using Detail::WideStringAtl::WideStringAtl;
};

template <class Exception>
struct Throwing
{
    Exception exception;

    template <class Stream>
    friend Stream& operator<<(Stream&, Throwing const& value)
    {
        throw value.exception;
    }
};

std::wstring const wide = L"w\u00E9\xD83D\xDE00";
std::string const wideInUtf8 = "w\xC3\xA9\xF0\x9F\x98\x80";
std::string const narrow = "n\xC3\xA9";

} // namespace

TEST(FormatString, TakesEveryKindOfArgumentInBothWidths)
{
    auto const formatWide = [](wchar_t const* format, auto const&... arguments)
    { return WideToUtf8(FormatStringW(format, arguments...)); };
    Detail::WideStringAtl const atlWide(wide.c_str());
    Detail::NarrowStringAtl const atlNarrow(narrow.c_str());
    std::string const widened = "n\u00C3\u00A9"; // byte by byte, no decoding
    char const* const nullNarrow = nullptr;
    wchar_t* const nullWide = nullptr;
    std::pair<std::string, std::string> const cases[] = {
        {FormatString("{} {}", narrow, narrow.c_str()), narrow + " " + narrow},
        {FormatString("{} {}", wide, wide.c_str()), wideInUtf8 + " " + wideInUtf8},
        {FormatString("{} {} {}", nullNarrow, nullWide, nullptr), "(null) (null) (null)"},
        {FormatString("{}-{}-{}", "literal", L"literal", 'c'), "literal-literal-c"},
        {FormatString("{:>6}|{:.2}", L"ab", L"abc"), "    ab|ab"},
        {FormatString("{:X} {:X}", static_cast<HRESULT>(0x80004005U), 255U), "-7FFFBFFB FF"},
        {FormatString("{} {} {:.1f}", true, VokLogSeverity::info, 0.5), "true 3 0.5"},
        {FormatString("{} {}", atlWide, atlNarrow), wideInUtf8 + " " + narrow},
        {FormatString("{}", Legacy::CString(wide)), wideInUtf8},
        {FormatString("{} {}", Narrow(), WindowsError()), narrow + " Windows ERROR_SUCCESS"},
        {FormatString("a{}b", std::string("x\0y", 3)), "ax"}, // a text ends at the first NUL
        {formatWide(L"{} {}", wide, wide.c_str()), wideInUtf8 + " " + wideInUtf8},
        {formatWide(L"{} {}", narrow, narrow.c_str()), widened + " " + widened},
        {formatWide(L"{} {}", atlWide, atlNarrow), wideInUtf8 + " n\u00E9"},
        {formatWide(L"{} {}", Narrow(), WindowsError()), "n\u00E9 Windows ERROR_SUCCESS"},
        {formatWide(L"{} {} {}", Derived(L"d"), _bstr_t(L"b"), unscoped), "d b name"},
        {FormatString("{} {} {}", Derived(L"d"), _bstr_t(L"b"), unscoped), "d b name"},
    };
    for (auto const& [actual, expected] : cases)
        EXPECT_EQ(actual, expected);
}

TEST(FormatString, ABadFormatComesBackAsItIsAndIsLogged)
{
    LogRecorder const recorder;
    EXPECT_EQ(FormatString("{} and {}", 1), "{} and {}");
    EXPECT_EQ(FormatLogMessage(L"{} \u00E9 {}", 1), "{} \xC3\xA9 {}");
    EXPECT_EQ(FormatString("{}", Throwing<std::bad_alloc>()), "{}");
    EXPECT_EQ(FormatString(static_cast<char const*>(nullptr)), "");
    FormatString("{}", Throwing<std::system_error>{std::system_error(7, std::generic_category(), "why")});
    std::string const begin = "Brindle::Vok::Detail::HandleFormatExceptionGeneric: Failed to format formatString[";
    EXPECT_THAT(recorder.LinesWithFunction(),
                ElementsAre(StartsWith(begin + "{} and {}] msg["), StartsWith(begin + "{} \xC3\xA9 {}] msg["),
                            StartsWith(begin + "{}] msg["), StartsWith(begin + "(null)] msg["),
                            testing::EndsWith("] error_code[7]")));
    EXPECT_THROW(FormatString("{}", Throwing<int>{1}), int);
}

TEST(FormatString, ASystemErrorOutOfALogMessageHasAFixedText)
{
    SubscriptionForLogCallbacks const thrower(
        [](LogStatement const&) { throw std::system_error(7, std::generic_category()); }, VokLogSeverity::error);
    EXPECT_EQ(FormatLogMessage(L"{} {}", 1), "Failed to format log message");
}

TEST(Utf8Conversion, TakesNullAndAnyLengthAndLeavesTheLastErrorAlone)
{
    EXPECT_EQ(WideToUtf8(static_cast<wchar_t const*>(nullptr)), "");
    EXPECT_EQ(Utf8ToWide(static_cast<char const*>(nullptr)), L"");
    SetLastError(ERROR_INVALID_HANDLE);
    for (std::size_t const length : {0U, 127U, 128U, 129U})
    {
        std::string const narrowText = std::string(length, 'x') + "\xE2\x82\xAC";
        std::wstring const wideText = std::wstring(length, L'x') + L"\u20AC";
        EXPECT_EQ(WideToUtf8(wideText), narrowText);
        EXPECT_EQ(Utf8ToWide(narrowText), wideText);
    }
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
}
