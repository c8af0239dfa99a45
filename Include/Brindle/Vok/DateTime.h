// Times of day and dates, parsed from wide text of one fixed form. No locale, calendar or time zone changes the result.
//
//     Time const time(L"12:34:56.5");    // 12, 34, 56, 500
//     Date const date(L"2021-12-31");    // 2021, 12, 31
//
// A text that isn't accepted makes the constructor throw, and so log, a WindowsError with ERROR_FUNCTION_FAILED. The
// code is the same for every fault; the message names the fault and holds the text. Not guaranteed: that the day is one
// that the month has, and that nothing stands behind a fraction of a second.
//
// Wide text alone is taken; Utf8ToWide of FormatString.h makes it from narrow text. There is no comparison and no
// formatting: use the members.
//
// Both are plain values: one object isn't synchronised, different objects are independent.
#pragma once

#include <Brindle/Vok/Platform.h>

#include <cstdint>
#include <string>

namespace Brindle::Vok
{

/// A time of day.
class VOK_EXPORT Time
{
public:
    /// Takes `HH:mm`, `HH:mm:ss` and `HH:mm:ss.fff`. Fewer than three digits of a fraction read as one: `.5` is 500
    /// milliseconds. More than three are refused, also when they are zeros. What follows the digits is ignored, so a
    /// bare `.` and suffixes like `.5Z` are accepted; `12:34:56Z` is not. White space (U+0009 to U+000D and blanks) and
    /// a sign in front of the digits are accepted and count as digits: `.-5` is -50 milliseconds, `. 5` is 50.
    Time(std::wstring const& text);

    std::int32_t hours = 0;        ///< 0 to 23
    std::int32_t minutes = 0;      ///< 0 to 59
    std::int32_t seconds = 0;      ///< 0 to 59
    std::int32_t milliseconds = 0; ///< 0 to 999; -99 to 0 behind a minus sign
};

/// A day of a calendar.
class VOK_EXPORT Date
{
public:
    /// Takes `yyyy-MM-dd`, ten code units and no more. The day isn't held against the month: `2021-02-31` is accepted.
    Date(std::wstring const& text);

    std::int32_t year = 0;  ///< 0 to 9999
    std::int32_t month = 0; ///< 1 to 12
    std::int32_t day = 0;   ///< 1 to 31
};

} // namespace Brindle::Vok
