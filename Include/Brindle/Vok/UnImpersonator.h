// The calling thread acts as the process for the length of one scope, whomever it impersonates.
//
//     {
//         UnImpersonator const asProcess;
//         …                                // with the process's own rights
//     }
//     // impersonating as before
//
// The object doesn't tell whether impersonation could be stopped: the log does. On a thread that doesn't impersonate it
// changes nothing, but what impersonation begins in its scope ends with it. It lives on one thread's stack and touches
// no other thread.
#pragma once

#include <Brindle/Vok/ImpersonationSaver.h>

namespace Brindle::Vok
{

/// Stops the impersonation of the thread that makes it for as long as it lives, on that thread's stack.
class VOK_EXPORT UnImpersonator
{
public:
    /// Saves the thread's impersonation and stops it. If it can't be captured it is not stopped, but it isn't put back
    /// at the end either: the thread acts as the process then.
    UnImpersonator();
    /// Puts it back, as the destructor of ImpersonationSaver does.
    ~UnImpersonator();
    UnImpersonator(UnImpersonator const&) = delete;
    UnImpersonator& operator=(UnImpersonator const&) = delete;

private:
    ImpersonationSaver saver;
};

} // namespace Brindle::Vok
