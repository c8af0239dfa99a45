// What a fuzzer finds: the process aborts where something doesn't hold.
#pragma once

#include <cstdio>
#include <cstdlib>

inline void Require(bool holds, char const* what = "Something doesn't hold")
{
    if (holds)
        return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}
