// The entries of one open directory. A stream can be parked: its descriptor is closed, the names to come wait in
// memory, and it is opened again when something of the directory is needed, provided that its path still leads to the
// very same directory (by number and time of birth).
#pragma once

#include "LookAhead.h"

#include <Brindle/Platform/Types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <dirent.h>
#include <list>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace Brindle::Vok::Platform
{

/// Next, Park and Reopen are for one thread at a time; Descriptor and IsParked may be called by any.
class DirectoryStream
{
public:
    struct Entry
    {
        char const* name;
        std::size_t length;
        unsigned char type;
    };

    /// Takes over the descriptor of a directory. With no entries wanted it need not be one that reads.
    DirectoryStream(int descriptor, bool hasEntries) noexcept : descriptor(descriptor), hasAllNames(!hasEntries) {}
    ~DirectoryStream() { Close(); }
    DirectoryStream(DirectoryStream const&) = delete;
    DirectoryStream& operator=(DirectoryStream const&) = delete;

    /// Negative while parked.
    int Descriptor() const noexcept { return descriptor.load(std::memory_order_relaxed); }
    bool IsParked() const noexcept { return Descriptor() < 0; }

    /// Known to be at its end, without a look at the disk.
    bool IsAtEnd() const noexcept { return hasAllNames && parkedChunks.empty() && at == count; }
    /// The next entry but "." and "..", which is there until the next call. False with the last error set,
    /// ERROR_NO_MORE_FILES at the end.
    bool Next(Entry& entry) noexcept;

    /// Has a second thread ask for the statuses of the entries to come, if there are many at hand.
    void AskAhead() noexcept { lookAhead.Begin(Descriptor(), Records(), at); }
    /// What a second thread has learned is forgotten, and none is begun again.
    void StopAskingAhead() noexcept
    {
        if (lookAhead.HasBegun())
            lookAhead.EndForGood();
    }
    /// The status of the entry that Next gave, if the second thread has asked for it; null otherwise.
    EntryStatus const* KnownStatus() noexcept { return lookAhead.Find(at - 1); }

    /// False, and the stream stays open, when its names can't be taken into memory.
    bool Park() noexcept;
    /// False with the last error set: ERROR_PATH_NOT_FOUND when another directory, or none, is at the path now.
    bool Reopen(std::string const& path) noexcept;

private:
    // What the host gives at one time, and where its records are, in the order in which they are given out.
    struct Chunk
    {
        std::size_t size = 0;
        std::unique_ptr<std::uint64_t[]> records; // which are aligned like this
        std::unique_ptr<std::uint16_t[]> order;
    };

    bool MakeChunk(std::size_t size) noexcept;
    bool ReadChunk() noexcept;
    void TakeParkedChunk() noexcept;
    void Arrange(std::size_t size) noexcept;
    void Close() noexcept;
    EntryRecords Records() const noexcept { return {chunk.records.get(), chunk.order.get(), count}; }

    std::atomic<int> descriptor;
    struct statx identity = {};
    bool isLarge = false;
    bool hasAllNames = false;
    std::list<std::vector<char>> parkedChunks;
    std::size_t at = 0;
    std::size_t count = 0;
    Chunk chunk;
    LookAhead lookAhead;
};

} // namespace Brindle::Vok::Platform
