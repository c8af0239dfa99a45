#include <Brindle/Vok/FileSystem.h>

#include <Brindle/Vok/Log.h>
#include <Brindle/Vok/VokWindows.h>

#include "FileSystemImpl.h"
#include "StringStorage.h"
#include "TextFormat.h"

#include <utility>

namespace Brindle::Vok
{

// Named without their namespace, since the texts of the assertions below are fixed.
using Detail::utf16ByteOrderMark;
using Detail::utf8ByteOrderMark;

namespace
{

/// One write carries its count in 32 bits.
constexpr std::size_t maximumByteCount = 0xFFFFFFFFU;

using FileOwner = HandleOwner<Detail::InvalidHandleTraits>;

FileOwner OpenForWriting(Path const& path)
{
    return VokCreateFile(path.ToString(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

FileOwner OpenForReading(Path const& path)
{
    return VokCreateFile(path.ToString(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
}

} // namespace

std::shared_ptr<FileSystem> MakeFileSystem()
{
    return std::make_shared<FileSystemImpl>();
}

std::unique_ptr<File> FileSystemImpl::MakeFile(Path path)
{
    return std::make_unique<FileImpl>(std::move(path));
}

// The operations below are not there yet: they fail and say so.

TempDirectory FileSystemImpl::MakeTempDirectory()
{
    VOK_THROW(WindowsError, ERROR_CALL_NOT_IMPLEMENTED, "MakeTempDirectory");
}

PathInfo FileSystemImpl::MakePathInfo(Path path)
{
    VOK_THROW(WindowsError, ERROR_CALL_NOT_IMPLEMENTED, "MakePathInfo [{}]", path.ToString());
}

DirectoryInfo FileSystemImpl::MakeDirectoryInfo(Path path)
{
    VOK_THROW(WindowsError, ERROR_CALL_NOT_IMPLEMENTED, "MakeDirectoryInfo [{}]", path.ToString());
}

void FileSystemImpl::VokCreateDirectory(Path path)
{
    VOK_THROW(WindowsError, ERROR_CALL_NOT_IMPLEMENTED, "CreateDirectory [{}]", path.ToString());
}

bool FileSystemImpl::DeleteDirectory(Path path, Error& error)
{
    VOK_SET_ERROR(error, WindowsError, ERROR_CALL_NOT_IMPLEMENTED, "DeleteDirectory [{}]", path.ToString());
    return true;
}

bool FileSystemImpl::DeleteDirectory(Path path)
{
    WindowsError error;
    bool const existed = DeleteDirectory(std::move(path), error);
    if (error.Failed())
        throw WindowsError(error);
    return existed;
}

FileImpl::FileImpl(Path path) : path(std::move(path)) {}

// Line endings are normalised once, in the overload that was called and on its form of the text; where the encoding
// wants the other form, the other overload then gets Unchanged.

void FileImpl::WriteAllText(std::wstring const& text, TextEncoding encoding, ByteOrderMarkPolicy byteOrderMark,
                            LineEndingPolicy lineEndings)
{
    Detail::NormalizedText const normalized(text, lineEndings);
    std::wstring const& toWrite = normalized.Text();
    if (encoding == TextEncoding::Utf8)
    {
        std::string const narrow = WideToUtf8(toWrite);
        if (narrow.empty() && !toWrite.empty()) // longer than the platform converts: the file keeps what it has
            VOK_THROW(WindowsError, ERROR_FILE_TOO_LARGE, L"WriteFile content failed [{}]", path.ToString());
        return WriteAllText(narrow, TextEncoding::Utf8, byteOrderMark, LineEndingPolicy::Unchanged);
    }
    if (encoding != TextEncoding::Utf16)
        return; // required: nothing is written and nothing reported

    Detail::Utf16Units const units(toWrite); // made first: when memory is short the file keeps what it has
    if (units.ByteCount() > maximumByteCount)
        VOK_THROW(WindowsError, ERROR_FILE_TOO_LARGE, L"WriteFile content failed [{}]", path.ToString());
    FileOwner const file = OpenForWriting(path);
    DWORD bytesWritten = 0;
    if (byteOrderMark == ByteOrderMarkPolicy::Write)
    {
        if (!WriteFile(file.Get(), utf16ByteOrderMark, sizeof(utf16ByteOrderMark), &bytesWritten, nullptr))
            VOK_THROW_LAST_ERROR(L"WriteFile bom [{}].", path.ToString());
        VOK_ASSERT(bytesWritten == sizeof(utf16ByteOrderMark));
    }
    if (!WriteFile(file.Get(), units.Data(), static_cast<DWORD>(units.ByteCount()), &bytesWritten, nullptr))
        VOK_THROW_LAST_ERROR(L"WriteFile content failed [{}]", path.ToString());
    // The text is fixed; the file gets 2 bytes a code unit whatever the width of wchar_t.
    VOK_DETAIL_ASSERT(bytesWritten == units.ByteCount(), "bytesWritten == toWrite.size() * sizeof(wchar_t)");
}

void FileImpl::WriteAllText(std::string const& text, TextEncoding encoding, ByteOrderMarkPolicy byteOrderMark,
                            LineEndingPolicy lineEndings)
{
    Detail::NormalizedText const normalized(text, lineEndings);
    std::string const& toWrite = normalized.Text();
    if (encoding == TextEncoding::Utf16)
    {
        std::wstring const wide = Utf8ToWide(toWrite);
        if (wide.empty() && !toWrite.empty()) // longer than the platform converts: the file keeps what it has
            VOK_THROW(WindowsError, ERROR_FILE_TOO_LARGE, L"WriteFile content failed [{}]", path.ToString());
        return WriteAllText(wide, TextEncoding::Utf16, byteOrderMark, LineEndingPolicy::Unchanged);
    }
    if (encoding != TextEncoding::Utf8)
        return; // required: nothing is written and nothing reported
    if (toWrite.size() > maximumByteCount)
        VOK_THROW(WindowsError, ERROR_FILE_TOO_LARGE, L"WriteFile content failed [{}]", path.ToString());

    FileOwner const file = OpenForWriting(path);
    DWORD bytesWritten = 0;
    if (byteOrderMark == ByteOrderMarkPolicy::Write)
    {
        if (!WriteFile(file.Get(), utf8ByteOrderMark, sizeof(utf8ByteOrderMark), &bytesWritten, nullptr))
            VOK_THROW_LAST_ERROR(L"WriteFile bom [{}].", path.ToString());
        VOK_ASSERT(bytesWritten == sizeof(utf8ByteOrderMark));
    }
    if (!WriteFile(file.Get(), toWrite.data(), static_cast<DWORD>(toWrite.size()), &bytesWritten, nullptr))
        VOK_THROW_LAST_ERROR(L"WriteFile content failed [{}]", path.ToString());
    VOK_ASSERT(bytesWritten == toWrite.size());
}

std::string FileImpl::ReadAllTextA()
{
    FileOwner const file = OpenForReading(path);
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file.Get(), &size))
        VOK_THROW_LAST_ERROR("GetFileSize failed [{}]", path.ToString());
    if (size.HighPart != 0)
        VOK_THROW(WindowsError, ERROR_FUNCTION_FAILED, "GetFileSize returned a big number. [{}]", size.QuadPart);

    std::string text;
    Detail::ResizeUninitialized(text, size.LowPart);
    DWORD bytesRead = 0;
    if (!ReadFile(file.Get(), text.data(), size.LowPart, &bytesRead, nullptr))
        VOK_THROW_LAST_ERROR("ReadFile failed");
    if (bytesRead != size.LowPart)
        VOK_THROW(WindowsError, ERROR_FUNCTION_FAILED, "Failed to read entire file");
    return text;
}

} // namespace Brindle::Vok
