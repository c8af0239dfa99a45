#include <Brindle/Platform/Com.h>

#include <algorithm>
#include <cstdlib>

LPVOID CoTaskMemAlloc(SIZE_T size) noexcept
{
    return std::malloc(std::max<SIZE_T>(size, 1));
}

void CoTaskMemFree(LPVOID memory) noexcept
{
    std::free(memory);
}
