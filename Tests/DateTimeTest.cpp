// Times and dates: the accepted texts with their fields, the refused ones with the whole message.
#include "Support/Failures.h"

#include <Brindle/Vok/DateTime.h>

#include <string>
#include <type_traits>
#include <vector>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;

namespace
{

/// The text that the library adds to location and code when it refuses this one; `{}` stands for the refused text.
template <class Value>
void ExpectRefusal(std::wstring const& text, std::string message)
{
    message.replace(message.find("{}"), 2, WideToUtf8(text));
    LogRecorder const recorder;
    auto const error = Thrown<WindowsError>([&] { Value const value(text); });
    ExpectFailure(error, "DateTime", std::is_same_v<Value, Time> ? "Time::Time" : "Date::Date", 1627, message);
    EXPECT_THAT(recorder.Lines(), testing::ElementsAre("error: Throwing " + error.Message()));
}

} // namespace

TEST(Time, ReadsAcceptedTexts)
{
    std::pair<wchar_t const*, std::vector<int>> const cases[] = {
        {L"00:00", {0, 0, 0, 0}},
        {L"12:34:56.1", {12, 34, 56, 100}},
        {L"12:34:56.123+01:00", {12, 34, 56, 123}},
        {L"12:34:56.x", {12, 34, 56, 0}},
        {L"12:34:56.\t\n5", {12, 34, 56, 5}},
        {L"12:34:56.-05", {12, 34, 56, -5}},
        {L"12:34:56.+1", {12, 34, 56, 10}},
        {L"12:34:56. - 5", {12, 34, 56, 0}},
        {L"12:34:56.\u20035", {12, 34, 56, 0}}, // white space of some locales only
    };
    for (auto const& [text, fields] : cases)
    {
        Time const time(text);
        EXPECT_EQ((std::vector<int>{time.hours, time.minutes, time.seconds, time.milliseconds}), fields);
    }
}

TEST(Time, RefusesWithTheFirstFailedCheck)
{
    std::pair<char const*, std::vector<wchar_t const*>> const cases[] = {
        {"Too short to be a time [{}].", {L"", L"12:3"}},
        {"Invalid time [{}].",
         {L"1a:00", L"12-34", L"1:23:45", L" 1:00", L"12:34:5", L"12:34x56", L"12:34:56x", L"12:00:00Z",
          L"1\xFF12:34"}},
        {"Invalid time [{}] hours out of range.", {L"24:00", L"99:99"}},
        // Numbers that would fit a field if they were cut to 32 bits don't get through.
        {"Invalid time [{}] minutes out of range.", {L"23:60", L"12:345", L"12:344294967300"}},
        {"Invalid time [{}] seconds out of range.", {L"12:34:60", L"12:34:18446744073709551616"}},
        {"Time not parsed as would lose sub-millisecond precision [{}].",
         {L"12:34:56.0000", L"12:34:56.1234Z", L"12:34:56.-123", L"12:34:56.99999999999999999999"}},
    };
    for (auto const& [message, texts] : cases)
        for (wchar_t const* text : texts)
            ExpectRefusal<Time>(text, message);
}

TEST(Date, ReadsWhateverDayAMonthMayHave)
{
    Date const date(L"2021-02-31");
    EXPECT_TRUE(date.year == 2021 && date.month == 2 && date.day == 31);
}

TEST(Date, RefusesWithTheFirstFailedCheck)
{
    std::pair<char const*, std::vector<wchar_t const*>> const cases[] = {
        {"Wrong length to be a date [{}].", {L"", L"2021-1-01", L"2021-01-011"}},
        {"Invalid date [{}]. Should be yyyy-MM-dd", {L"2021/01/01", L"2021-01-1x", L"+021-01-01"}},
        {"Invalid date [{}] Month should be between 1 and 12.", {L"2021-13-99", L"2021-00-01"}},
        {"Invalid date [{}] Days should be between 1 and 31.", {L"2021-01-32", L"2021-01-00"}},
    };
    for (auto const& [message, texts] : cases)
        for (wchar_t const* text : texts)
            ExpectRefusal<Date>(text, message);
}
