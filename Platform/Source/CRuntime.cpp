#include <Brindle/Platform/CRuntime.h>

#include <type_traits>

namespace
{

using Unit = std::make_unsigned_t<wchar_t>;

Unit Folded(wchar_t unit)
{
    return static_cast<Unit>(unit >= L'A' && unit <= L'Z' ? unit - L'A' + L'a' : unit);
}

} // namespace

int _wcsicmp(wchar_t const* a, wchar_t const* b) noexcept
{
    for (;; ++a, ++b)
    {
        if (*a != *b)
        {
            Unit const foldedA = Folded(*a);
            Unit const foldedB = Folded(*b);
            if (foldedA != foldedB)
                return foldedA < foldedB ? -1 : 1;
        }
        else if (*a == 0)
            return 0;
    }
}
