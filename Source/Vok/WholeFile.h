// Whole files, as both generations of the file system read and write them. What fails is told with the location that
// the caller gives, so that each generation's errors and statements name its own file and function.
#pragma once

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/FileSystem.h>
#include <Brindle/Vok/HandleOwner.h>
#include <Brindle/Vok/Path.h>
#include <Brindle/Vok/VokWindows.h>

#include <cstddef>
#include <span>

namespace Brindle::Vok::Detail
{

/// A file that is open to nobody else, and its size. In line, because each call that has to be found again behind a
/// system call is felt in a small file.
class WholeFileReader
{
public:
    /// Throws Error if the file can't be opened and WindowsError if its size can't be told or is 4 GiB or more.
    WholeFileReader(Location const& location, Path const& path)
        : location(location),
          file(VokCreateFile(path.ToString(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr))
    {
        LARGE_INTEGER found{};
        if (!GetFileSizeEx(file.Get(), &found))
            throw MakeLastErrorToThrow(location, "GetFileSize failed [{}]", path.ToString());
        if (found.HighPart != 0)
            throw MakeErrorToThrow<WindowsError>(location, ERROR_FUNCTION_FAILED,
                                                 "GetFileSize returned a big number. [{}]", found.QuadPart);
        size = found.LowPart;
    }

    /// In bytes.
    DWORD Size() const { return size; }
    /// All the bytes. Throws WindowsError, also when the file has become shorter.
    void Read(void* buffer) const
    {
        DWORD bytesRead = 0;
        if (!ReadFile(file.Get(), buffer, size, &bytesRead, nullptr))
            throw MakeLastErrorToThrow(location, "ReadFile failed");
        if (bytesRead != size)
            throw MakeErrorToThrow<WindowsError>(location, ERROR_FUNCTION_FAILED, "Failed to read entire file");
    }

private:
    Location location;
    HandleOwner<InvalidHandleTraits> file;
    DWORD size;
};

/// One form of a text file: its mark, and the texts of the soft assertions that mark and content are written whole.
struct TextFileForm
{
    std::span<unsigned char const> mark;
    char const* markAssertion;
    char const* contentAssertion;
};

/// Throws Error if the file can't be opened and WindowsError if writing fails. A content of more than 0xFFFFFFFF bytes
/// fails with 223 before the file is touched.
void WriteTextFile(Location const& location, Path const& path, TextFileForm const& form,
                   ByteOrderMarkPolicy byteOrderMark, void const* content, std::size_t byteCount);
/// The same for bytes as they are, with nothing before them.
void WriteBinaryFile(Location const& location, Path const& path, std::span<unsigned char const> bytes);

/// What a text fails with that is too long to be written or converted.
[[noreturn]] void RefuseLongContent(Location const& location, Path const& path);

} // namespace Brindle::Vok::Detail
