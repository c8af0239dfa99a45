#include "Sharing.h"

#include "HostErrors.h"
#include "RangeLock.h"
#include "SystemCalls.h"

#include <atomic>
#include <chrono>
#include <cstdint>

namespace Brindle::Vok::Platform
{
namespace
{

// Sets of markers. They are ordered so that the common terms give runs of neighbours, which one call marks.
using Markers = unsigned;
constexpr Markers deleteUser = 1 << 0;
constexpr Markers writeUser = 1 << 1;
constexpr Markers readUser = 1 << 2;
constexpr Markers writeDenier = 1 << 3;
constexpr Markers deleteDenier = 1 << 4;
constexpr Markers readDenier = 1 << 5;
constexpr unsigned markerCount = 6;

constexpr Markers UsersOf(DWORD rights)
{
    return (rights & FILE_SHARE_READ ? readUser : 0) | (rights & FILE_SHARE_WRITE ? writeUser : 0) |
           (rights & FILE_SHARE_DELETE ? deleteUser : 0);
}

constexpr Markers DeniersOf(DWORD rights)
{
    return (rights & FILE_SHARE_READ ? readDenier : 0) | (rights & FILE_SHARE_WRITE ? writeDenier : 0) |
           (rights & FILE_SHARE_DELETE ? deleteDenier : 0);
}

// Where the markers lie. A descriptor that reads marks with read locks, and any number of those fit on one byte. One
// that only writes can take write locks alone, so it marks one byte of a range, any that is free.
constexpr off_t area = off_t{1} << 62;
constexpr off_t rangeArea = area + (off_t{1} << 24);
constexpr off_t rangeLength = off_t{1} << 20;
constexpr off_t setStride = 8;
constexpr off_t areaLength = (off_t{1} << 24) + 2 * setStride * rangeLength;

enum class Set : unsigned
{
    provisional,
    definite
};

constexpr off_t ByteOf(Set set, unsigned marker)
{
    return area + static_cast<off_t>(set) * setStride + marker;
}

constexpr off_t RangeOf(Set set, unsigned marker)
{
    return rangeArea + (static_cast<off_t>(set) * setStride + marker) * rangeLength;
}

// Calls use(first, count) for each run of neighbouring markers until it gives false.
template <class Use>
bool ForEachRun(Markers markers, Use use)
{
    for (unsigned first = 0; first < markerCount; ++first)
    {
        unsigned count = 0;
        while (markers >> (first + count) & 1)
            ++count;
        if (count != 0 && !use(first, count))
            return false;
        first += count;
    }
    return true;
}

// A number that differs from moment to moment and from process to process, for spreading only.
std::uint64_t Scatter() noexcept
{
    auto value = static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    value = (value ^ value >> 30 ^ reinterpret_cast<std::uintptr_t>(&value)) * 0xBF58476D1CE4E5B9U;
    return (value ^ value >> 27) * 0x94D049BB133111EBU >> 16;
}

class MarkedFile
{
public:
    MarkedFile(int descriptor, bool readable) noexcept : descriptor(descriptor), readable(readable) {}

    bool Mark(Set set, Markers markers) const noexcept
    {
        return ForEachRun(markers,
                          [&](unsigned first, unsigned count)
                          {
                              if (readable)
                                  return Change(F_RDLCK, ByteOf(set, first), count);
                              for (unsigned marker = first; marker < first + count; ++marker)
                                  if (!MarkSomewhere(RangeOf(set, marker)))
                                      return false;
                              return true;
                          });
    }

    void Unmark(Set set) const noexcept
    {
        if (readable)
            Change(F_UNLCK, ByteOf(set, 0), markerCount);
        else
            Change(F_UNLCK, RangeOf(set, 0), markerCount * rangeLength);
    }

    void UnmarkAll() const noexcept { Change(F_UNLCK, area, areaLength); }

    // Another descriptor holds one of the markers.
    bool OthersHold(Set set, Markers markers) const noexcept
    {
        return !ForEachRun(markers,
                           [&](unsigned first, unsigned count) {
                               return !OthersLock(ByteOf(set, first), count) &&
                                      !OthersLock(RangeOf(set, first), count * rangeLength);
                           });
    }

    bool OthersHoldAny() const noexcept { return OthersLock(area, areaLength); }

private:
    bool MarkSomewhere(off_t range) const noexcept
    {
        for (int attempt = 0; attempt < 16; ++attempt)
            if (Change(F_WRLCK, range + static_cast<off_t>(Scatter() % rangeLength), 1))
                return true;
        return false;
    }

    bool Change(int type, off_t start, off_t length) const noexcept
    {
        return ChangeRange(descriptor, type, start, length);
    }

    // A lock that a foreign program put there, on the whole file for instance, counts: somebody relies on it.
    bool OthersLock(off_t start, off_t length) const noexcept
    {
        return Platform::OthersLock(descriptor, start, length);
    }

    int descriptor;
    bool readable;
};

int LockWhole(int descriptor, int operation) noexcept
{
    bool const locked = Uninterrupted([&] { return SystemCalls::LockWhole(descriptor, operation | LOCK_NB); }) == 0;
    return locked ? 0 : errno;
}

DWORD CodeOfRefusedLock(int error, DWORD shares) noexcept
{
    if (error == EWOULDBLOCK)
        return ERROR_SHARING_VIOLATION;
    bool const keepsNoLocks = error == EOPNOTSUPP || error == ENOSYS || error == EINVAL || error == EBADF;
    if (!keepsNoLocks)
        return CodeFromHost(error);
    return shares == allShares ? ERROR_SUCCESS : ERROR_NOT_SUPPORTED;
}

} // namespace

void PauseForOthers(int attempt) noexcept
{
    long const most = 50'000L << (attempt < 6 ? attempt : 6);
    timespec const time{0, 20'000 + static_cast<long>(Scatter() % static_cast<std::uint64_t>(most))};
    SystemCalls::Sleep(&time);
}

// A process that looks at what another one has open, as every listing of open files does, keeps a file that is closed
// meanwhile, and so its locks, for the moment of its look, which lasts longer when that process has to wait for a
// processor. So nobody is refused because of one look at the locks: of those that no handle of this process accounts
// for a few milliseconds are waited for, and a moment of others, which may be another file's handles.
DWORD SharedDescriptor::LockPatiently(ShareTerms const& terms, bool briefly) noexcept
{
    constexpr int patience = 8;        // pauses, 5 ms together on average and 10 at most
    constexpr int patienceWithOwn = 2; // 0.1 ms
    for (int attempt = 0;; ++attempt)
    {
        bool hasRaced = false;
        DWORD const code = terms.shares == 0 ? LockUnshared(terms, hasRaced) : LockShared(terms, briefly, hasRaced);
        if (code != ERROR_SHARING_VIOLATION || hasRaced || attempt == patience)
            return code;
        if (attempt >= patienceWithOwn && MayBeHeldHere())
            return code;
        PauseForOthers(attempt);
    }
}

// Whether a handle of this process may be what is in the way. Files share counters, and devices have none. Asked before
// this handle is counted itself.
bool SharedDescriptor::MayBeHeldHere() const noexcept
{
    struct stat status;
    return SystemCalls::Status(descriptor, &status) == 0 &&
           (!IsCounted(status.st_mode) || HandlesOn(status.st_ino).load(std::memory_order_relaxed) != 0);
}

DWORD SharedDescriptor::LockUnshared(ShareTerms const& terms, bool& hasRaced) noexcept
{
    int const error = LockWhole(descriptor, LOCK_EX);
    // Some network file systems give an exclusive lock only to descriptors that write; markers serve there.
    if (error == EBADF && terms.readable)
        return LockShared(terms, false, hasRaced);
    if (error != 0)
        return CodeOfRefusedLock(error, terms.shares);
    Hold(Locks::whole);
    return ERROR_SUCCESS;
}

DWORD SharedDescriptor::LockShared(ShareTerms const& terms, bool briefly, bool& hasRaced) noexcept
{
    constexpr int attempts = 40;
    if (int const error = LockWhole(descriptor, LOCK_SH))
        return CodeOfRefusedLock(error, terms.shares);
    Hold(Locks::wholeAndMarkers);
    MarkedFile const file(descriptor, terms.readable);
    DWORD const denied = allShares & ~terms.shares;
    Markers const own = UsersOf(terms.uses) | DeniersOf(denied);
    Markers const against = DeniersOf(terms.uses) | UsersOf(denied);
    for (int attempt = 0; attempt < attempts; ++attempt)
    {
        hasRaced = false;
        if (!file.Mark(Set::provisional, own))
            break;
        if (file.OthersHoldAny())
        {
            // In this order: a racing opening marks its definite set before it takes the provisional one away.
            bool const races = file.OthersHold(Set::provisional, against);
            if (file.OthersHold(Set::definite, against))
                break;
            hasRaced = races;
        }
        if (!hasRaced)
        {
            if (briefly)
                return ERROR_SUCCESS;
            if (!file.Mark(Set::definite, own))
                break;
            file.Unmark(Set::provisional);
            return ERROR_SUCCESS;
        }
        file.Unmark(Set::provisional);
        PauseForOthers(attempt);
    }
    Unlock();
    return ERROR_SHARING_VIOLATION;
}

void SharedDescriptor::Unlock() noexcept
{
    if (locks == Locks::wholeAndMarkers)
        MarkedFile(descriptor, true).UnmarkAll();
    if (locks != Locks::none)
        SystemCalls::LockWhole(descriptor, LOCK_UN);
    locks = Locks::none;
}

} // namespace Brindle::Vok::Platform
