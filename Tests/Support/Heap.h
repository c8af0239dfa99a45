// Counts the blocks of memory that the program's operator new has given, and lets it run out. Included by one source.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace Brindle::Vok::Testing::Heap
{

inline std::atomic<long> blocks = 0;
/// Blocks that the calling thread still gets; none is refused while it is negative.
inline thread_local long allowed = -1;
inline thread_local bool hasRefused = false;

inline void* Take(std::size_t size, bool throws)
{
    hasRefused = hasRefused || allowed == 0;
    void* const block = allowed == 0 ? nullptr : std::malloc(size);
    allowed -= allowed > 0 ? 1 : 0;
    blocks += block != nullptr ? 1 : 0;
    return block != nullptr || !throws ? block : throw std::bad_alloc();
}

inline void Return(void* block) noexcept
{
    blocks -= block != nullptr ? 1 : 0;
    std::free(block);
}

} // namespace Brindle::Vok::Testing::Heap

namespace Heap = Brindle::Vok::Testing::Heap;

// clang-format off
void* operator new(std::size_t size) { return Heap::Take(size, true); }
void* operator new[](std::size_t size) { return Heap::Take(size, true); }
void* operator new(std::size_t size, std::nothrow_t const&) noexcept { return Heap::Take(size, false); }
void* operator new[](std::size_t size, std::nothrow_t const&) noexcept { return Heap::Take(size, false); }
void operator delete(void* block) noexcept { Heap::Return(block); }
void operator delete[](void* block) noexcept { Heap::Return(block); }
void operator delete(void* block, std::size_t) noexcept { Heap::Return(block); }
void operator delete[](void* block, std::size_t) noexcept { Heap::Return(block); }
// clang-format on
