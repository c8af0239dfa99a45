#include "WholeFile.h"

#include <Brindle/Vok/VokWindows.h>

#include "LogAt.h"

namespace Brindle::Vok::Detail
{
namespace
{

using FileOwner = HandleOwner<InvalidHandleTraits>;

/// One write carries its count in 32 bits.
constexpr std::size_t maximumByteCount = 0xFFFFFFFFU;

FileOwner OpenForWriting(Path const& path)
{
    return VokCreateFile(path.ToString(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

/// One write of everything. What it wrote less than that is the soft assertion's matter.
void WriteWhole(Location const& location, FileOwner const& file, void const* bytes, std::size_t byteCount,
                char const* assertion, wchar_t const* failure, Path const& path)
{
    DWORD bytesWritten = 0;
    if (!WriteFile(file.Get(), bytes, static_cast<DWORD>(byteCount), &bytesWritten, nullptr))
        throw MakeLastErrorToThrow(location, failure, path.ToString());
    if (bytesWritten != byteCount)
        LogAt(location, VokLogSeverity::error, "Assertion failed: {}", assertion);
}

constexpr wchar_t contentFailure[] = L"WriteFile content failed [{}]";

} // namespace

void WriteTextFile(Location const& location, Path const& path, TextFileForm const& form,
                   ByteOrderMarkPolicy byteOrderMark, void const* content, std::size_t byteCount)
{
    if (byteCount > maximumByteCount)
        RefuseLongContent(location, path);
    FileOwner const file = OpenForWriting(path);
    if (byteOrderMark == ByteOrderMarkPolicy::Write)
        WriteWhole(location, file, form.mark.data(), form.mark.size(), form.markAssertion, L"WriteFile bom [{}].",
                   path);
    WriteWhole(location, file, content, byteCount, form.contentAssertion, contentFailure, path);
}

void WriteBinaryFile(Location const& location, Path const& path, std::span<unsigned char const> bytes)
{
    constexpr wchar_t failure[] = L"WriteFile failed [{}]";
    if (bytes.size() > maximumByteCount)
        throw MakeErrorToThrow<WindowsError>(location, ERROR_FILE_TOO_LARGE, failure, path.ToString());
    FileOwner const file = OpenForWriting(path);
    WriteWhole(location, file, bytes.data(), bytes.size(), "bytesWritten == bytes.size()", failure, path);
}

void RefuseLongContent(Location const& location, Path const& path)
{
    throw MakeErrorToThrow<WindowsError>(location, ERROR_FILE_TOO_LARGE, contentFailure, path.ToString());
}

} // namespace Brindle::Vok::Detail
