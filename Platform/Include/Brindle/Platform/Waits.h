// Events, semaphores, and waiting for them.
//
//     HANDLE const stop = CreateEventW(nullptr, TRUE, FALSE, nullptr);       // null on failure
//     …
//     HANDLE const objects[] = {changes, stop};
//     DWORD const first = WaitForMultipleObjects(2, objects, FALSE, INFINITE);   // 0, 1 or WAIT_FAILED
//
// Everything may be called from any thread. An object is signalled or not; a wait that ends because of it takes the
// signal from an event that resets itself, and one from a semaphore's count. Of several objects that are signalled the
// first one of the list ends the wait. Names are the process's own: two calls with one name give two handles of one
// object. Times are in milliseconds.
//
// An event that an asynchronous operation was given (OVERLAPPED) is signalled by its completion, which waiting threads
// bring about themselves: they wait for the host's descriptor, of up to 64 operations in all.
#pragma once

#include <Brindle/Platform/Types.h>

#define INFINITE 0xFFFFFFFFU
#define MAXIMUM_WAIT_OBJECTS 64U
#define WAIT_OBJECT_0 0U
#define WAIT_ABANDONED_0 0x80U
#define WAIT_ABANDONED WAIT_ABANDONED_0
#define WAIT_TIMEOUT 258U
#define WAIT_FAILED 0xFFFFFFFFU

extern "C"
{
    /// Null on failure. An existing object of that name is given with ERROR_ALREADY_EXISTS as the last error, a new one
    /// with ERROR_SUCCESS, and the other arguments mean nothing then; ERROR_INVALID_HANDLE if it is a semaphore. A null
    /// or empty name is none. A security descriptor is refused with ERROR_NOT_SUPPORTED.
    VOK_PLATFORM_EXPORT HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState,
                                                   LPCWSTR name) noexcept;
    VOK_PLATFORM_EXPORT BOOL WINAPI SetEvent(HANDLE event) noexcept;
    VOK_PLATFORM_EXPORT BOOL WINAPI ResetEvent(HANDLE event) noexcept;

    /// The same for a semaphore, 0 <= initialCount <= maximumCount and 1 <= maximumCount, or ERROR_INVALID_PARAMETER.
    VOK_PLATFORM_EXPORT HANDLE WINAPI CreateSemaphoreW(LPSECURITY_ATTRIBUTES security, LONG initialCount,
                                                       LONG maximumCount, LPCWSTR name) noexcept;
    /// Adds to the count, 1 or more. `previousCount` may be null. ERROR_TOO_MANY_POSTS, and nothing changes, when that
    /// would exceed the maximum.
    VOK_PLATFORM_EXPORT BOOL WINAPI ReleaseSemaphore(HANDLE semaphore, LONG count, LPLONG previousCount) noexcept;

    /// WAIT_OBJECT_0, WAIT_TIMEOUT or WAIT_FAILED with the last error set.
    VOK_PLATFORM_EXPORT DWORD WINAPI WaitForSingleObject(HANDLE object, DWORD milliseconds) noexcept;
    /// WAIT_OBJECT_0 plus the place in the list of the first one that is signalled; with `all`, WAIT_OBJECT_0 once all
    /// of them are signalled at the same time, of which none is taken before. WAIT_FAILED with ERROR_INVALID_PARAMETER
    /// for none, for more than 64 and for one that comes twice with `all`, with ERROR_INVALID_HANDLE for what can't be
    /// waited for. To close a handle that another thread waits for doesn't end that wait.
    VOK_PLATFORM_EXPORT DWORD WINAPI WaitForMultipleObjects(DWORD count, HANDLE const* objects, BOOL all,
                                                            DWORD milliseconds) noexcept;
}
