// Functions of the platform's C runtime that the host's lacks. They may be called from any thread.
#pragma once

#include <Brindle/Platform/Types.h>

#include <ctime>

using __time64_t = long long;

extern "C"
{
    /// Compares up to the first NUL, code unit by code unit by value, folded to lower case: negative, 0 or positive.
    /// A to Z fold in each locale, other letters as the calling thread's has it (setlocale, uselocale), in the "C" one
    /// not at all. Neither argument may be null.
    VOK_PLATFORM_EXPORT int _wcsicmp(wchar_t const* a, wchar_t const* b) noexcept;

    /// Seconds since 1970-01-01 UTC of a local time, and brings its fields into their ranges. A negative tm_isdst lets
    /// the time zone decide; of a time that daylight saving leaves out or repeats it takes either reading, and not
    /// always the same one. -1 for a time before 1970 or behind the year 3000, both in UTC, which stays as it is, and
    /// for null.
    VOK_PLATFORM_EXPORT __time64_t _mktime64(struct tm* time) noexcept;
}
