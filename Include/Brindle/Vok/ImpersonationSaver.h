// Puts the impersonation of the calling thread back at the end of a scope.
//
//     ImpersonationSaver saver;                                      // remembers how the thread impersonates now
//     bool const done = ImpersonateLoggedOnUser(token) != FALSE;
//     saver.SetImpersonationOccurred(done);                          // not done: the thread is left alone at the end
//     …
//     // here the thread is as it was before, or acts as the process if that can't be had
//
// Nothing is thrown for a failure of the platform: the log tells of it. A saver lives on one thread's stack; several on
// one thread nest as scopes do.
#pragma once

#include <Brindle/Vok/VokAccessToken.h>

namespace Brindle::Vok
{

/// Captures the impersonation of the thread that makes it, and puts that back in the end. It lives on that thread's
/// stack.
class VOK_EXPORT ImpersonationSaver
{
public:
    /// Captures the thread's impersonation. If that fails there is nothing to put back: the thread acts as the process
    /// at the end.
    ImpersonationSaver();
    /// Stops whatever impersonation the thread has by now, and starts the captured one again. Each step's failure is
    /// logged at error and the next one made; a statement at info that it succeeded follows in any case. A subscriber
    /// of the log that throws ends the process.
    ~ImpersonationSaver() noexcept;
    ImpersonationSaver(ImpersonationSaver const&) = delete;
    ImpersonationSaver& operator=(ImpersonationSaver const&) = delete;

    /// Reports whether the thread's identity was changed; without a report it counts as changed. The first report
    /// decides, by whether it is 1: TRUE, not any other value. Later ones, by whether they are not 0, can only say that
    /// it was.
    void SetImpersonationOccurred(int occurred);

    /// Whether the thread impersonated when the saver was made.
    bool WasImpersonating() const;

private:
    bool impersonationOccurred = true;
    bool occurredReported = false;
    VokAccessToken savedToken;
};

} // namespace Brindle::Vok
