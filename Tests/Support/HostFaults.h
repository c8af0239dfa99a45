// What tests put in the place of the stand-in's system calls.
//
//     SystemCalls::Redirection const full(SystemCalls::Write, FailingWith(ENOSPC));
#pragma once

#include "SystemCalls.h"

#include <cerrno>

namespace Brindle::Vok::Testing
{

namespace SystemCalls = Platform::SystemCalls;

inline auto FailingWith(int error)
{
    return [error](auto...)
    {
        errno = error;
        return -1;
    };
}

inline constexpr int always = 1'000'000;

/// Fails so many calls from the one of that number on, which counts from 0. The others are the host's own.
template <class Call>
auto FailingAt(Call const& call, int first, int error, int count = 1)
{
    return [&call, first, error, last = first + count, calls = 0](auto... arguments) mutable
    {
        int const number = calls++;
        return number < first || number >= last ? call.host(arguments...) : FailingWith(error)();
    };
}

} // namespace Brindle::Vok::Testing
