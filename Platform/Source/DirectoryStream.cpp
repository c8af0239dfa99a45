#include "DirectoryStream.h"

#include "Descriptor.h"
#include "HostErrors.h"
#include "SystemCalls.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>

namespace Brindle::Vok::Platform
{
namespace
{

// Records begin at multiples of 8 bytes, so 16 bits tell where one is in the largest chunk. Large directories are read
// in larger pieces, as the order by numbers is worth more then.
constexpr std::size_t unit = sizeof(std::uint64_t);
constexpr std::size_t leastRecord = 24;
constexpr std::size_t firstSize = 64 * 1024;
constexpr std::size_t largeSize = 512 * 1024;

bool Identify(int descriptor, struct statx& identity) noexcept
{
    identity = {};
    return SystemCalls::ExtendedStatusAt(descriptor, "", AT_EMPTY_PATH, STATX_INO | STATX_BTIME, &identity) == 0;
}

// Opens a directory, whose names are known, piece by piece where the path is longer than the host takes at once.
int OpenPath(std::string const& path) noexcept
{
    int directory = AT_FDCWD;
    for (std::size_t begin = 0; begin < path.size();)
    {
        char piece[PATH_MAX];
        std::size_t end = path.size();
        if (end - begin >= sizeof piece)
            end = path.rfind('/', begin + sizeof piece - 1);
        path.copy(piece, end - begin, begin);
        piece[end - begin] = 0;
        int const opened = OpenHost(directory, piece, O_PATH | O_DIRECTORY).Release();
        int const error = errno;
        if (directory >= 0)
            SystemCalls::Close(directory);
        errno = error;
        directory = opened;
        if (opened < 0)
            break;
        begin = std::min(end + 1, path.size());
    }
    return directory;
}

} // namespace

bool DirectoryStream::Next(Entry& entry) noexcept
{
    if (chunk.size == 0 && !IsAtEnd() && !MakeChunk(firstSize))
        return FailWith(ERROR_NOT_ENOUGH_MEMORY);
    while (at == count)
    {
        lookAhead.End();
        if (!parkedChunks.empty())
            TakeParkedChunk();
        else if (!ReadChunk())
            return false;
    }
    dirent64 const& record = Records().RecordOf(at++);
    entry = {record.d_name, std::strlen(record.d_name), record.d_type};
    return true;
}

// A chunk that there is stays when there is no memory for another one.
bool DirectoryStream::MakeChunk(std::size_t size) noexcept
{
    Chunk made{size, std::unique_ptr<std::uint64_t[]>(new (std::nothrow) std::uint64_t[size / unit]),
               std::unique_ptr<std::uint16_t[]>(new (std::nothrow) std::uint16_t[size / leastRecord])};
    if (!made.records || !made.order)
        return false;
    chunk = std::move(made);
    return true;
}

bool DirectoryStream::ReadChunk() noexcept
{
    if (hasAllNames)
        return FailWith(ERROR_NO_MORE_FILES);
    if (isLarge && chunk.size < largeSize)
        MakeChunk(largeSize);
    long const size =
        Uninterrupted([&] { return SystemCalls::ReadDirectory(Descriptor(), chunk.records.get(), chunk.size); });
    if (size < 0)
        return errno == ENOENT ? FailWith(ERROR_NO_MORE_FILES) : FailWithHost(errno); // one that was removed
    isLarge = static_cast<std::size_t>(size) > firstSize / 2;
    Arrange(static_cast<std::size_t>(size));
    return size > 0 || FailWith(ERROR_NO_MORE_FILES);
}

void DirectoryStream::TakeParkedChunk() noexcept
{
    std::vector<char> const& parked = parkedChunks.front();
    std::memcpy(chunk.records.get(), parked.data(), parked.size());
    Arrange(parked.size());
    parkedChunks.pop_front();
}

// By the numbers of their files: neighbours in number are neighbours on disk, and to ask for their status or to delete
// them in that order is a good deal faster than in the order of hashed names.
void DirectoryStream::Arrange(std::size_t size) noexcept
{
    at = count = 0;
    for (std::size_t offset = 0; offset < size;)
    {
        auto const place = static_cast<std::uint16_t>(offset / unit);
        dirent64 const& record = RecordAt(chunk.records.get(), place);
        if (std::strcmp(record.d_name, ".") != 0 && std::strcmp(record.d_name, "..") != 0)
            chunk.order[count++] = place;
        offset += record.d_reclen;
    }
    std::sort(chunk.order.get(), chunk.order.get() + count,
              [records = chunk.records.get()](std::uint16_t lhs, std::uint16_t rhs)
              { return RecordAt(records, lhs).d_ino < RecordAt(records, rhs).d_ino; });
}

bool DirectoryStream::Park() noexcept
{
    if (IsParked() || !Identify(Descriptor(), identity))
        return false;
    try
    {
        while (!hasAllNames)
        {
            std::vector<char>& rest = parkedChunks.emplace_back(firstSize);
            long const size =
                Uninterrupted([&] { return SystemCalls::ReadDirectory(Descriptor(), rest.data(), firstSize); });
            bool const failed = size < 0 && errno != ENOENT;
            hasAllNames = size <= 0 && !failed;
            if (size <= 0)
                parkedChunks.pop_back();
            if (failed)
                return false;
            if (size > 0)
            {
                rest.resize(static_cast<std::size_t>(size));
                rest.shrink_to_fit();
            }
        }
    }
    catch (std::bad_alloc const&)
    {
        return false; // what has been read is given out before the rest
    }
    Close();
    return true;
}

bool DirectoryStream::Reopen(std::string const& path) noexcept
{
    int const opened = OpenPath(path);
    if (opened < 0)
        return errno == ENOENT || errno == ENOTDIR ? FailWith(ERROR_PATH_NOT_FOUND) : FailWithHost(errno);
    struct statx found;
    bool const isSame =
        Identify(opened, found) && found.stx_ino == identity.stx_ino && found.stx_dev_major == identity.stx_dev_major &&
        found.stx_dev_minor == identity.stx_dev_minor && found.stx_btime.tv_sec == identity.stx_btime.tv_sec &&
        found.stx_btime.tv_nsec == identity.stx_btime.tv_nsec;
    if (!isSame)
    {
        SystemCalls::Close(opened);
        return FailWith(ERROR_PATH_NOT_FOUND);
    }
    descriptor.store(opened, std::memory_order_relaxed);
    return true;
}

void DirectoryStream::Close() noexcept
{
    lookAhead.End();
    if (int const open = descriptor.exchange(-1, std::memory_order_relaxed); open >= 0)
        SystemCalls::Close(open);
}

} // namespace Brindle::Vok::Platform
