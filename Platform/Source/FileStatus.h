// What the host's status of a file is on the platform: attributes, times, and the code of a failed call on a path.
#pragma once

#include <Brindle/Platform/Types.h>

#include <cstdint>
#include <sys/stat.h>

namespace Brindle::Vok::Platform
{

class HostPath;

/// FILE_ATTRIBUTE_… of a host's file. A symbolic link's own status gives FILE_ATTRIBUTE_REPARSE_POINT.
DWORD AttributesFromMode(mode_t mode) noexcept;

/// The write bits of a host's mode.
inline constexpr mode_t writeBits = S_IWUSR | S_IWGRP | S_IWOTH;

/// No write bit. Holds for the superuser too.
constexpr bool IsReadOnly(mode_t mode) noexcept
{
    return (mode & writeBits) == 0;
}

/// A host's time as 100-nanosecond ticks since 1601. A moment before 1601 gives 0.
FILETIME FileTimeFromHost(std::int64_t seconds, std::uint32_t nanoseconds) noexcept;

/// What the host tells of one entry of a directory, of a link itself.
struct EntryStatus
{
    int error; ///< errno; the rest means nothing then
    mode_t mode;
    ino_t number;
    std::uint64_t size; ///< bytes; 0 for what isn't a plain file
    FILETIME creation;
    FILETIME lastAccess;
    FILETIME lastWrite;
};

EntryStatus StatusOfEntry(int directory, char const* name) noexcept;

/// Sets the last error for a host call on the path that failed: ERROR_PATH_NOT_FOUND instead of ERROR_FILE_NOT_FOUND
/// when the directory that the name should be in is missing. Gives false.
bool FailOnPath(HostPath const& path, int error) noexcept;

} // namespace Brindle::Vok::Platform
