// A host file that is open for reading, for as long as this object lives. Opening waits for nobody, at a FIFO neither.
#pragma once

#include "HostErrors.h"
#include "SystemCalls.h"

#include <cstddef>

namespace Brindle::Vok::Platform
{

class ReadOnlyFile
{
public:
    /// On failure IsOpen() is false, and errno says why.
    explicit ReadOnlyFile(char const* path) noexcept
        : descriptor(Uninterrupted(
              [=] { return SystemCalls::Open(AT_FDCWD, path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0); }))
    {
    }
    ~ReadOnlyFile()
    {
        if (IsOpen())
            SystemCalls::Close(descriptor);
    }
    ReadOnlyFile(ReadOnlyFile const&) = delete;
    ReadOnlyFile& operator=(ReadOnlyFile const&) = delete;

    bool IsOpen() const noexcept { return descriptor >= 0; }
    int Descriptor() const noexcept { return descriptor; }

    /// Bytes read, fewer than asked for at the file's end only. Negative with errno set on failure.
    ssize_t ReadAt(off_t offset, void* buffer, std::size_t size) const noexcept
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

private:
    int descriptor;
};

} // namespace Brindle::Vok::Platform
