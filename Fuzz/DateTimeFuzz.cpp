// Holds times and dates against the rules, transcribed with the C library's own reading of numbers.
#include <Brindle/Vok/DateTime.h>
#include <Brindle/Vok/Error.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <limits>
#include <string>
#include <vector>

using namespace Brindle::Vok;

namespace
{

/// The fields of an accepted text, or the words of the message for a refused one.
struct Outcome
{
    std::vector<std::int32_t> fields;
    std::string words;
};

Outcome Refused(char const* words)
{
    return {{}, words};
}

/// As where long has 32 bits.
std::int32_t ReadNumber(std::wstring const& text, std::size_t index, std::size_t* length = nullptr)
{
    wchar_t const* const begin = text.c_str() + index;
    wchar_t* end = nullptr;
    long const number = std::wcstol(begin, &end, 10);
    if (length != nullptr)
        *length = static_cast<std::size_t>(end - begin);
    using Limits = std::numeric_limits<std::int32_t>;
    return static_cast<std::int32_t>(std::clamp<long>(number, Limits::min(), Limits::max()));
}

bool IsDigit(std::wstring const& text, std::size_t index)
{
    return text[index] >= L'0' && text[index] <= L'9';
}

Outcome ReadTime(std::wstring const& text)
{
    if (text.length() < 5)
        return Refused("Too short to be a time [");
    if (!IsDigit(text, 0) || !IsDigit(text, 1) || text[2] != L':' || !IsDigit(text, 3) || !IsDigit(text, 4))
        return Refused("Invalid time [");
    std::int32_t const hours = ReadNumber(text, 0);
    if (hours > 23)
        return Refused("] hours out of range.");
    std::int32_t const minutes = ReadNumber(text, 3);
    if (minutes >= 60)
        return Refused("] minutes out of range.");
    std::int32_t seconds = 0;
    if (text.length() > 5)
    {
        if (text.length() < 8 || text[5] != L':' || !IsDigit(text, 6) || !IsDigit(text, 7))
            return Refused("Invalid time [");
        seconds = ReadNumber(text, 6);
        if (seconds >= 60)
            return Refused("] seconds out of range.");
    }
    if (text.length() < 9)
        return {{hours, minutes, seconds, 0}, {}};
    if (text[8] != L'.')
        return Refused("Invalid time [");
    std::size_t n = 0;
    std::int32_t milliseconds = ReadNumber(text, 9, &n);
    if (n > 3)
        return Refused("Time not parsed as would lose sub-millisecond precision [");
    for (std::size_t i = n; i < 3; ++i)
        milliseconds *= 10;
    return {{hours, minutes, seconds, milliseconds}, {}};
}

Outcome ReadDate(std::wstring const& text)
{
    if (text.length() != 10)
        return Refused("Wrong length to be a date [");
    for (std::size_t const index : {0U, 1U, 2U, 3U, 5U, 6U, 8U, 9U})
    {
        if (!IsDigit(text, index))
            return Refused("]. Should be yyyy-MM-dd");
    }
    if (text[4] != L'-' || text[7] != L'-')
        return Refused("]. Should be yyyy-MM-dd");
    std::int32_t const month = ReadNumber(text, 5);
    if (month < 1 || month > 12)
        return Refused("] Month should be between 1 and 12.");
    std::int32_t const day = ReadNumber(text, 8);
    if (day < 1 || day > 31)
        return Refused("] Days should be between 1 and 31.");
    return {{ReadNumber(text, 0), month, day}, {}};
}

std::vector<std::int32_t> Fields(Time const& time)
{
    return {time.hours, time.minutes, time.seconds, time.milliseconds};
}

std::vector<std::int32_t> Fields(Date const& date)
{
    return {date.year, date.month, date.day};
}

template <class Value>
void Check(std::wstring const& text, Outcome const& expected)
{
    try
    {
        if (Fields(Value(text)) != expected.fields)
            std::abort();
    }
    catch (WindowsError const& error)
    {
        // A message ends at a NUL in the text, which stands in it.
        bool const isWhole = text.find(L'\0') == std::wstring::npos;
        bool const saysSo = !isWhole || error.Message().find(expected.words) != std::string::npos;
        if (expected.words.empty() || error.code().value() != ERROR_FUNCTION_FAILED || !saysSo)
        {
            std::fputs(error.what(), stderr);
            std::abort();
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    std::wstring const text(data, data + size);
    Check<Time>(text, ReadTime(text));
    Check<Date>(text, ReadDate(text));
    return 0;
}
