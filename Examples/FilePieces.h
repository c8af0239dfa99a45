// Contents of files in pieces of 256 KiB, however large the files are. They go past both generations of the file system
// service, which hold whole files in memory and read none of 4 GiB. A link in the place of a file isn't followed.
#pragma once

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/HandleOwner.h>
#include <Brindle/Vok/Path.h>
#include <Brindle/Vok/Platform.h>
#include <Brindle/Vok/VokWindows.h>

#include <cstdint>
#include <vector>

using FileHandle = Brindle::Vok::HandleOwner<Brindle::Vok::Detail::InvalidHandleTraits>;
using Piece = std::vector<char>;

inline std::int64_t SizeOf(FileHandle const& file)
{
    LARGE_INTEGER size;
    if (!GetFileSizeEx(file.Get(), &size))
        VOK_THROW_LAST_ERROR("the file has no size");
    return size.QuadPart;
}

/// Throws for what has no size, such as a device or a FIFO, as its contents might never end. Whoever opens the file for
/// writing meanwhile, through this library, is refused.
inline FileHandle OpenForReading(Brindle::Vok::Path const& path)
{
    FileHandle file =
        Brindle::Vok::VokCreateFile(path.ToString(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    SizeOf(file);
    return file;
}

inline FileHandle OpenForWriting(Brindle::Vok::Path const& path, DWORD disposition, DWORD flags)
{
    return Brindle::Vok::VokCreateFile(path.ToString(), GENERIC_WRITE, 0, nullptr, disposition,
                                       FILE_FLAG_OPEN_REPARSE_POINT | flags, nullptr);
}

/// The next bytes, none at the end.
inline Piece Read(FileHandle const& file)
{
    Piece piece(1 << 18);
    DWORD count = 0;
    if (!ReadFile(file.Get(), piece.data(), static_cast<DWORD>(piece.size()), &count, nullptr))
        VOK_THROW_LAST_ERROR("ReadFile failed");
    piece.resize(count);
    return piece;
}

inline void Transfer(FileHandle const& from, FileHandle const& to)
{
    for (Piece piece = Read(from); !piece.empty(); piece = Read(from))
    {
        DWORD written = 0;
        if (!WriteFile(to.Get(), piece.data(), static_cast<DWORD>(piece.size()), &written, nullptr))
            VOK_THROW_LAST_ERROR("WriteFile failed");
    }
}

inline bool AreEqual(FileHandle const& a, FileHandle const& b)
{
    if (SizeOf(a) != SizeOf(b))
        return false;
    for (;;)
    {
        Piece const piece = Read(a);
        if (piece != Read(b))
            return false;
        if (piece.empty())
            return true;
    }
}

/// A file that a program makes, and that goes with this object unless it is to be kept.
struct NewFile
{
    NewFile(Brindle::Vok::Path const& path, DWORD flags) : path(path), handle(OpenForWriting(path, CREATE_NEW, flags))
    {
    }
    ~NewFile()
    {
        handle.Reset();
        if (!isKept)
            DeleteFileW(path.ToString().c_str());
    }
    NewFile(NewFile const&) = delete;
    NewFile& operator=(NewFile const&) = delete;

    Brindle::Vok::Path const path;
    FileHandle handle;
    bool isKept = false;
};
