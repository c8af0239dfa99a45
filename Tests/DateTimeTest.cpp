// Times and dates: the accepted texts with their fields, the refused ones with the whole message.
#include "Support/LogRecorder.h"

#include <Brindle/Vok/DateTime.h>
#include <Brindle/Vok/Error.h>

#include <gmock/gmock.h>

#include <string>
#include <type_traits>
#include <vector>

using namespace Brindle::Vok;
using Brindle::Vok::Testing::LogRecorder;
using testing::ElementsAre;

namespace
{

std::vector<int> Fields(Time const& time)
{
    return {time.hours, time.minutes, time.seconds, time.milliseconds};
}

std::vector<int> Fields(Date const& date)
{
    return {date.year, date.month, date.day};
}

/// The text that the library adds to location and code when it refuses this one; `{}` stands for the refused text.
template <class Value>
void ExpectRefusal(std::wstring const& text, std::string message)
{
    message.replace(message.find("{}"), 2, WideToUtf8(text));
    std::string const function = std::is_same_v<Value, Time> ? "Time::Time" : "Date::Date";
    LogRecorder recorder;
    try
    {
        Value const value(text);
        ADD_FAILURE() << "accepted: " << WideToUtf8(text);
    }
    catch (WindowsError const& error)
    {
        EXPECT_EQ(error.code(), std::error_code(1627, std::system_category()));
        EXPECT_THAT(error.Message(), testing::MatchesRegex(R"(Source/Vok/DateTime\.cpp\([0-9]+\): .*)"));
        EXPECT_THAT(error.Message(), testing::HasSubstr("): Brindle::Vok::" + function + " "));
        EXPECT_THAT(error.Message(), testing::EndsWith(" (Windows Error 1627). " + message));
        EXPECT_THAT(recorder.Lines(), ElementsAre("error: Throwing " + error.Message()));
    }
}

} // namespace

TEST(Time, ReadsAcceptedTexts)
{
    struct
    {
        wchar_t const* text;
        std::vector<int> fields;
    } const cases[] = {
        {L"00:00", {0, 0, 0, 0}},
        {L"23:59", {23, 59, 0, 0}},
        {L"12:34:56", {12, 34, 56, 0}},
        {L"12:34:56.", {12, 34, 56, 0}},
        {L"12:34:56.1", {12, 34, 56, 100}},
        {L"12:34:56.12", {12, 34, 56, 120}},
        {L"12:34:56.123", {12, 34, 56, 123}},
        {L"12:34:56.5Z", {12, 34, 56, 500}},
        {L"12:34:56.123+01:00", {12, 34, 56, 123}},
        {L"12:34:56.x", {12, 34, 56, 0}},
        {L"12:34:56. 5", {12, 34, 56, 50}},
        {L"12:34:56.\t\n5", {12, 34, 56, 5}},
        {L"12:34:56.-5", {12, 34, 56, -50}},
        {L"12:34:56.-05", {12, 34, 56, -5}},
        {L"12:34:56.+1", {12, 34, 56, 10}},
        {L"12:34:56. - 5", {12, 34, 56, 0}},
        {L"12:34:56.\x2003"
         L"5",
         {12, 34, 56, 0}}, // white space of some locales only
        {L"12:34:56.\xFF15", {12, 34, 56, 0}},
    };
    for (auto const& each : cases)
        EXPECT_EQ(Fields(Time(each.text)), each.fields) << WideToUtf8(each.text);
    EXPECT_EQ(Fields(Time(std::wstring(L"12:34:56.5\0"
                                       L"5",
                                       12))),
              (std::vector<int>{12, 34, 56, 500}));
}

TEST(Time, RefusesWithTheFirstFailedCheck)
{
    struct
    {
        char const* message;
        std::vector<wchar_t const*> texts;
    } const cases[] = {
        {"Too short to be a time [{}].", {L"", L"1", L"12:3"}},
        {"Invalid time [{}].",
         {L"1a:00", L"12-34", L"12:3a", L"1:23:45", L"-1:00", L" 1:00", L"12:34:", L"12:34:5", L"12:34 ", L"12:34x56",
          L"12:34:5a", L"12:34:56x", L"12:34:56 ", L"12:00:00Z", L"12:00:00+01:00", L"12:000001", L"12:34:0012",
          L"1\xFF12:34"}},
        {"Invalid time [{}] hours out of range.", {L"24:00", L"99:99"}},
        // Numbers that would fit a field if they were cut to 32 bits don't get through.
        {"Invalid time [{}] minutes out of range.",
         {L"23:60", L"12:345", L"12:34567", L"12:344294967300", L"12:004294967300", L"12:99999999999999999999999"}},
        {"Invalid time [{}] seconds out of range.",
         {L"12:34:60", L"12:34:567", L"12:34:4294967300", L"12:34:18446744073709551616"}},
        {"Time not parsed as would lose sub-millisecond precision [{}].",
         {L"12:34:56.1234", L"12:34:56.0000", L"12:34:56.00500", L"12:34:56.1234Z", L"12:34:56.-123", L"12:34:56.   1",
          L"12:34:56.99999999999999999999"}},
    };
    for (auto const& each : cases)
    {
        for (wchar_t const* text : each.texts)
            ExpectRefusal<Time>(text, each.message);
    }
}

TEST(Date, ReadsAcceptedTexts)
{
    EXPECT_THAT(Fields(Date(L"2021-12-31")), ElementsAre(2021, 12, 31));
    EXPECT_THAT(Fields(Date(L"0000-01-01")), ElementsAre(0, 1, 1));
    EXPECT_THAT(Fields(Date(L"9999-12-31")), ElementsAre(9999, 12, 31));
    EXPECT_THAT(Fields(Date(L"2021-02-31")), ElementsAre(2021, 2, 31));
}

TEST(Date, RefusesWithTheFirstFailedCheck)
{
    struct
    {
        char const* message;
        std::vector<wchar_t const*> texts;
    } const cases[] = {
        {"Wrong length to be a date [{}].", {L"", L"2021-1-01", L"2021-01-1", L"2021-01-011"}},
        {"Invalid date [{}]. Should be yyyy-MM-dd",
         {L"2021/01/01", L"21-01-2021", L"2021-01-1x", L"abcd-01-01", L"2021-01- 1", L"+021-01-01"}},
        {"Invalid date [{}] Month should be between 1 and 12.", {L"2021-13-01", L"2021-00-01", L"2021-13-99"}},
        {"Invalid date [{}] Days should be between 1 and 31.", {L"2021-01-32", L"2021-01-00"}},
    };
    for (auto const& each : cases)
    {
        for (wchar_t const* text : each.texts)
            ExpectRefusal<Date>(text, each.message);
    }
}
