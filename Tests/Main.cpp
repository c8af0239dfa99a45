// The tests' main: as in many hosts, the global locale is the environment's. What the tests open they must close.
#include "HandleTable.h"
#include "Signal.h"

#include <Brindle/Vok/Platform.h>

#include "Support/Descriptors.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <locale>
#include <stdexcept>

// Tests start threads in children of a process that has some.
extern "C" char const* __tsan_default_options()
{
    return "die_after_fork=0";
}

namespace
{

/// What the pool of timers keeps.
constexpr std::size_t descriptorsOfTimers = 3;

struct OpenThings
{
    bool AreAllThatIsOpen() const
    {
        // The first timer opens them, if no test has made one: not before the tests, as it starts threads.
        CloseThreadpoolTimer(CreateThreadpoolTimer([](auto...) {}, nullptr, nullptr));
        OpenThings const now;
        if (now.handles == handles && now.descriptors == descriptors + descriptorsOfTimers)
            return true;
        std::fprintf(stderr, "Open before and after all tests: %zu and %zu handles, %zu and %zu descriptors\n", handles,
                     now.handles, descriptors, now.descriptors);
        return false;
    }

    std::size_t handles = Brindle::Vok::Platform::HandleTable::OpenCount();
    std::size_t descriptors = Brindle::Vok::Testing::OpenDescriptors();
};

} // namespace

int main(int argumentCount, char** arguments)
{
    try
    {
        std::locale::global(std::locale(""));
    }
    catch (std::runtime_error const&)
    {
        // The environment names a locale that this machine lacks; the classic one stays.
    }
    testing::InitGoogleMock(&argumentCount, arguments);
    // The first opening keeps a descriptor, by which other processes see this one.
    CloseHandle(CreateFileW(L"\\dev\\null", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    // So does the first wait of each thread.
    Brindle::Vok::Platform::PrepareToWait();
    OpenThings const before;
    int const result = RUN_ALL_TESTS();
    return before.AreAllThatIsOpen() ? result : 1;
}
