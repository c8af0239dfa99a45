// Registry keys, for reading. A key is a directory of the host below the one that MapRegistry (Host.h) put behind its
// root; without one, every key of that root is missing. A symbolic link is no key, so no name leads out of the root.
//
//     HKEY key = nullptr;
//     LSTATUS const status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Brindle", 0, KEY_READ, &key);
//     if (status == ERROR_SUCCESS)
//         RegCloseKey(key);
//
// Results are the codes themselves, and the last error stays as it was. Everything may be called from any thread.
#pragma once

#include <Brindle/Platform/Types.h>

using REGSAM = DWORD;
using PHKEY = HKEY*;

// The platform's own values: 32 bits whose sign goes on.
#define HKEY_CLASSES_ROOT (reinterpret_cast<HKEY>(static_cast<LONG_PTR>(static_cast<LONG>(0x80000000U))))
#define HKEY_CURRENT_USER (reinterpret_cast<HKEY>(static_cast<LONG_PTR>(static_cast<LONG>(0x80000001U))))
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(static_cast<LONG_PTR>(static_cast<LONG>(0x80000002U))))
#define HKEY_USERS (reinterpret_cast<HKEY>(static_cast<LONG_PTR>(static_cast<LONG>(0x80000003U))))
#define HKEY_CURRENT_CONFIG (reinterpret_cast<HKEY>(static_cast<LONG_PTR>(static_cast<LONG>(0x80000005U))))

#define KEY_QUERY_VALUE 0x0001U
#define KEY_SET_VALUE 0x0002U
#define KEY_CREATE_SUB_KEY 0x0004U
#define KEY_ENUMERATE_SUB_KEYS 0x0008U
#define KEY_NOTIFY 0x0010U
#define KEY_CREATE_LINK 0x0020U
#define KEY_WOW64_64KEY 0x0100U
#define KEY_WOW64_32KEY 0x0200U
#define KEY_READ 0x00020019U
#define KEY_EXECUTE 0x00020019U
#define KEY_WRITE 0x00020006U
#define KEY_ALL_ACCESS 0x000F003FU

#define REG_OPTION_NON_VOLATILE 0U
#define REG_OPTION_OPEN_LINK 8U

extern "C"
{
    /// Opens a key below another one. Names are separated by '\' alone and found without regard to the case of A to Z,
    /// an exact spelling first. A null or empty `subkey` opens the key itself again; a predefined key is its own
    /// handle. `options` is REG_OPTION_OPEN_LINK or 0, which mean the same here. What fails gives:
    ///
    ///     ERROR_INVALID_PARAMETER    a null `result`, other options, KEY_WOW64_32KEY together with KEY_WOW64_64KEY
    ///     ERROR_INVALID_HANDLE       `key` is neither predefined nor open
    ///     ERROR_BAD_PATHNAME         `subkey` begins with '\'
    ///     ERROR_FILE_NOT_FOUND       a name is missing, whichever it is
    ///     ERROR_ACCESS_DENIED        rights to change anything, or the host lets the caller not read the directory
    ///
    /// and the host's other failures by their codes, with null in `*result`.
    VOK_PLATFORM_EXPORT LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR subkey, DWORD options, REGSAM access,
                                                     PHKEY result) noexcept;

    /// Closes a key. Predefined keys stay open, and that is a success. ERROR_INVALID_HANDLE for anything else.
    VOK_PLATFORM_EXPORT LSTATUS WINAPI RegCloseKey(HKEY key) noexcept;
}
