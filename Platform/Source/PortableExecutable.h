// Finds the version resource in a PE image, of which nothing is believed: every place and size is held against what the
// image has. No memory is needed, and what is read is bounded by the counts of 16 bits that the image's tables have.
#pragma once

#include <Brindle/Platform/Types.h>

#include <cstdint>
#include <span>

namespace Brindle::Vok::Platform
{

/// The bytes of an image, wherever they are.
class ImageBytes
{
public:
    virtual std::uint64_t Size() const noexcept = 0;
    /// Fills the target from bytes that end at Size() at the latest. Gives a platform's code, 0 for success.
    virtual DWORD Read(std::uint64_t offset, std::span<unsigned char> target) noexcept = 0;

protected:
    ~ImageBytes() = default;
};

struct VersionResource
{
    DWORD code; ///< one of those in Versions.h; the rest means nothing then unless it is 0
    std::uint64_t offset;
    std::uint32_t size; ///< bytes, at least 1, that end within the image
};

VersionResource FindVersionResource(ImageBytes& image) noexcept;

} // namespace Brindle::Vok::Platform
