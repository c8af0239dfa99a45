// Checked wrappers of the platform's calls: a caller gets a value or an owned handle, and never a buffer size, a BOOL
// or a last-error code.
//
//     HandleOwner<Detail::InvalidHandleTraits> file =
//         VokCreateFile(path, GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
//
// Failures are thrown with the platform's code and a text that names the call, or assigned to the trailing Error&,
// which a success leaves alone. No call is retried, except to get a buffer of the right size. All wrappers may be
// called from any thread. Texts end at their first NUL, where nothing else is said.
#pragma once

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/HandleOwner.h>
#include <Brindle/Vok/Platform.h>

#include <string>
#include <vector>

namespace Brindle::Vok
{

/// CreateFileW. Throws Error itself, not a WindowsError, and logs nothing. `security` and `templateFile` may be null; a
/// null or empty `path` fails with ERROR_PATH_NOT_FOUND.
VOK_EXPORT HandleOwner<Detail::InvalidHandleTraits> VokCreateFile(wchar_t const* path, unsigned long access,
                                                                  unsigned long share, SECURITY_ATTRIBUTES* security,
                                                                  unsigned long disposition, unsigned long flags,
                                                                  void* templateFile);
/// The same; on failure it assigns a WindowsError and returns an owner that holds INVALID_HANDLE_VALUE.
VOK_EXPORT HandleOwner<Detail::InvalidHandleTraits> VokCreateFile(wchar_t const* path, unsigned long access,
                                                                  unsigned long share, SECURITY_ATTRIBUTES* security,
                                                                  unsigned long disposition, unsigned long flags,
                                                                  void* templateFile, Error& error);

/// CreateFileW for a text whose length is known. One with a NUL in it names no file: it fails with ERROR_INVALID_NAME
/// and nothing is opened, where the overloads for pointers would open what stands in front of the NUL.
VOK_EXPORT HandleOwner<Detail::InvalidHandleTraits> VokCreateFile(std::wstring const& path, unsigned long access,
                                                                  unsigned long share, SECURITY_ATTRIBUTES* security,
                                                                  unsigned long disposition, unsigned long flags,
                                                                  void* templateFile);
/// The same; on failure it assigns a WindowsError and returns an owner that holds INVALID_HANDLE_VALUE.
VOK_EXPORT HandleOwner<Detail::InvalidHandleTraits> VokCreateFile(std::wstring const& path, unsigned long access,
                                                                  unsigned long share, SECURITY_ATTRIBUTES* security,
                                                                  unsigned long disposition, unsigned long flags,
                                                                  void* templateFile, Error& error);

/// GetModuleFileNameW: the path of a loaded module, of the program for null. One that is longer than 16383 code units
/// comes cut, with a NUL as the 16384th and no failure. Throws WindowsError, ERROR_INVALID_HANDLE for what is no
/// module.
VOK_EXPORT std::wstring VokGetModuleFileName(HINSTANCE module);
/// GetModuleFileNameA: the same in UTF-8, counted in bytes.
VOK_EXPORT std::string VokGetModuleFileNameA(HINSTANCE module);

/// ExpandEnvironmentStringsW: the text with each `%NAME%` replaced by the variable's value. An unknown one stays as it
/// stands. An empty text gives an empty one. Throws WindowsError.
VOK_EXPORT std::wstring VokExpandEnvironmentStrings(std::wstring const& text);

/// GetComputerNameExW. Throws WindowsError, ERROR_INVALID_PARAMETER for a format that there is not; that one is also
/// logged at error, as a soft assertion on the way to the size.
VOK_EXPORT std::wstring VokGetComputerNameEx(COMPUTER_NAME_FORMAT format);

/// GetUserNameW: the user as whom the calling thread acts. Throws WindowsError, ERROR_INSUFFICIENT_BUFFER for a name of
/// more than 256 code units.
VOK_EXPORT std::wstring VokGetUserName();

/// GetSystemDirectoryW, without a separator at its end. Throws Error itself, not a WindowsError, and logs nothing.
VOK_EXPORT std::wstring VokGetSystemDirectory();
/// The same; on failure it assigns and returns an empty text.
VOK_EXPORT std::wstring VokGetSystemDirectory(Error& error);

/// LoadLibraryW. The library is released with its owner. Throws WindowsError: ERROR_MOD_NOT_FOUND for a missing library
/// or one that needs something missing, ERROR_BAD_EXE_FORMAT for a file that isn't one, ERROR_ACCESS_DENIED for a
/// directory, ERROR_INVALID_PARAMETER for a null or empty name.
VOK_EXPORT HandleOwner<Detail::ModuleHandleTraits> VokLoadLibrary(wchar_t const* filename);

/// GetEnvironmentVariableW. The result's size() counts a NUL behind the value: the value abc has size 4. A missing
/// variable, and an empty name, throws WindowsError 203, or gives an empty text and an info statement if
/// `tolerateMissing` says so. One that exists and is empty throws a WindowsError of code 0, whose Failed() is false.
/// One that another thread changes meanwhile may come with more NULs behind it, or as NULs alone.
VOK_EXPORT std::wstring VokGetEnvironmentVariable(std::wstring const& name, bool tolerateMissing);

/// GetFileVersionInfoW: the bytes of a file's version resource, as its resource compiler wrote them. Throws
/// WindowsError and logs nothing: ERROR_RESOURCE_DATA_NOT_FOUND for a file without resources, ERROR_FILE_NOT_FOUND for
/// a missing one, ERROR_PATH_NOT_FOUND for an empty path and a missing directory, ERROR_ACCESS_DENIED for a directory,
/// ERROR_INVALID_NAME for one with a NUL in it. The message ends
/// at the system's text and code, so a caller adds the path.
VOK_EXPORT std::vector<unsigned char> VokGetFileVersionInfo(std::wstring const& path);
/// The same; on failure it assigns that error and returns no bytes.
VOK_EXPORT std::vector<unsigned char> VokGetFileVersionInfo(std::wstring const& path, Error& error);

/// CreateSemaphoreW: a semaphore that lets `initialCount` waits pass at first and never more than `maximumCount`.
/// `security` and `name` may be null. A failure of the call is never thrown, which is required: the owner holds null,
/// which IsValid() takes for a handle. So test Get() for null; GetLastError() then has the code, 87 for counts that are
/// negative, in disorder or beyond 32 bits.
VOK_EXPORT HandleOwner<Detail::InvalidHandleTraits> VokCreateSemaphore(SECURITY_ATTRIBUTES* security, long initialCount,
                                                                       long maximumCount, wchar_t const* name);
/// The same; a failure isn't assigned either.
VOK_EXPORT HandleOwner<Detail::InvalidHandleTraits> VokCreateSemaphore(SECURITY_ATTRIBUTES* security, long initialCount,
                                                                       long maximumCount, wchar_t const* name,
                                                                       Error& error);

/// RegOpenKeyExW. Gives its status, 0 for success, and throws none; a failure is logged at error. `result` holds the
/// opened key, or null after a failure: a key that it held before is closed in either case. A null or empty `subkey`
/// means the key itself, `\` stands between names, `options` is 0 or REG_OPTION_OPEN_LINK, and `access` has KEY_
/// rights. A missing key is ERROR_FILE_NOT_FOUND, rights that can't be had are ERROR_ACCESS_DENIED, what is no `key` is
/// ERROR_INVALID_HANDLE, a `subkey` that begins with `\` is ERROR_BAD_PATHNAME, other options are
/// ERROR_INVALID_PARAMETER.
VOK_EXPORT long VokRegOpenKey(HKEY key, wchar_t const* subkey, unsigned long options, unsigned long access,
                              HandleOwner<Detail::RegistryHkeyHandleTraits>& result);

/// OpenProcessToken: the token of a process, with the TOKEN_ rights that are asked for: TOKEN_QUERY and TOKEN_DUPLICATE
/// to impersonate with it, and TOKEN_IMPERSONATE for its user's known folders. Throws WindowsError: ERROR_ACCESS_DENIED
/// for a process that may not be looked into or has ended, and for rights that tokens don't have; ERROR_INVALID_HANDLE
/// for what is no process. A null handle is also reported to the log.
VOK_EXPORT HandleOwner<Detail::NullHandleTraits> VokOpenProcessToken(void* processHandle, unsigned long access);

/// The session of a process, not that of the token. Only where the platform refuses to tell (ERROR_ACCESS_DENIED) that
/// of a token is taken instead, with a warning in the log: of `token`, opened with TOKEN_QUERY, or if that is null of
/// the process's own, which is opened without the impersonation of the calling thread.
///
/// On failure it gives 0xFFFFFFFF and assigns, ERROR_INVALID_PARAMETER for a process that isn't there; the log hears of
/// no failure. Pass a new Error: with one that has failed before, what a token tells counts for nothing.
VOK_EXPORT unsigned long GetSessionId(unsigned long processId, void* token, Error& error);
/// The same; on failure it throws Error itself, not a WindowsError.
VOK_EXPORT unsigned long GetSessionId(unsigned long processId, void* token);
/// The session of the calling process; throws in the same way.
VOK_EXPORT unsigned long GetSessionId(void* token);
/// The session of the calling process; assigns in the same way.
VOK_EXPORT unsigned long GetSessionId(void* token, Error& error);
/// The same without a token.
VOK_EXPORT unsigned long GetSessionId(Error& error);

} // namespace Brindle::Vok
