// What fuzz targets make of their bytes.
#pragma once

#include "Require.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

/// Units out of bytes: an even byte is a unit itself; an odd one is followed by the two bytes of a unit, which one of
/// the highest sixteen makes too large.
inline std::wstring MakeWide(std::string_view bytes)
{
    std::wstring wide;
    for (std::size_t i = 0; i < bytes.size(); ++i)
    {
        auto const byteAt = [&](std::size_t k) -> std::uint32_t { return static_cast<unsigned char>(bytes[k]); };
        auto unit = byteAt(i) / 2;
        if (byteAt(i) % 2 != 0 && i + 2 < bytes.size())
        {
            unit = (byteAt(i + 1) | byteAt(i + 2) << 8) << (byteAt(i) < 0xF0 ? 0 : 16);
            i += 2;
        }
        wide += static_cast<wchar_t>(unit);
    }
    return wide;
}

/// A file that is on no disk, for what opens its files itself.
class MemoryFile
{
public:
    MemoryFile() : descriptor(::memfd_create("input", MFD_CLOEXEC)), path("/proc/self/fd/" + std::to_string(descriptor))
    {
        Require(descriptor >= 0, "No file in memory");
    }
    ~MemoryFile() { ::close(descriptor); }
    MemoryFile(MemoryFile const&) = delete;
    MemoryFile& operator=(MemoryFile const&) = delete;

    void Hold(std::string_view content) const
    {
        Require(::ftruncate(descriptor, 0) == 0 &&
                ::pwrite(descriptor, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()));
    }
    char const* Path() const { return path.c_str(); }

private:
    int descriptor;
    std::string path;
};
