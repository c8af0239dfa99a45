// Examines files that may be libraries, and holds the answer against a plain reading of the whole file.
#include "Input.h"

#include "LibraryFile.h"

#include <Brindle/Platform/ErrorCodes.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <link.h>

using namespace Brindle::Vok::Platform;

namespace
{

/// That of this very program.
ElfW(Half) Machine()
{
    ElfW(Ehdr) header{};
    std::ifstream("/proc/self/exe", std::ios::binary).read(reinterpret_cast<char*>(&header), sizeof header);
    return header.e_machine;
}

LibraryFile Expected(std::string_view file)
{
    LibraryFile const refused{ERROR_BAD_EXE_FORMAT};
    ElfW(Ehdr) header;
    ElfW(Phdr) segment;
    if (file.size() < sizeof header)
        return refused;
    std::memcpy(&header, file.data(), sizeof header);
    static ElfW(Half) const machine = Machine();
    bool const isOurs = file.starts_with("\177ELF\2\1") && header.e_type == ET_DYN && header.e_machine == machine;
    if (!isOurs || header.e_phentsize != sizeof segment || header.e_phnum == 0 || header.e_phoff > file.size())
        return refused;
    LibraryFile library{ERROR_SUCCESS};
    for (std::string_view rest = file.substr(header.e_phoff); header.e_phnum > 0; --header.e_phnum)
    {
        if (rest.size() < sizeof segment)
            return refused;
        std::memcpy(&segment, rest.data(), sizeof segment);
        rest.remove_prefix(sizeof segment);
        library.isProgram |= segment.p_type == PT_INTERP;
        if (segment.p_type != PT_LOAD)
            continue;
        unsigned __int128 const inFile = static_cast<unsigned __int128>(segment.p_offset) + segment.p_filesz;
        unsigned __int128 const inMemory = static_cast<unsigned __int128>(segment.p_vaddr) + segment.p_memsz;
        if (inFile > file.size() || inMemory > ~std::size_t{})
            return refused;
        library.extent = std::max(library.extent, static_cast<std::size_t>(inMemory));
    }
    return library;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    static MemoryFile const file;
    std::string_view const content(reinterpret_cast<char const*>(data), size);
    file.Hold(content);
    LibraryFile const found = ExamineLibrary(file.Path());
    LibraryFile const expected = Expected(content);
    Require(found.code == expected.code, "Another code");
    if (found.code == ERROR_SUCCESS)
        Require(found.isProgram == expected.isProgram && found.extent == expected.extent, "Another library");
    return 0;
}
