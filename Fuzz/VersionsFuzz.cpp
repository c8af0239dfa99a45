// Looks for the version resource in images that are damaged in any way. What is read must be bytes of the image, few of
// them in all, and what is found must be the image's too; one byte less than where it ends holds no such resource.
#include "Require.h"

#include "PortableExecutable.h"

#include <Brindle/Platform/ErrorCodes.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

using namespace Brindle::Vok::Platform;

namespace
{

class Bytes final : public ImageBytes
{
public:
    explicit Bytes(std::span<std::uint8_t const> bytes) : bytes(bytes) {}

    std::uint64_t Size() const noexcept override { return bytes.size(); }
    DWORD Read(std::uint64_t offset, std::span<unsigned char> target) noexcept override
    {
        Require(offset <= bytes.size() && target.size() <= bytes.size() - offset, "Read beyond the image");
        std::ranges::copy(bytes.subspan(offset, target.size()), target.begin());
        readCount += target.size();
        return ERROR_SUCCESS;
    }

    std::size_t readCount = 0;

private:
    std::span<std::uint8_t const> bytes;
};

void CheckCode(DWORD code)
{
    constexpr DWORD known[] = {ERROR_RESOURCE_DATA_NOT_FOUND, ERROR_RESOURCE_TYPE_NOT_FOUND,
                               ERROR_RESOURCE_NAME_NOT_FOUND, ERROR_RESOURCE_LANG_NOT_FOUND,
                               ERROR_BAD_EXE_FORMAT,          ERROR_INVALID_DATA};
    Require(std::ranges::find(known, code) != std::end(known), "Another code");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    std::span const all(data, size);
    Bytes image(all);
    VersionResource const found = FindVersionResource(image);
    // The sections twice, three directories, and the records between them.
    Require(image.readCount < 2 * 40 * 0x10000 + 3 * 8 * 0x20000 + 1000, "Too much is read");
    if (found.code != ERROR_SUCCESS)
    {
        CheckCode(found.code);
        return 0;
    }
    Require(found.size > 0 && found.offset <= size && found.size <= size - found.offset, "Found beyond the image");
    Bytes cut(all.first(found.offset + found.size - 1));
    VersionResource const lost = FindVersionResource(cut);
    CheckCode(lost.code);
    return 0;
}
