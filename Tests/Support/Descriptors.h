// Counting the descriptors of this process, for tests that look for leaks.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace Brindle::Vok::Testing
{

inline std::size_t OpenDescriptors()
{
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator()));
}

} // namespace Brindle::Vok::Testing
