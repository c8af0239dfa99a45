// What stands behind a file's handle.
#pragma once

#include "HandleTable.h"
#include "Sharing.h"

#include <atomic>
#include <sys/stat.h>

namespace Brindle::Vok::Platform
{

class File final : public Object
{
public:
    static constexpr Kinds kinds = KindsOf(Kind::file);
    static constexpr std::int64_t NoSize = -1;

    enum class Type
    {
        plain,
        directory,
        link, // A symbolic link that was opened itself.
        other // A FIFO, a device, a terminal.
    };

    File() noexcept : Object(Kind::file) {}

    int Descriptor() const noexcept { return shared.Get(); }

    SharedDescriptor shared;
    Type type = Type::plain;
    bool reads = false;
    bool writes = false;
    bool overlapped = false;
    /// The size that opening found, NoSize once it has been asked for or may have changed. Kept only while this handle
    /// shares nothing: nobody else can then open the file to change it.
    std::atomic<std::int64_t> sizeAtOpening{NoSize};
};

/// FILE_ATTRIBUTE_… of a host's file. A symbolic link's own status gives FILE_ATTRIBUTE_REPARSE_POINT.
DWORD AttributesFromMode(mode_t mode) noexcept;

/// No write bit. Holds for the superuser too.
constexpr bool IsReadOnly(mode_t mode) noexcept
{
    return (mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
}

/// A host's time as 100-nanosecond ticks since 1601. A moment before 1601 gives 0.
FILETIME FileTimeFromHost(std::int64_t seconds, std::uint32_t nanoseconds) noexcept;

/// Sets the last error for a host call on the path that failed: ERROR_PATH_NOT_FOUND instead of ERROR_FILE_NOT_FOUND
/// when the directory that the name should be in is missing. Gives false.
bool FailOnPath(class HostPath const& path, int error) noexcept;

} // namespace Brindle::Vok::Platform
