// What can be told of a library's file before the host's loader is given it: the loader waits at a FIFO, dies of a file
// that was cut short, and tells its reasons in words of the user's language only.
#pragma once

#include <Brindle/Platform/Types.h>

#include <cstddef>

namespace Brindle::Vok::Platform
{

struct LibraryFile
{
    /// ERROR_SUCCESS for a file that the loader may be given; ERROR_MOD_NOT_FOUND, ERROR_BAD_EXE_FORMAT, or what the
    /// host says to opening or reading it.
    DWORD code;
    /// Names an interpreter, as programs do. Few libraries are both.
    bool isProgram = false;
    /// Bytes of address space that its segments take.
    std::size_t extent = 0;
};

LibraryFile ExamineLibrary(char const* path) noexcept;

} // namespace Brindle::Vok::Platform
