// Processes, their tokens, and threads that act as somebody else.
//
//     HANDLE const token = Brindle::Vok::Platform::OpenUserToken("nobody");    // of Host.h
//     if (ImpersonateLoggedOnUser(token))
//     {
//         …                                     // this thread alone is nobody, to the kernel and to every file
//         if (!RevertToSelf())
//             std::abort();
//     }
//     CloseHandle(token);
//
// A token holds a host's user with group and supplementary groups, as they were when it was opened. Impersonation
// changes the kernel's credentials of the calling thread: real and effective user and group, the supplementary groups,
// and no capability stays in effect unless the user is the process's own, whose ids stay as they are. Only the saved
// ids and the permitted capabilities lead back, so the thread can't signal or trace the process's owner meanwhile. But
// the impersonated user can signal that thread by its number, and so end the process: impersonate for short steps.
//
// The host gives a new thread the credentials of its maker. A thread that was started by one that impersonates
// impersonates too, until it calls RevertToSelf. The threads that the platform itself starts run as the process (or, if
// the kernel refused that, with no more rights than their maker had), but those that help with a search, which act as
// the searcher. A host that changes the user of the whole process does so while no thread impersonates.
//
// All functions may be called from any thread.
#pragma once

#include <Brindle/Platform/Types.h>

#define STANDARD_RIGHTS_REQUIRED 0x000F0000L

#define PROCESS_QUERY_INFORMATION 0x0400
#define PROCESS_QUERY_LIMITED_INFORMATION 0x1000

#define TOKEN_ASSIGN_PRIMARY 0x0001
#define TOKEN_DUPLICATE 0x0002
#define TOKEN_IMPERSONATE 0x0004
#define TOKEN_QUERY 0x0008
#define TOKEN_QUERY_SOURCE 0x0010
#define TOKEN_ADJUST_PRIVILEGES 0x0020
#define TOKEN_ADJUST_GROUPS 0x0040
#define TOKEN_ADJUST_DEFAULT 0x0080
#define TOKEN_ADJUST_SESSIONID 0x0100
#define TOKEN_ALL_ACCESS (STANDARD_RIGHTS_REQUIRED | 0x01FF)

using PHANDLE = HANDLE*;

enum TOKEN_INFORMATION_CLASS : int
{
    TokenType = 8,
    TokenSessionId = 12
};

enum TOKEN_TYPE : int
{
    TokenPrimary = 1,
    TokenImpersonation = 2
};

extern "C"
{
    VOK_PLATFORM_EXPORT DWORD WINAPI GetCurrentProcessId() noexcept;

    /// Values that stand for the calling process and for the calling thread. They need no closing, and CloseHandle
    /// refuses them.
    VOK_PLATFORM_EXPORT HANDLE WINAPI GetCurrentProcess() noexcept;
    VOK_PLATFORM_EXPORT HANDLE WINAPI GetCurrentThread() noexcept;

    /// A handle that stays with this process, whatever gets its number later. Null with ERROR_INVALID_PARAMETER for a
    /// process that isn't there, ERROR_ACCESS_DENIED if the kernel doesn't let the calling thread look into it
    /// (PROCESS_QUERY_INFORMATION; the limited right is for everybody) or for any other right. `inherit` has no effect.
    VOK_PLATFORM_EXPORT HANDLE WINAPI OpenProcess(DWORD access, BOOL inherit, DWORD processId) noexcept;

    /// The session (the host's, getsid) of a process. ERROR_INVALID_PARAMETER for one that isn't there, 0 among them,
    /// and for a null argument; ERROR_ACCESS_DENIED where the kernel refuses.
    VOK_PLATFORM_EXPORT BOOL WINAPI ProcessIdToSessionId(DWORD processId, DWORD* sessionId) noexcept;

    /// The token of a process: TokenPrimary. Of the calling one it is its real self also while a thread impersonates;
    /// of another one it is whom its first thread acts as. ERROR_INVALID_HANDLE for what isn't a process;
    /// ERROR_ACCESS_DENIED for a right that tokens don't have, for a process that has ended, and as OpenProcess for one
    /// that the calling thread may not look into. A `token` of null is ERROR_NOACCESS. Closed by CloseHandle, as all
    /// tokens.
    VOK_PLATFORM_EXPORT BOOL WINAPI OpenProcessToken(HANDLE process, DWORD access, PHANDLE token) noexcept;

    /// The token with which the calling thread impersonates: TokenImpersonation. ERROR_NO_TOKEN if it doesn't;
    /// ERROR_INVALID_HANDLE for anything but GetCurrentThread(); ERROR_ACCESS_DENIED for a right that tokens don't
    /// have; a `token` of null is ERROR_NOACCESS. `openAsSelf` makes no difference, as everybody may open what he is.
    VOK_PLATFORM_EXPORT BOOL WINAPI OpenThreadToken(HANDLE thread, DWORD access, BOOL openAsSelf,
                                                    PHANDLE token) noexcept;

    /// TokenType and TokenSessionId (4 bytes each; the session of the process whose token it is, or of the one that
    /// opened a user's). Needs TOKEN_QUERY (ERROR_ACCESS_DENIED). ERROR_INSUFFICIENT_BUFFER with the length needed;
    /// ERROR_INVALID_PARAMETER for another class; a `returnLength` of null is ERROR_NOACCESS.
    VOK_PLATFORM_EXPORT BOOL WINAPI GetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS informationClass,
                                                        LPVOID information, DWORD length, DWORD* returnLength) noexcept;

    /// Lets the calling thread act as the token's user, also if it impersonates already. The token was opened with
    /// TOKEN_QUERY, and with TOKEN_IMPERSONATE if it is a thread's or TOKEN_DUPLICATE if it is a primary one
    /// (ERROR_ACCESS_DENIED); it may be closed meanwhile. ERROR_PRIVILEGE_NOT_HELD if the kernel doesn't let the
    /// process do so, or would not let it come back. Whatever the failure, the thread is who it was before; if the
    /// kernel refuses even that, the process ends (std::terminate), so that no thread goes on with one user's rights
    /// beside another's.
    VOK_PLATFORM_EXPORT BOOL WINAPI ImpersonateLoggedOnUser(HANDLE token) noexcept;

    /// Lets the calling thread act as the process again. Succeeds on one that doesn't impersonate. When it fails
    /// the thread goes on as the impersonated user, with that user's rights alone; the rest as above.
    VOK_PLATFORM_EXPORT BOOL WINAPI RevertToSelf() noexcept;

    /// Nothing loads a user's profile, so there is none to unload: ERROR_INVALID_HANDLE.
    VOK_PLATFORM_EXPORT BOOL WINAPI UnloadUserProfile(HANDLE token, HANDLE profile) noexcept;
}
