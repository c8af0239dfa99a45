// Threads that sleep until something happens and then tell of it at once.
#pragma once

namespace Brindle::Vok::Platform
{

/// Asks the host to give the calling thread short turns. Such a thread runs as soon as it is woken, also where another
/// one is in the middle of its turn, and gets no more of the processor for it. The threads and processes that it starts
/// inherit this like a nice value: the host keeps it from them only by taking the right to change its own policy from
/// the thread. Only for a thread with the default policy that isn't favoured otherwise. Where the host doesn't know of
/// turns or refuses, nothing changes.
void AskForShortTurns() noexcept;

} // namespace Brindle::Vok::Platform
