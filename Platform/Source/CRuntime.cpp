#include "Ascii.h"

#include <Brindle/Platform/CRuntime.h>

#include <ctime>
#include <type_traits>

__time64_t _mktime64(struct tm* time) noexcept
{
    constexpr std::time_t lastOfYear3000 = 32'535'215'999; // UTC
    if (!time)
        return -1;
    std::tm normal = *time;
    std::time_t const seconds = std::mktime(&normal);
    if (seconds < 0 || seconds > lastOfYear3000)
        return -1;
    *time = normal;
    return seconds;
}

int _wcsicmp(wchar_t const* a, wchar_t const* b) noexcept
{
    using Unit = std::make_unsigned_t<wchar_t>;
    for (;; ++a, ++b)
    {
        if (*a != *b)
        {
            Unit const foldedA = static_cast<Unit>(Brindle::Vok::Platform::LowerCase(*a));
            Unit const foldedB = static_cast<Unit>(Brindle::Vok::Platform::LowerCase(*b));
            if (foldedA != foldedB)
                return foldedA < foldedB ? -1 : 1;
        }
        else if (*a == 0)
            return 0;
    }
}
