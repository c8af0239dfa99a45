// Files and directories: opening with share modes, transfer, sizes, times, attributes, creation and removal. Paths
// are Windows syntax; Host.h says which host directories stand behind drives and shares.
//
//     HANDLE const file =
//         CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
//     if (file == INVALID_HANDLE_VALUE)
//         return GetLastError();
//     DWORD count = 0;
//     BOOL const succeeded = ReadFile(file, buffer, sizeof buffer, &count, nullptr);
//     CloseHandle(file);
//
// Everything may be called from any thread. A call that fails sets the last error; one that succeeds leaves it alone.
// Asynchronous transfers and deletion on closing are refused with ERROR_NOT_SUPPORTED.
//
// What is not guaranteed:
// - Share modes bind whoever opens through this interface. Another program's own locks are not share modes: a handle
//   that shares something is refused while an fcntl lock covers the whole file, one that shares nothing is not.
// - The locks belong to the open file. A child made by fork that goes on without running another program shares it, and
//   closing the parent's handle then gives the locks back for both.
// - Handles of one file that share something slow each other down when they are many: a thousand are opened in 30
//   milliseconds, eight thousand in three seconds.
// - Files whose size the host doesn't know, such as those of /proc, have size 0 here and still hold what ReadFile
//   gives.
// - A write that starts at a size limit (RLIMIT_FSIZE) which was set after the file was opened raises the host's
//   signal.
#pragma once

#include <Brindle/Platform/Types.h>

#define GENERIC_READ 0x80000000U
#define GENERIC_WRITE 0x40000000U
#define GENERIC_EXECUTE 0x20000000U
#define GENERIC_ALL 0x10000000U
#define DELETE 0x00010000U
#define READ_CONTROL 0x00020000U
#define SYNCHRONIZE 0x00100000U
#define FILE_READ_DATA 0x0001U
#define FILE_LIST_DIRECTORY 0x0001U
#define FILE_WRITE_DATA 0x0002U
#define FILE_APPEND_DATA 0x0004U
#define FILE_EXECUTE 0x0020U
#define FILE_READ_ATTRIBUTES 0x0080U
#define FILE_WRITE_ATTRIBUTES 0x0100U

#define FILE_SHARE_READ 0x00000001U
#define FILE_SHARE_WRITE 0x00000002U
#define FILE_SHARE_DELETE 0x00000004U

#define CREATE_NEW 1U
#define CREATE_ALWAYS 2U
#define OPEN_EXISTING 3U
#define OPEN_ALWAYS 4U
#define TRUNCATE_EXISTING 5U

#define FILE_ATTRIBUTE_READONLY 0x00000001U
#define FILE_ATTRIBUTE_HIDDEN 0x00000002U
#define FILE_ATTRIBUTE_SYSTEM 0x00000004U
#define FILE_ATTRIBUTE_DIRECTORY 0x00000010U
#define FILE_ATTRIBUTE_ARCHIVE 0x00000020U
#define FILE_ATTRIBUTE_DEVICE 0x00000040U
#define FILE_ATTRIBUTE_NORMAL 0x00000080U
#define FILE_ATTRIBUTE_TEMPORARY 0x00000100U
#define FILE_ATTRIBUTE_REPARSE_POINT 0x00000400U
#define INVALID_FILE_ATTRIBUTES 0xFFFFFFFFU

#define FILE_FLAG_BACKUP_SEMANTICS 0x02000000U
#define FILE_FLAG_DELETE_ON_CLOSE 0x04000000U
#define FILE_FLAG_SEQUENTIAL_SCAN 0x08000000U
#define FILE_FLAG_RANDOM_ACCESS 0x10000000U
#define FILE_FLAG_OPEN_REPARSE_POINT 0x00200000U
#define FILE_FLAG_OVERLAPPED 0x40000000U
#define FILE_FLAG_WRITE_THROUGH 0x80000000U

#define IO_REPARSE_TAG_SYMLINK 0xA000000CU

/// What a search tells of one entry. The times are UTC, and a symbolic link has its own.
struct WIN32_FIND_DATAW
{
    DWORD dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh; ///< bytes; 0 for what isn't a plain file
    DWORD nFileSizeLow;
    DWORD dwReserved0; ///< IO_REPARSE_TAG_SYMLINK for a link
    DWORD dwReserved1;
    WCHAR cFileName[MAX_PATH];
    WCHAR cAlternateFileName[14]; ///< always empty
};
using LPWIN32_FIND_DATAW = WIN32_FIND_DATAW*;

enum FINDEX_INFO_LEVELS : int
{
    FindExInfoStandard,
    FindExInfoBasic
};

enum FINDEX_SEARCH_OPS : int
{
    FindExSearchNameMatch,
    FindExSearchLimitToDirectories ///< a hint, which nothing here follows
};

extern "C"
{
    /// Opens or creates a file, or opens a directory (FILE_FLAG_BACKUP_SEMANTICS). INVALID_HANDLE_VALUE on failure.
    /// Share modes hold against every other handle of this and of all other processes. To be refused for another
    /// process's handle takes some 5 milliseconds, in which it may still be closed, and for one of this process 0.1. It
    /// takes up to 100 where many open the same file at the same moment, or create one that another process has open.
    /// Opened as ReadDirectoryChangesW wants it (nothing but FILE_LIST_DIRECTORY, FILE_FLAG_BACKUP_SEMANTICS and
    /// FILE_FLAG_OVERLAPPED), what is no directory is ERROR_DIRECTORY.
    VOK_PLATFORM_EXPORT HANDLE WINAPI CreateFileW(LPCWSTR path, DWORD access, DWORD share,
                                                  LPSECURITY_ATTRIBUTES security, DWORD disposition, DWORD flags,
                                                  HANDLE templateFile) noexcept;

    /// Transfers count bytes at the handle's position; the host's interruptions and short transfers are carried on.
    VOK_PLATFORM_EXPORT BOOL WINAPI ReadFile(HANDLE file, LPVOID buffer, DWORD count, LPDWORD transferred,
                                             LPOVERLAPPED overlapped) noexcept;
    VOK_PLATFORM_EXPORT BOOL WINAPI WriteFile(HANDLE file, LPCVOID buffer, DWORD count, LPDWORD transferred,
                                              LPOVERLAPPED overlapped) noexcept;

    VOK_PLATFORM_EXPORT BOOL WINAPI GetFileSizeEx(HANDLE file, PLARGE_INTEGER size) noexcept;
    /// Times in UTC; the host's status change time stands for the creation where the file system keeps none.
    VOK_PLATFORM_EXPORT BOOL WINAPI GetFileTime(HANDLE file, LPFILETIME creation, LPFILETIME lastAccess,
                                                LPFILETIME lastWrite) noexcept;

    /// INVALID_FILE_ATTRIBUTES on failure.
    VOK_PLATFORM_EXPORT DWORD WINAPI GetFileAttributesW(LPCWSTR path) noexcept;
    /// Of the mask only FILE_ATTRIBUTE_READONLY reaches the host, as the write bits.
    VOK_PLATFORM_EXPORT BOOL WINAPI SetFileAttributesW(LPCWSTR path, DWORD attributes) noexcept;

    VOK_PLATFORM_EXPORT BOOL WINAPI CreateDirectoryW(LPCWSTR path, LPSECURITY_ATTRIBUTES security) noexcept;
    VOK_PLATFORM_EXPORT BOOL WINAPI RemoveDirectoryW(LPCWSTR path) noexcept;
    VOK_PLATFORM_EXPORT BOOL WINAPI DeleteFileW(LPCWSTR path) noexcept;
    /// FILE_ATTRIBUTE_DIRECTORY for an existing directory, otherwise FALSE.
    VOK_PLATFORM_EXPORT BOOL WINAPI PathIsDirectoryW(LPCWSTR path) noexcept;

    /// Begins a search of a directory for the names that fit the path's last part, in which `*` and `?` stand for any
    /// characters and for any one; A to Z fit a to z. "." and ".." come first where they fit, then what the host gives
    /// in its order. INVALID_HANDLE_VALUE on failure: ERROR_FILE_NOT_FOUND when nothing fits, ERROR_PATH_NOT_FOUND for
    /// a missing directory, ERROR_DIRECTORY where something else than a directory is searched. A search takes one
    /// descriptor and a buffer of fixed size, however many entries there are. FindClose ends it.
    ///
    /// While it is open, what the same thread deletes, searches or makes writable in its directory is found through the
    /// open directory and not along the path; and a name that the search told of as no link is refused when it has
    /// become one. So a deletion from above goes astray nowhere.
    VOK_PLATFORM_EXPORT HANDLE WINAPI FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data) noexcept;
    /// The same. ERROR_INVALID_PARAMETER for a filter, ERROR_NOT_SUPPORTED for a level, an operation or flags that the
    /// platform doesn't name here.
    VOK_PLATFORM_EXPORT HANDLE WINAPI FindFirstFileExW(LPCWSTR pattern, FINDEX_INFO_LEVELS level, LPVOID data,
                                                       FINDEX_SEARCH_OPS operation, LPVOID filter,
                                                       DWORD flags) noexcept;
    /// The next entry; ERROR_NO_MORE_FILES behind the last one. An entry that vanished before is left out. In a long
    /// search for all names, of which nothing else is asked or changed by the same thread, an entry may be told of as
    /// it was up to 50 milliseconds before, to who the thread was then: a second thread asks ahead. A child made by
    /// fork while another thread is in this function gets ERROR_INVALID_HANDLE for that search.
    VOK_PLATFORM_EXPORT BOOL WINAPI FindNextFileW(HANDLE search, LPWIN32_FIND_DATAW data) noexcept;
}
