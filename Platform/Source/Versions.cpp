#include <Brindle/Platform/Versions.h>

#include "FileObject.h"
#include "HostErrors.h"
#include "PortableExecutable.h"
#include "ReadOnlyFile.h"
#include "SystemCalls.h"

#include <Brindle/Platform/Files.h>
#include <Brindle/Platform/Handles.h>

#include <algorithm>

namespace Brindle::Vok::Platform
{
namespace
{

class ImageFile final : public ImageBytes
{
public:
    ImageFile() noexcept = default;
    ImageFile(ImageFile const&) = delete;
    ImageFile& operator=(ImageFile const&) = delete;
    ~ImageFile()
    {
        file = {};
        if (handle != INVALID_HANDLE_VALUE)
            CloseHandle(handle);
    }

    bool Open(LPCWSTR path) noexcept
    {
        handle = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                             OPEN_EXISTING, 0, nullptr);
        if (handle == INVALID_HANDLE_VALUE)
            return false;
        file = HandleTable::Find<FileObject>(handle);
        if (!file)
            return false;
        if (file->type != FileObject::Type::plain)
            return FailWith(ERROR_RESOURCE_DATA_NOT_FOUND);
        struct stat status;
        if (SystemCalls::Status(file->Descriptor(), &status) != 0)
            return FailWithHost(errno);
        size = static_cast<std::uint64_t>(status.st_size);
        return true;
    }

    std::uint64_t Size() const noexcept override { return size; }

    DWORD Read(std::uint64_t offset, std::span<unsigned char> target) noexcept override
    {
        ssize_t const count = ReadWholeAt(file->Descriptor(), static_cast<off_t>(offset), target.data(), target.size());
        if (count < 0)
            return CodeFromHost(errno);
        // Somebody may have cut it meanwhile.
        return static_cast<std::size_t>(count) == target.size() ? ERROR_SUCCESS : ERROR_HANDLE_EOF;
    }

private:
    HANDLE handle = INVALID_HANDLE_VALUE;
    HandleTable::Reference<FileObject> file;
    std::uint64_t size = 0;
};

// Opens the file and finds its version. False with the last error set.
bool FindVersion(LPCWSTR path, ImageFile& image, VersionResource& version) noexcept
{
    if (!image.Open(path))
        return false;
    version = FindVersionResource(image);
    return version.code == ERROR_SUCCESS || FailWith(version.code);
}

bool CopyVersion(LPCWSTR path, std::span<unsigned char> target) noexcept
{
    ImageFile image;
    VersionResource version;
    if (!FindVersion(path, image, version))
        return false;
    DWORD const code = image.Read(version.offset, target.first(std::min<std::size_t>(target.size(), version.size)));
    return code == ERROR_SUCCESS || FailWith(code);
}

} // namespace
} // namespace Brindle::Vok::Platform

DWORD GetFileVersionInfoSizeW(LPCWSTR path, LPDWORD handle) noexcept
{
    using namespace Brindle::Vok::Platform;
    if (handle)
        *handle = 0;
    ImageFile image;
    VersionResource version;
    return FindVersion(path, image, version) ? version.size : 0;
}

BOOL GetFileVersionInfoW(LPCWSTR path, DWORD, DWORD size, LPVOID data) noexcept
{
    using namespace Brindle::Vok::Platform;
    if (!data)
        return FailWith(ERROR_INVALID_PARAMETER);
    return CopyVersion(path, {static_cast<unsigned char*>(data), size});
}
