// Threads of the stand-in's own.
#pragma once

#include "SystemCalls.h"

#include <pthread.h>

namespace Brindle::Vok::Platform
{

/// With all signals blocked but those of faults of the thread's own: the host's handlers run on the host's threads.
inline bool StartThread(pthread_t& thread, void* (*run)(void*), void* argument, bool isDetached = false) noexcept
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return false;
    sigset_t blocked;
    sigfillset(&blocked);
    for (int const fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS})
        sigdelset(&blocked, fault);
    int const state = isDetached ? PTHREAD_CREATE_DETACHED : PTHREAD_CREATE_JOINABLE;
    bool const started = pthread_attr_setsigmask_np(&attributes, &blocked) == 0 &&
                         pthread_attr_setdetachstate(&attributes, state) == 0 &&
                         SystemCalls::StartThread(&thread, &attributes, run, argument) == 0;
    pthread_attr_destroy(&attributes);
    return started;
}

} // namespace Brindle::Vok::Platform
