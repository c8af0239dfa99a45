// Holds times and dates against the C library's own reading of their numbers, and refusals against the whole message.
#include <Brindle/Vok/DateTime.h>
#include <Brindle/Vok/Error.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <initializer_list>
#include <limits>
#include <string>

using namespace Brindle::Vok;

namespace
{

/// As where long has 32 bits. There is no number behind the text's end.
std::int32_t Read(std::wstring const& text, std::size_t index, std::size_t* length = nullptr)
{
    using Limits = std::numeric_limits<std::int32_t>;
    wchar_t const* const begin = text.c_str() + std::min(index, text.size());
    wchar_t* end = nullptr;
    long const value = std::clamp<long>(std::wcstol(begin, &end, 10), Limits::min(), Limits::max());
    if (length != nullptr)
        *length = static_cast<std::size_t>(end - begin);
    return static_cast<std::int32_t>(value);
}

/// Whether the text goes on as the form says, with 0 for any digit.
bool HasForm(std::wstring text, std::size_t index, std::wstring const& form)
{
    std::replace_if(
        text.begin(), text.end(), [](wchar_t unit) { return unit >= L'1' && unit <= L'9'; }, L'0');
    return text.compare(index, form.size(), form) == 0;
}

/// A reason to refuse a text, and the message for it.
struct Check
{
    bool fails;
    char const* message;
};

std::string Fields(Time const& time)
{
    return FormatString("{} {} {} {}", time.hours, time.minutes, time.seconds, time.milliseconds);
}

std::string Fields(Date const& date)
{
    return FormatString("{} {} {}", date.year, date.month, date.day);
}

/// Expects the message of the first check that fails, or else the fields.
template <class Value>
void Expect(std::wstring const& text, char const* function, std::initializer_list<Check> checks, std::string expected)
{
    auto const* const failed =
        std::find_if(checks.begin(), checks.end(), [](Check const& check) { return check.fails; });
    if (failed != checks.end())
        expected = FormatString("Source/Vok/DateTime.cpp(): Brindle::Vok::{} {} (Windows Error 1627). {}", function,
                                WindowsErrorToStringA(1627), FormatString(failed->message, text));
    std::string actual;
    try
    {
        actual = Fields(Value(text));
    }
    catch (WindowsError const& error)
    {
        actual = error.Message();
        std::size_t const line = actual.find('(') + 1;
        actual.erase(line, actual.find(')') - line);
    }
    if (actual == expected)
        return;
    std::fputs(FormatString("[{}]\nexpected: {}\nactual:   {}\n", text, expected, actual).c_str(), stderr);
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    std::wstring const text(data, data + size);
    std::int32_t const hours = Read(text, 0);
    std::int32_t const minutes = Read(text, 3);
    std::int32_t const seconds = Read(text, 6);
    std::size_t length = 0;
    std::int32_t const fraction = Read(text, 9, &length);
    std::int32_t const milliseconds = fraction * (length == 1 ? 100 : length == 2 ? 10 : 1);
    Expect<Time>(text, "Time::Time",
                 {{text.size() < 5, "Too short to be a time [{}]."},
                  {!HasForm(text, 0, L"00:00"), "Invalid time [{}]."},
                  {hours > 23, "Invalid time [{}] hours out of range."},
                  {minutes > 59, "Invalid time [{}] minutes out of range."},
                  {text.size() > 5 && !HasForm(text, 5, L":00"), "Invalid time [{}]."},
                  {seconds > 59, "Invalid time [{}] seconds out of range."},
                  {text.size() > 8 && text[8] != L'.', "Invalid time [{}]."},
                  {length > 3, "Time not parsed as would lose sub-millisecond precision [{}]."}},
                 FormatString("{} {} {} {}", hours, minutes, seconds, milliseconds));

    std::int32_t const month = Read(text, 5);
    std::int32_t const day = Read(text, 8);
    Expect<Date>(text, "Date::Date",
                 {{text.size() != 10, "Wrong length to be a date [{}]."},
                  {!HasForm(text, 0, L"0000-00-00"), "Invalid date [{}]. Should be yyyy-MM-dd"},
                  {month < 1 || month > 12, "Invalid date [{}] Month should be between 1 and 12."},
                  {day < 1 || day > 31, "Invalid date [{}] Days should be between 1 and 31."}},
                 FormatString("{} {} {}", Read(text, 0), month, day));
    return 0;
}
