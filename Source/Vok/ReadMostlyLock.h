// A reader-writer lock for data that is read all the time and written hardly ever.
//
// Each reader counts itself in on a cache line that it shares with as few other threads as possible, so readers on
// different cores do not slow each other down. A reader may enter again on its own thread, also while a writer waits.
// A writer waits for all readers, and waits asleep. The count of entries belongs to the thread and not to the lock, so
// a program has one lock of this kind.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>

namespace Brindle::Vok::Detail
{

class ReadMostlyLock
{
public:
    constexpr ReadMostlyLock() = default;
    ReadMostlyLock(ReadMostlyLock const&) = delete;
    ReadMostlyLock& operator=(ReadMostlyLock const&) = delete;

    void lock_shared()
    {
        if (thisThread.depth++ > 0)
            return;
        std::atomic<std::uint32_t>& readers = Shard();
        while (true)
        {
            readers.fetch_add(1);
            if (isWriting.load() == 0)
                return;
            Leave(readers);
            isWriting.wait(1);
        }
    }

    void unlock_shared()
    {
        if (--thisThread.depth == 0)
            Leave(Shard());
    }

    void lock()
    {
        writers.lock();
        isWriting.store(1);
        for (PaddedCount& shard : shards)
        {
            while (std::uint32_t const count = shard.readers.load())
                shard.readers.wait(count);
        }
    }

    void unlock()
    {
        isWriting.store(0);
        isWriting.notify_all();
        writers.unlock();
    }

private:
    // Processors fetch cache lines in pairs, so each count has two.
    struct alignas(128) PaddedCount
    {
        std::atomic<std::uint32_t> readers{0};
    };

    struct ThreadState
    {
        std::uint32_t depth;
        std::uint32_t shard; // 1 more than the index; 0 before the thread's first use
    };

    std::atomic<std::uint32_t>& Shard()
    {
        if (thisThread.shard == 0)
            thisThread.shard = nextShard.fetch_add(1, std::memory_order_relaxed) % shardCount + 1;
        return shards[thisThread.shard - 1].readers;
    }

    // The writer sets its flag before it looks at the counts and the reader changes its count before it looks at the
    // flag, all of it sequentially consistent: either the reader sees the flag and wakes the writer, or the writer sees
    // the new count.
    void Leave(std::atomic<std::uint32_t>& readers)
    {
        readers.fetch_sub(1);
        if (isWriting.load() != 0)
            readers.notify_all();
    }

    static constexpr std::uint32_t shardCount = 64;
    static inline constinit thread_local ThreadState thisThread{};
    static inline constinit std::atomic<std::uint32_t> nextShard{0};

    std::array<PaddedCount, shardCount> shards;
    alignas(64) std::atomic<std::uint32_t> isWriting{0};
    std::mutex writers;
};

} // namespace Brindle::Vok::Detail
