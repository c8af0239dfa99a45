// Which program opens files of a kind, as the host's desktop has it: the kind from the shared MIME database, the
// program from mimeapps.list and mimeinfo.cache, its command from its .desktop file. The directories are those of the
// calling thread's user (XDG_CONFIG_HOME and XDG_DATA_HOME if that is the process's own, see Shell.h), XDG_CONFIG_DIRS
// and XDG_DATA_DIRS, and XDG_CURRENT_DESKTOP names lists that come first.
//
//     wchar_t program[MAX_PATH];
//     DWORD size = MAX_PATH;
//     HRESULT const result =
//         AssocQueryStringW(ASSOCF_NONE, ASSOCSTR_EXECUTABLE, L".txt", nullptr, program, &size);
//
// A program counts only if its .desktop file is there and not hidden and the program itself is found, along PATH if it
// has no directory of its own; otherwise the next one is asked for. Not looked at: aliases and parents of types, the
// content of files, .desktop files that no list names, and translated names. Files are read anew at each call. Calls
// may come from any thread; they leave the last error alone.
#pragma once

#include <Brindle/Platform/Types.h>

using ASSOCF = DWORD;

#define ASSOCF_NONE 0x00000000U
#define ASSOCF_INIT_NOREMAPCLSID 0x00000001U
#define ASSOCF_INIT_BYEXENAME 0x00000002U
#define ASSOCF_OPEN_BYEXENAME 0x00000002U
#define ASSOCF_INIT_DEFAULTTOSTAR 0x00000004U
#define ASSOCF_INIT_DEFAULTTOFOLDER 0x00000008U
#define ASSOCF_NOUSERSETTINGS 0x00000010U
#define ASSOCF_NOTRUNCATE 0x00000020U
#define ASSOCF_VERIFY 0x00000040U
#define ASSOCF_REMAPRUNDLL 0x00000080U
#define ASSOCF_NOFIXUPS 0x00000100U
#define ASSOCF_IGNOREBASECLASS 0x00000200U
#define ASSOCF_INIT_IGNOREUNKNOWN 0x00000400U
#define ASSOCF_INIT_FIXED_PROGID 0x00000800U
#define ASSOCF_IS_PROTOCOL 0x00001000U
#define ASSOCF_INIT_FOR_FILE 0x00002000U

enum ASSOCSTR : int
{
    ASSOCSTR_COMMAND = 1,         ///< with quotes, and "%1" where the file's name is to stand
    ASSOCSTR_EXECUTABLE = 2,      ///< Windows-syntax path
    ASSOCSTR_FRIENDLYDOCNAME = 3, ///< this and all others without a comment: the host has none
    ASSOCSTR_FRIENDLYAPPNAME = 4, ///< the name in the .desktop file
    ASSOCSTR_NOOPEN = 5,
    ASSOCSTR_SHELLNEWVALUE = 6,
    ASSOCSTR_DDECOMMAND = 7,
    ASSOCSTR_DDEIFEXEC = 8,
    ASSOCSTR_DDEAPPLICATION = 9,
    ASSOCSTR_DDETOPIC = 10,
    ASSOCSTR_INFOTIP = 11,
    ASSOCSTR_QUICKTIP = 12,
    ASSOCSTR_TILEINFO = 13,
    ASSOCSTR_CONTENTTYPE = 14, ///< MIME type
    ASSOCSTR_DEFAULTICON = 15,
    ASSOCSTR_SHELLEXTENSION = 16,
    ASSOCSTR_DROPTARGET = 17,
    ASSOCSTR_DELEGATEEXECUTE = 18,
    ASSOCSTR_SUPPORTED_URI_PROTOCOLS = 19,
    ASSOCSTR_PROGID = 20,
    ASSOCSTR_APPID = 21,
    ASSOCSTR_APPPUBLISHER = 22,
    ASSOCSTR_APPICONREFERENCE = 23,
    ASSOCSTR_MAX = 24
};

extern "C"
{
    /// `assoc` is an extension with its dot; for anything else there is no association. `extra` is the verb; only
    /// "open", null and empty have an association. `*size` is in characters with the terminator, going in and coming
    /// out. S_OK; S_FALSE for a null `out`, with the size that is needed; E_POINTER for a buffer that is too small,
    /// with that size, and as much of the text as fits unless ASSOCF_NOTRUNCATE is set. No association is 0x80070483,
    /// and `*size` stays then and at every other failure: E_INVALIDARG for a null `assoc` or `size` and for a kind or
    /// flags that don't exist, E_NOTIMPL for program names, folders, ProgIDs and protocols (ASSOCF_INIT_BYEXENAME,
    /// ASSOCF_INIT_DEFAULTTOFOLDER, ASSOCF_INIT_FIXED_PROGID, ASSOCF_IS_PROTOCOL), E_OUTOFMEMORY, and 0x8007 with a
    /// Win32 code where the host fails. ASSOCF_NOUSERSETTINGS leaves out the user's own directories; the other flags
    /// change nothing.
    VOK_PLATFORM_EXPORT HRESULT WINAPI AssocQueryStringW(ASSOCF flags, ASSOCSTR kind, LPCWSTR assoc, LPCWSTR extra,
                                                         LPWSTR out, LPDWORD size) noexcept;
}
