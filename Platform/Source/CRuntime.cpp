#include "Ascii.h"

#include <Brindle/Platform/CRuntime.h>

#include <type_traits>

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
