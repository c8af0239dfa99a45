// Whether other processes of this host have files open through the library, told without asking file by file.
//
// Every process that opens a file, or wants to rely on being alone, makes itself known once, by a lock on a file that
// processes have in common. One that finds nobody else there knows all handles that there are, for as long as it holds
// a second lock: who makes itself known meanwhile sees that one and waits. The kernel keeps both, so they end with
// their process, whatever its end. A child that a fork made keeps its parent's presence, so it never relies.
//
// Not covered:
// - A deletion that stands still for more than a fifth of a second between its last look and the host's answer (a
//   stopped process, a stalled disk). A process that makes itself known just then no longer waits for it, and a file
//   that it opens may lose its name.
// - Who is seen by nobody: processes of another time namespace, without a /proc, or whose host refuses locks there;
//   children made without the C library; and for 10 milliseconds a process that closes descriptors it doesn't know.
#pragma once

#include <Brindle/Platform/Types.h>

namespace Brindle::Vok::Platform::OtherProcesses
{

/// Makes this process known, before a lock on a file. Costs two loads and a look at the clock when that is done. Zero,
/// or the platform's code when there is no descriptor left for it. One descriptor stays open from then on. Waits while
/// another process relies on being alone, a quarter of a second at most.
DWORD Announce() noexcept;

/// Asks others to wait. False when there are others, or when it can't be told. Calls are counted.
bool BeginRelyingOnNone() noexcept;
/// Whether there are still none, within BeginRelyingOnNone and EndRelyingOnNone: to be asked before each act that
/// relies on it. The host is asked every 10 milliseconds.
bool AreStillNone() noexcept;
void EndRelyingOnNone() noexcept;

} // namespace Brindle::Vok::Platform::OtherProcesses
