// What tests put in the place of the stand-in's system calls.
//
//     SystemCalls::Redirection const full(SystemCalls::Write, FailingWith(ENOSPC));
//     SystemCalls::Redirection const slow(SystemCalls::Read, Halting(SystemCalls::Read, 3));
#pragma once

#include "SystemCalls.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>

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

/// A transfer that is interrupted at every other call and moves at most so many bytes at the others.
template <class Call>
auto Halting(Call const& call, std::size_t most)
{
    return [&call, most, interrupted = false](int descriptor, auto* buffer, std::size_t count,
                                              auto... offset) mutable -> ssize_t
    {
        interrupted = !interrupted;
        return interrupted ? FailingWith(EINTR)() : call.host(descriptor, buffer, std::min(count, most), offset...);
    };
}

} // namespace Brindle::Vok::Testing
