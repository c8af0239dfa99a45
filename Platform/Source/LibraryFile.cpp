#include "LibraryFile.h"

#include "HostErrors.h"
#include "ReadOnlyFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <link.h>

namespace Brindle::Vok::Platform
{
namespace
{

using Header = ElfW(Ehdr);
using Segment = ElfW(Phdr);

} // namespace

// The header of the very module that this is linked into. The name is the linker's.
extern "C" [[gnu::visibility("hidden")]] Header const __ehdr_start;

namespace
{

bool IsForThisMachine(Header const& header) noexcept
{
    auto const alike = [&](int at) { return header.e_ident[at] == __ehdr_start.e_ident[at]; };
    return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 && alike(EI_CLASS) && alike(EI_DATA) &&
           header.e_machine == __ehdr_start.e_machine && header.e_type == ET_DYN &&
           header.e_phentsize == sizeof(Segment) && header.e_phnum > 0;
}

// Takes one segment into account. False for one that the file doesn't hold.
bool TakeSegment(Segment const& segment, std::uint64_t fileSize, LibraryFile& library) noexcept
{
    library.isProgram |= segment.p_type == PT_INTERP;
    if (segment.p_type != PT_LOAD)
        return true;
    if (segment.p_offset > fileSize || segment.p_filesz > fileSize - segment.p_offset)
        return false;
    std::size_t end;
    if (__builtin_add_overflow(segment.p_vaddr, segment.p_memsz, &end))
        return false;
    library.extent = std::max(library.extent, end);
    return true;
}

LibraryFile FailedToRead(ssize_t count) noexcept
{
    return {count < 0 ? CodeFromHost(errno) : DWORD{ERROR_BAD_EXE_FORMAT}};
}

LibraryFile ExamineOpen(ReadOnlyFile const& file, std::uint64_t fileSize) noexcept
{
    Header header;
    if (ssize_t const count = file.ReadAt(0, &header, sizeof header); count != sizeof header)
        return FailedToRead(count);
    if (!IsForThisMachine(header) || header.e_phoff > fileSize)
        return {ERROR_BAD_EXE_FORMAT};
    LibraryFile library{ERROR_SUCCESS};
    for (unsigned at = 0; at < header.e_phnum; ++at)
    {
        Segment segment;
        auto const offset = static_cast<off_t>(header.e_phoff + at * sizeof segment);
        if (ssize_t const count = file.ReadAt(offset, &segment, sizeof segment); count != sizeof segment)
            return FailedToRead(count);
        if (!TakeSegment(segment, fileSize, library))
            return {ERROR_BAD_EXE_FORMAT};
    }
    return library;
}

} // namespace

LibraryFile ExamineLibrary(char const* path) noexcept
{
    ReadOnlyFile const file(path);
    if (!file.IsOpen())
        return {errno == ENOENT || errno == ENOTDIR ? DWORD{ERROR_MOD_NOT_FOUND} : CodeFromHost(errno)};
    struct stat status;
    if (SystemCalls::Status(file.Get(), &status) != 0)
        return {CodeFromHost(errno)};
    if (S_ISDIR(status.st_mode))
        return {ERROR_ACCESS_DENIED};
    if (!S_ISREG(status.st_mode))
        return {ERROR_BAD_EXE_FORMAT};
    return ExamineOpen(file, static_cast<std::uint64_t>(status.st_size));
}

} // namespace Brindle::Vok::Platform
