// Asynchronous operations, of which there is one: learning of the changes in a directory.
//
//     HANDLE const directory = CreateFileW(path, FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
//                                          OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED, nullptr);
//     OVERLAPPED overlapped = {};
//     overlapped.hEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
//     ReadDirectoryChangesW(directory, buffer, sizeof buffer, FALSE, FILE_NOTIFY_CHANGE_FILE_NAME, nullptr,
//                           &overlapped, nullptr);
//     WaitForSingleObject(overlapped.hEvent, INFINITE);
//     DWORD count = 0;
//     GetOverlappedResult(directory, &overlapped, &count, FALSE);      // 0 bytes: look at the directory yourself
//
// From the first reading on the host keeps what changes, up to fs.inotify.max_queued_events, also between readings.
// What doesn't fit into a buffer comes with the next one; only when the host's own queue is full are changes lost, and
// then a reading gives 0 bytes in their place.
//
// What comes of what happens: a name that is made, linked or moved in is added; one that is deleted or moved out is
// removed; a renaming within the directory is two records next to each other; one that replaces a name tells nothing
// else of the name that it replaced. A write, or a truncation, or a modification time that is set alone, is modified:
// at once, and while a file is written again and again every 5 milliseconds at most, unless names change meanwhile or
// hundreds of files are written like that; the last write is always followed by one. A write through a mapping isn't
// seen. A directory that is deleted or renamed while it is watched ends the reading, and each later one, with
// ERROR_ACCESS_DENIED, within a tenth of a second. That isn't seen where its parent can't be read, where another
// directory on the way to it is renamed, and where its file system is taken away from under it: all that is open keeps
// that from ending. The host's /proc is needed.
//
// A child process made by fork has none of its parent's readings: there they never end. It may close the handles, and
// read the changes from then on through them.
#pragma once

#include <Brindle/Platform/Types.h>

#define FILE_NOTIFY_CHANGE_FILE_NAME 0x00000001U
#define FILE_NOTIFY_CHANGE_DIR_NAME 0x00000002U
#define FILE_NOTIFY_CHANGE_ATTRIBUTES 0x00000004U
#define FILE_NOTIFY_CHANGE_SIZE 0x00000008U
#define FILE_NOTIFY_CHANGE_LAST_WRITE 0x00000010U
#define FILE_NOTIFY_CHANGE_LAST_ACCESS 0x00000020U
#define FILE_NOTIFY_CHANGE_CREATION 0x00000040U
#define FILE_NOTIFY_CHANGE_SECURITY 0x00000100U

#define FILE_ACTION_ADDED 0x00000001U
#define FILE_ACTION_REMOVED 0x00000002U
#define FILE_ACTION_MODIFIED 0x00000003U
#define FILE_ACTION_RENAMED_OLD_NAME 0x00000004U
#define FILE_ACTION_RENAMED_NEW_NAME 0x00000005U

/// One change. Records begin at multiples of four bytes.
struct FILE_NOTIFY_INFORMATION
{
    DWORD NextEntryOffset; ///< bytes from the start of this record to the next; 0 in the last one
    DWORD Action;          ///< FILE_ACTION_…
    DWORD FileNameLength;  ///< in bytes
    char16_t FileName[1];  ///< UTF-16, relative to the directory, not terminated
};

using LPOVERLAPPED_COMPLETION_ROUTINE = void(WINAPI*)(DWORD error, DWORD transferred, LPOVERLAPPED overlapped);

extern "C"
{
    /// Begins to read the changes of a directory into a buffer that begins at a multiple of four bytes. The filter of
    /// the first reading of a handle holds for all. A handle that was opened without FILE_FLAG_OVERLAPPED waits for the
    /// next change, and only then are `transferred` and `overlapped` (null then) what they seem. FALSE with
    /// ERROR_INVALID_PARAMETER for what is no directory, for no filter and for a misplaced buffer; ERROR_NOT_SUPPORTED
    /// for subdirectories and for a completion routine; ERROR_ACCESS_DENIED without the right to list, and for a
    /// directory that was deleted or renamed; ERROR_BUSY while another reading of the handle is going on;
    /// ERROR_TOO_MANY_OPEN_FILES and ERROR_NO_SYSTEM_RESOURCES when the host has no instance or no watch left.
    VOK_PLATFORM_EXPORT BOOL WINAPI ReadDirectoryChangesW(HANDLE directory, LPVOID buffer, DWORD size, BOOL subtree,
                                                          DWORD filter, LPDWORD transferred, LPOVERLAPPED overlapped,
                                                          LPOVERLAPPED_COMPLETION_ROUTINE completion) noexcept;

    /// Ends an operation of the handle, or all for a null `overlapped`, with ERROR_OPERATION_ABORTED. FALSE with
    /// ERROR_NOT_FOUND if there is none. It has ended when this returns.
    VOK_PLATFORM_EXPORT BOOL WINAPI CancelIoEx(HANDLE file, LPOVERLAPPED overlapped) noexcept;

    /// How an operation ended, and the bytes that it moved. FALSE with its code if it failed, and with
    /// ERROR_IO_INCOMPLETE if it is going on; with `wait` this waits before, for the operation's event if it has one,
    /// which nobody else should set meanwhile. Closing the handle ends its operations with 0 bytes.
    VOK_PLATFORM_EXPORT BOOL WINAPI GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD transferred,
                                                        BOOL wait) noexcept;
}
