#include "HostFile.h"

#include "HostErrors.h"
#include "ReadOnlyFile.h"

namespace Brindle::Vok::Platform
{
namespace
{

constexpr off_t mostOfFile = off_t{1} << 20;

bool CountsAsNone(int error) noexcept
{
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG || error == EACCES ||
           error == ENXIO;
}

} // namespace

Descriptor OpenHost(int directory, char const* path, int flags) noexcept
{
    return Descriptor(Uninterrupted([&] { return SystemCalls::Open(directory, path, flags | O_CLOEXEC, 0); }));
}

bool ReadSettings(std::string const& path, std::string& content)
{
    content.clear();
    ReadOnlyFile const file(path.c_str());
    if (!file.IsOpen())
        return CountsAsNone(errno) || FailWithHost(errno);
    struct stat status;
    if (SystemCalls::Status(file.Descriptor(), &status) != 0)
        return FailWithHost(errno);
    if (!S_ISREG(status.st_mode) || status.st_size > mostOfFile)
        return true;
    content.resize(static_cast<std::size_t>(status.st_size));
    ssize_t const count = file.ReadAt(0, content.data(), content.size());
    if (count < 0)
        return FailWithHost(errno);
    content.resize(static_cast<std::size_t>(count));
    return true;
}

} // namespace Brindle::Vok::Platform
