#include "HostFile.h"

#include "HostErrors.h"
#include "ReadOnlyFile.h"

namespace Brindle::Vok::Platform
{
namespace
{

bool MeansNoFile(int error) noexcept
{
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG || error == EACCES ||
           error == ENXIO;
}

} // namespace

bool ReadSmallFile(std::string const& path, std::optional<std::string>& content, off_t most)
{
    content.reset();
    ReadOnlyFile const file(path.c_str());
    if (!file.IsOpen())
        return MeansNoFile(errno) || FailWithHost(errno);
    struct stat status;
    if (SystemCalls::Status(file.Get(), &status) != 0)
        return FailWithHost(errno);
    if (!S_ISREG(status.st_mode) || status.st_size > most)
        return true;
    content.emplace(static_cast<std::size_t>(status.st_size), '\0');
    ssize_t const count = file.ReadAt(0, content->data(), content->size());
    if (count < 0)
        return FailWithHost(errno);
    content->resize(static_cast<std::size_t>(count));
    return true;
}

bool ReadWorkingDirectory(std::string& directory)
{
    for (std::size_t size = 256;; size *= 2)
    {
        directory.resize(size);
        if (SystemCalls::GetWorkingDirectory(directory.data(), size))
            break;
        if (errno != ERANGE)
            return FailWithHost(errno);
    }
    directory.resize(directory.find('\0'));
    return true;
}

bool MakeAbsolute(std::string& path)
{
    if (path.starts_with('/'))
        return true;
    std::string directory;
    if (!ReadWorkingDirectory(directory))
        return false;
    path = directory + '/' + path;
    return true;
}

} // namespace Brindle::Vok::Platform
