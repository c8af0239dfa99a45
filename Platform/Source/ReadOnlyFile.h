// Reading the host's files at any place.
#pragma once

#include "Descriptor.h"
#include "HostErrors.h"
#include "SystemCalls.h"

#include <cstddef>

namespace Brindle::Vok::Platform
{

/// Bytes read, fewer than asked for at the file's end only. Negative with errno set on failure.
inline ssize_t ReadWholeAt(int descriptor, off_t offset, void* buffer, std::size_t size) noexcept
{
    std::size_t total = 0;
    while (total < size)
    {
        ssize_t const count = Uninterrupted(
            [&]
            {
                return SystemCalls::ReadAt(descriptor, static_cast<std::byte*>(buffer) + total, size - total,
                                           offset + static_cast<off_t>(total));
            });
        if (count < 0)
            return count;
        if (count == 0)
            break;
        total += static_cast<std::size_t>(count);
    }
    return static_cast<ssize_t>(total);
}

/// A host file that is open for as long as this object lives. Opening waits for nobody, at a FIFO neither.
class ReadOnlyFile
{
public:
    /// On failure IsOpen() is false, and errno says why.
    explicit ReadOnlyFile(char const* path) noexcept
        : descriptor(OpenHost(AT_FDCWD, path, O_RDONLY | O_NONBLOCK | O_NOCTTY))
    {
    }

    bool IsOpen() const noexcept { return static_cast<bool>(descriptor); }
    int Get() const noexcept { return descriptor.Get(); }
    ssize_t ReadAt(off_t offset, void* buffer, std::size_t size) const noexcept
    {
        return ReadWholeAt(Get(), offset, buffer, size);
    }

private:
    Descriptor descriptor;
};

} // namespace Brindle::Vok::Platform
