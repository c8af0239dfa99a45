// Locks on ranges of a file's bytes that belong to the open file, not to the process.
#pragma once

#include "HostErrors.h"
#include "SystemCalls.h"

namespace Brindle::Vok::Platform
{

inline struct flock RangeFor(int type, off_t start, off_t length) noexcept
{
    struct flock range = {};
    range.l_type = static_cast<short>(type);
    range.l_whence = SEEK_SET;
    range.l_start = start;
    range.l_len = length;
    return range;
}

/// Takes a lock (F_RDLCK, F_WRLCK) or gives one back (F_UNLCK), without waiting. False with errno set.
inline bool ChangeRange(int descriptor, int type, off_t start, off_t length) noexcept
{
    struct flock range = RangeFor(type, start, length);
    return Uninterrupted([&] { return SystemCalls::LockRange(descriptor, F_OFD_SETLK, &range); }) == 0;
}

/// Whether another open file holds a lock in the range. When the host doesn't tell, one does.
inline bool OthersLock(int descriptor, off_t start, off_t length) noexcept
{
    struct flock range = RangeFor(F_WRLCK, start, length);
    return SystemCalls::LockRange(descriptor, F_OFD_GETLK, &range) != 0 || range.l_type != F_UNLCK;
}

} // namespace Brindle::Vok::Platform
