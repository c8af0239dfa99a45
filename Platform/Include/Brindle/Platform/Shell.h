// The folders that a user's files and settings belong in, by the rules of the XDG base directories and user
// directories.
//
//     PWSTR path = nullptr;
//     if (SHGetKnownFolderPath(FOLDERID_Documents, KF_FLAG_DEFAULT, nullptr, &path) == S_OK)
//         …                                                        // C:\home\user\Documents
//     CoTaskMemFree(path);
//
//     folder                                              where it is
//     Profile                                             the user's home
//     Desktop, Documents, Downloads, Music, Pictures,     by user-dirs.dirs in RoamingAppData; without an entry
//     Videos, Templates, Public                           Desktop below the home, and the home itself for the others
//     RoamingAppData, Startup                             XDG_CONFIG_HOME or .config, and autostart below it
//     LocalAppData                                        XDG_DATA_HOME or .local/share
//     InternetCache                                       XDG_CACHE_HOME or .cache
//     ProgramData, CommonStartup                          the first of XDG_CONFIG_DIRS or /etc/xdg, and autostart there
//     System                                              what GetSystemDirectoryW gives
//
// All others are unknown here. The user is the one that the calling thread acts as; for the process's own user HOME and
// the XDG variables count, for anybody else the home that the host's database of users has and what is below it alone.
// A relative path in a variable counts as none. Everything may be called from any thread.
#pragma once

#include <Brindle/Platform/Types.h>

using KNOWNFOLDERID = GUID;
using REFKNOWNFOLDERID = KNOWNFOLDERID const&;
using PWSTR = wchar_t*;

inline constexpr KNOWNFOLDERID FOLDERID_Desktop = {
    0xB4BFCC3A, 0xDB2C, 0x424C, {0xB0, 0x29, 0x7F, 0xE9, 0x9A, 0x87, 0xC6, 0x41}};
inline constexpr KNOWNFOLDERID FOLDERID_Documents = {
    0xFDD39AD0, 0x238F, 0x46AF, {0xAD, 0xB4, 0x6C, 0x85, 0x48, 0x03, 0x69, 0xC7}};
inline constexpr KNOWNFOLDERID FOLDERID_Downloads = {
    0x374DE290, 0x123F, 0x4565, {0x91, 0x64, 0x39, 0xC4, 0x92, 0x5E, 0x46, 0x7B}};
inline constexpr KNOWNFOLDERID FOLDERID_Music = {
    0x4BD8D571, 0x6D19, 0x48D3, {0xBE, 0x97, 0x42, 0x22, 0x20, 0x08, 0x0E, 0x43}};
inline constexpr KNOWNFOLDERID FOLDERID_Pictures = {
    0x33E28130, 0x4E1E, 0x4676, {0x83, 0x5A, 0x98, 0x39, 0x5C, 0x3B, 0xC3, 0xBB}};
inline constexpr KNOWNFOLDERID FOLDERID_Videos = {
    0x18989B1D, 0x99B5, 0x455B, {0x84, 0x1C, 0xAB, 0x7C, 0x74, 0xE4, 0xDD, 0xFC}};
inline constexpr KNOWNFOLDERID FOLDERID_Templates = {
    0xA63293E8, 0x664E, 0x48DB, {0xA0, 0x79, 0xDF, 0x75, 0x9E, 0x05, 0x09, 0xF7}};
inline constexpr KNOWNFOLDERID FOLDERID_Public = {
    0xDFDF76A2, 0xC82A, 0x4D63, {0x90, 0x6A, 0x56, 0x44, 0xAC, 0x45, 0x73, 0x85}};
inline constexpr KNOWNFOLDERID FOLDERID_Profile = {
    0x5E6C858F, 0x0E22, 0x4760, {0x9A, 0xFE, 0xEA, 0x33, 0x17, 0xB6, 0x71, 0x73}};
inline constexpr KNOWNFOLDERID FOLDERID_RoamingAppData = {
    0x3EB685DB, 0x65F9, 0x4CF6, {0xA0, 0x3A, 0xE3, 0xEF, 0x65, 0x72, 0x9F, 0x3D}};
inline constexpr KNOWNFOLDERID FOLDERID_LocalAppData = {
    0xF1B32785, 0x6FBA, 0x4FCF, {0x9D, 0x55, 0x7B, 0x8E, 0x7F, 0x15, 0x70, 0x91}};
inline constexpr KNOWNFOLDERID FOLDERID_InternetCache = {
    0x352481E8, 0x33BE, 0x4251, {0xBA, 0x85, 0x60, 0x07, 0xCA, 0xED, 0xCF, 0x9D}};
inline constexpr KNOWNFOLDERID FOLDERID_Startup = {
    0xB97D20BB, 0xF46A, 0x4C97, {0xBA, 0x10, 0x5E, 0x36, 0x08, 0x43, 0x08, 0x54}};
inline constexpr KNOWNFOLDERID FOLDERID_ProgramData = {
    0x62AB5D82, 0xFDC1, 0x4DC3, {0xA9, 0xDD, 0x07, 0x0D, 0x1D, 0x49, 0x5D, 0x97}};
inline constexpr KNOWNFOLDERID FOLDERID_CommonStartup = {
    0x82A5EA35, 0xD9CD, 0x47C5, {0x96, 0x29, 0xE1, 0x5D, 0x2F, 0x71, 0x4E, 0x6E}};
inline constexpr KNOWNFOLDERID FOLDERID_System = {
    0x1AC14E77, 0x02E7, 0x4E5D, {0xB7, 0x44, 0x2E, 0xB1, 0xAE, 0x51, 0x98, 0xB7}};
// Without a counterpart on the host:
inline constexpr KNOWNFOLDERID FOLDERID_LocalAppDataLow = {
    0xA520A1A4, 0x1780, 0x4FF6, {0xBD, 0x18, 0x16, 0x73, 0x43, 0xC5, 0xAF, 0x16}};
inline constexpr KNOWNFOLDERID FOLDERID_ProgramFiles = {
    0x905E63B6, 0xC1BF, 0x494E, {0xB2, 0x9C, 0x65, 0xB7, 0x32, 0xD3, 0xD2, 0x1A}};
inline constexpr KNOWNFOLDERID FOLDERID_ProgramFilesCommon = {
    0xF7F1ED05, 0x9F6D, 0x47A2, {0xAA, 0xAE, 0x29, 0xD3, 0x17, 0xC6, 0xF0, 0x66}};
inline constexpr KNOWNFOLDERID FOLDERID_Windows = {
    0xF38BF404, 0x1D43, 0x42F2, {0x93, 0x05, 0x67, 0xDE, 0x0B, 0x28, 0xFC, 0x23}};
inline constexpr KNOWNFOLDERID FOLDERID_Fonts = {
    0xFD228CB7, 0xAE11, 0x4AE3, {0x86, 0x4C, 0x16, 0xF3, 0x91, 0x0A, 0xB8, 0xFE}};
inline constexpr KNOWNFOLDERID FOLDERID_UserProfiles = {
    0x0762D272, 0xC50A, 0x4BB0, {0xA3, 0x82, 0x69, 0x7D, 0xCD, 0x72, 0x9B, 0x80}};

#define KF_FLAG_DEFAULT 0x00000000U
#define KF_FLAG_SIMPLE_IDLIST 0x00000100U
#define KF_FLAG_NOT_PARENT_RELATIVE 0x00000200U
#define KF_FLAG_DEFAULT_PATH 0x00000400U
#define KF_FLAG_INIT 0x00000800U
#define KF_FLAG_NO_ALIAS 0x00001000U
#define KF_FLAG_DONT_UNEXPAND 0x00002000U
#define KF_FLAG_DONT_VERIFY 0x00004000U
#define KF_FLAG_CREATE 0x00008000U

extern "C"
{
    /// Gives a folder's path as Windows-syntax text without a separator at the end, to be freed with CoTaskMemFree.
    /// KF_FLAG_CREATE makes a folder that is missing, for the user alone (mode 0700), and its parents; with
    /// KF_FLAG_DONT_VERIFY nobody looks whether it is there. KF_FLAG_DEFAULT_PATH leaves variables and user-dirs.dirs
    /// out. The other flags above have nothing to change here. `*path` is null on every failure:
    ///
    ///     E_INVALIDARG                  a null `path`, unknown flags, KF_FLAG_NOT_PARENT_RELATIVE without
    ///                                   KF_FLAG_DEFAULT_PATH
    ///     0x80070002, 0x80070003        an unknown folder, one that is missing, one whose parent is no directory
    ///     0x80070006, 0x80070005        `token` is no token, or lacks TOKEN_QUERY or TOKEN_IMPERSONATE
    ///     E_OUTOFMEMORY                 memory is short
    ///
    /// and the host's other failures as 0x8007 and their Win32 codes. The last error stays as it was.
    VOK_PLATFORM_EXPORT HRESULT WINAPI SHGetKnownFolderPath(REFKNOWNFOLDERID id, DWORD flags, HANDLE token,
                                                            PWSTR* path) noexcept;
}
