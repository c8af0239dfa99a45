#include "HandleCounts.h"

namespace Brindle::Vok::Platform
{
namespace
{

constexpr unsigned counterBits = 12;
constinit HandleCounter counters[1 << counterBits] = {};

} // namespace

HandleCounter& HandlesOn(ino_t file) noexcept
{
    return counters[static_cast<std::uint64_t>(file) * 0x9E37'79B9'7F4A'7C15U >> (64 - counterBits)];
}

} // namespace Brindle::Vok::Platform
