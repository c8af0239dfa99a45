// The one door between the library and its platform: HANDLE, DWORD, GUID, FILETIME and the platform's functions, and
// VOK_EXPORT, which marks what leaves the shared library. Include this header, never the platform's own ones.
//
//     DWORD const attributes = GetFileAttributesW(L"C:\\tmp");
//     bool const isDirectory = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
//
// Not guaranteed: that every name of the platform is here. Where the host isn't the platform itself, the headers of
// Brindle/Platform declare those that are, and tell what each does.
#pragma once

#include <Brindle/Vok/Detail/RequireCpp20.h>

#ifdef _WIN32

#include <windows.h>

#include <atlbase.h>
#include <atlsecurity.h>
#include <atlstr.h>
#include <comdef.h>
#include <objbase.h>
#include <shlobj.h>
#include <shlwapi.h>
#include <userenv.h>
#include <winver.h>

#ifdef Vok2_EXPORTS
#define VOK_EXPORT __declspec(dllexport)
#else
#define VOK_EXPORT __declspec(dllimport)
#endif
#define VOK_EXPORT_TYPE

#else

#include <Brindle/Platform/Associations.h>
#include <Brindle/Platform/Atl.h>
#include <Brindle/Platform/CRuntime.h>
#include <Brindle/Platform/Changes.h>
#include <Brindle/Platform/Com.h>
#include <Brindle/Platform/Environment.h>
#include <Brindle/Platform/ErrorCodes.h>
#include <Brindle/Platform/Files.h>
#include <Brindle/Platform/Handles.h>
#include <Brindle/Platform/Modules.h>
#include <Brindle/Platform/Registry.h>
#include <Brindle/Platform/Security.h>
#include <Brindle/Platform/Shell.h>
#include <Brindle/Platform/System.h>
#include <Brindle/Platform/Text.h>
#include <Brindle/Platform/Timers.h>
#include <Brindle/Platform/Types.h>
#include <Brindle/Platform/UserEnvironment.h>
#include <Brindle/Platform/Versions.h>
#include <Brindle/Platform/Waits.h>

/// Set where the platform is the stand-in: PlatformHost.h has something to offer then.
#define VOK_PLATFORM_IS_STAND_IN 1

/// Marks a function, a variable or a whole class that other modules use.
#define VOK_EXPORT __attribute__((visibility("default")))
/// Marks a class with inline members alone whose type other modules must recognise, exceptions above all.
#define VOK_EXPORT_TYPE __attribute__((visibility("default")))

#endif
