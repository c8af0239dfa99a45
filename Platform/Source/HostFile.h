// Descriptors with an owner, and small files of the host as a whole.
#pragma once

#include "SystemCalls.h"

#include <optional>
#include <string>
#include <utility>

namespace Brindle::Vok::Platform
{

/// Owns a descriptor. Negative is none.
class Descriptor
{
public:
    Descriptor() noexcept = default;
    explicit Descriptor(int owned) noexcept : number(owned) {}
    Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(number, other.number);
        return *this;
    }
    ~Descriptor()
    {
        if (number >= 0)
            SystemCalls::Close(number);
    }

    int Get() const noexcept { return number; }
    int Release() noexcept { return std::exchange(number, -1); }
    explicit operator bool() const noexcept { return number >= 0; }

private:
    int number = -1;
};

/// Opens with O_CLOEXEC, again for as long as a signal interrupts it. None with errno set.
Descriptor OpenHost(int directory, char const* path, int flags) noexcept;

/// Reads a plain file as a whole. Nothing for what isn't there, isn't a plain file, has more than `most` bytes or may
/// not be read; anything else is false with the last error set. May throw std::bad_alloc.
bool ReadSettings(std::string const& path, std::optional<std::string>& content, off_t most = off_t{1} << 20);

/// False with the last error set. May throw std::bad_alloc.
bool ReadWorkingDirectory(std::string& directory);

} // namespace Brindle::Vok::Platform
