// The one seam between the stand-in and the host's kernel: every system call goes through a name of this file. In the
// shipped library each name is a constant function pointer, so a call costs what a direct call costs. In the build
// that the tests link (VOK_SYSTEM_CALL_SEAM) a test can put a function of its own in its place, call by call:
//
//     SystemCalls::Redirection redirect(SystemCalls::Write, [](int, void const*, size_t) { errno = ENOSPC; return -1;
//     });
#pragma once

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <type_traits>
#include <unistd.h>

#ifdef VOK_SYSTEM_CALL_SEAM
#include <functional>
#include <utility>
#endif

namespace Brindle::Vok::Platform::SystemCalls
{

#ifdef VOK_SYSTEM_CALL_SEAM

template <class Signature>
class Call;

/// A system call that tests redirect. Redirecting while another thread calls is the test's own business.
template <class Result, class... Arguments>
class Call<Result(Arguments...)>
{
public:
    using Function = std::function<Result(Arguments...)>;

    Call(Result (*host)(Arguments...)) : host(host) {}

    Result operator()(Arguments... arguments) const
    {
        return replacement ? replacement(arguments...) : host(arguments...);
    }

    /// The host's own call, for a replacement that passes on.
    Result (*host)(Arguments...);
    Function replacement;
};

/// Puts a function in the place of a system call for one scope.
template <class Signature>
class Redirection
{
public:
    Redirection(Call<Signature>& call, typename Call<Signature>::Function function)
        : call(call), previous(std::exchange(call.replacement, std::move(function)))
    {
    }
    ~Redirection() { call.replacement = std::move(previous); }
    Redirection(Redirection const&) = delete;
    Redirection& operator=(Redirection const&) = delete;

private:
    Call<Signature>& call;
    typename Call<Signature>::Function previous;
};

template <class Signature, class Function>
Redirection(Call<Signature>&, Function) -> Redirection<Signature>;

#define VOK_SYSTEM_CALL(name, signature, host) inline Call<signature> name(host)

#else

#define VOK_SYSTEM_CALL(name, signature, host) inline constexpr std::add_pointer_t<signature> name = host

#endif

VOK_SYSTEM_CALL(Open, int(char const*, int, mode_t),
                [](char const* path, int flags, mode_t mode) { return ::open(path, flags, mode); });
VOK_SYSTEM_CALL(Close, int(int), [](int descriptor) { return ::close(descriptor); });
VOK_SYSTEM_CALL(Read, ssize_t(int, void*, size_t),
                [](int descriptor, void* buffer, size_t count) { return ::read(descriptor, buffer, count); });
VOK_SYSTEM_CALL(Write, ssize_t(int, void const*, size_t),
                [](int descriptor, void const* buffer, size_t count) { return ::write(descriptor, buffer, count); });
VOK_SYSTEM_CALL(GetRandom, ssize_t(void*, size_t, unsigned),
                [](void* buffer, size_t count, unsigned flags) { return ::getrandom(buffer, count, flags); });

} // namespace Brindle::Vok::Platform::SystemCalls
