#include <Brindle/Vok/DateTime.h>

#include <Brindle/Vok/Error.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

namespace Brindle::Vok
{
namespace
{

using Fault = wchar_t const*;
constexpr Fault none = nullptr;

bool IsDigit(wchar_t unit)
{
    return unit >= L'0' && unit <= L'9';
}

/// Whether the text goes on from `position` as the form says, in which 0 stands for any digit.
bool HasForm(std::wstring_view text, std::size_t position, std::wstring_view form)
{
    auto const fits = [](wchar_t unit, wchar_t wanted) { return wanted == L'0' ? IsDigit(unit) : unit == wanted; };
    std::wstring_view const part = text.substr(position, form.size());
    return std::equal(part.begin(), part.end(), form.begin(), form.end(), fits);
}

struct Number
{
    std::int32_t value = 0;
    std::size_t length = 0; ///< code units that it took, 0 if there is no digit
};

/// Reads as wcstol does where long has 32 bits and the locale is "C": white space, a sign, and all the digits that
/// follow, whatever the width of the field; too great a number becomes the greatest one.
Number ReadNumber(std::wstring_view text)
{
    constexpr std::int64_t maximum = std::numeric_limits<std::int32_t>::max();
    std::size_t position = std::min(text.find_first_not_of(L" \t\n\v\f\r"), text.size());
    bool const isNegative = position < text.size() && text[position] == L'-';
    if (isNegative || (position < text.size() && text[position] == L'+'))
        ++position;
    std::size_t const begin = position;
    std::int64_t value = 0;
    for (; position < text.size() && IsDigit(text[position]); ++position)
        value = std::min(value * 10 + (text[position] - L'0'), maximum + 1);
    if (position == begin)
        return {};
    value = isNegative ? -value : std::min(value, maximum);
    return {static_cast<std::int32_t>(value), position};
}

Fault ParseFraction(std::wstring_view text, Time& time)
{
    Number const number = ReadNumber(text);
    if (number.length > 3)
        return L"Time not parsed as would lose sub-millisecond precision [{}].";
    time.milliseconds = number.value;
    for (std::size_t length = number.length; length < 3; ++length)
        time.milliseconds *= 10;
    return none;
}

/// The order of the checks decides what is reported: a number may be out of range because it goes on where the form
/// says that it should not.
Fault Parse(std::wstring_view text, Time& time)
{
    constexpr Fault invalid = L"Invalid time [{}].";
    if (text.size() < 5)
        return L"Too short to be a time [{}].";
    if (!HasForm(text, 0, L"00:00"))
        return invalid;
    time.hours = ReadNumber(text).value;
    if (time.hours > 23)
        return L"Invalid time [{}] hours out of range.";
    time.minutes = ReadNumber(text.substr(3)).value;
    if (time.minutes >= 60)
        return L"Invalid time [{}] minutes out of range.";
    if (text.size() == 5)
        return none;
    if (!HasForm(text, 5, L":00"))
        return invalid;
    time.seconds = ReadNumber(text.substr(6)).value;
    if (time.seconds >= 60)
        return L"Invalid time [{}] seconds out of range.";
    if (text.size() == 8)
        return none;
    if (text[8] != L'.')
        return invalid;
    return ParseFraction(text.substr(9), time);
}

Fault Parse(std::wstring_view text, Date& date)
{
    if (text.size() != 10)
        return L"Wrong length to be a date [{}].";
    if (!HasForm(text, 0, L"0000-00-00"))
        return L"Invalid date [{}]. Should be yyyy-MM-dd";
    date.year = ReadNumber(text).value;
    date.month = ReadNumber(text.substr(5)).value;
    if (date.month < 1 || date.month > 12)
        return L"Invalid date [{}] Month should be between 1 and 12.";
    date.day = ReadNumber(text.substr(8)).value;
    if (date.day < 1 || date.day > 31)
        return L"Invalid date [{}] Days should be between 1 and 31.";
    return none;
}

} // namespace

Time::Time(std::wstring const& text)
{
    if (Fault const fault = Parse(text, *this); fault != none)
        VOK_THROW(WindowsError, ERROR_FUNCTION_FAILED, fault, text);
}

Date::Date(std::wstring const& text)
{
    if (Fault const fault = Parse(text, *this); fault != none)
        VOK_THROW(WindowsError, ERROR_FUNCTION_FAILED, fault, text);
}

} // namespace Brindle::Vok
