// Descriptors with an owner.
#pragma once

#include "HostErrors.h"
#include "SystemCalls.h"

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
inline Descriptor OpenHost(int directory, char const* path, int flags) noexcept
{
    return Descriptor(Uninterrupted([=] { return SystemCalls::Open(directory, path, flags | O_CLOEXEC, 0); }));
}

} // namespace Brindle::Vok::Platform
