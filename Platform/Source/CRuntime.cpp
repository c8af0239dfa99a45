#include "Ascii.h"

#include <Brindle/Platform/CRuntime.h>

#include <ctime>
#include <cwctype>

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

namespace
{

// A to Z apart, as some locales of the host turn an I into a small letter without a dot, and the platform's don't.
std::wint_t Folded(wchar_t unit) noexcept
{
    auto const value = static_cast<std::wint_t>(unit);
    return value < 0x80 ? Brindle::Vok::Platform::LowerCase(value) : std::towlower(value);
}

} // namespace

int _wcsicmp(wchar_t const* a, wchar_t const* b) noexcept
{
    for (;; ++a, ++b)
    {
        if (*a != *b)
        {
            std::wint_t const foldedA = Folded(*a);
            std::wint_t const foldedB = Folded(*b);
            if (foldedA != foldedB)
                return foldedA < foldedB ? -1 : 1;
        }
        else if (*a == 0)
            return 0;
    }
}
