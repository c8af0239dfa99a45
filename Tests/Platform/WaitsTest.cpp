#include "Signal.h"

#include "Support/ChildProcess.h"
#include "Support/Descriptors.h"
#include "Support/HostFaults.h"
#include "Support/OpenHandle.h"

#include <Brindle/Platform/Changes.h>
#include <Brindle/Platform/Waits.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <sys/eventfd.h>
#include <thread>
#include <vector>

using namespace Brindle::Vok::Platform;
using namespace Brindle::Vok::Testing;
using namespace std::chrono_literals;

namespace
{

constexpr DWORD longTime = 20'000;

OpenHandle Event(bool manualReset, bool isSet = false, wchar_t const* name = nullptr)
{
    return OpenHandle(CreateEventW(nullptr, manualReset, isSet, name));
}

OpenHandle Semaphore(LONG count, LONG most, wchar_t const* name = nullptr)
{
    return OpenHandle(CreateSemaphoreW(nullptr, count, most, name));
}

DWORD Look(OpenHandle const& object)
{
    return WaitForSingleObject(object.Get(), 0);
}

DWORD WaitFor(std::vector<HANDLE> const& objects, bool all, DWORD milliseconds = 0)
{
    return WaitForMultipleObjects(static_cast<DWORD>(objects.size()), objects.data(), all, milliseconds);
}

/// Threads that do the same, and wait in it once this has been made.
class Threads
{
public:
    template <class Run>
    Threads(int count, Run run)
    {
        for (int i = 0; i < count; ++i)
        {
            std::atomic<pid_t> number{0};
            threads.emplace_back([&number, run] { number = ::gettid(), run(); });
            while (number == 0 || !Sleeps(number))
                std::this_thread::sleep_for(1ms);
        }
    }
    ~Threads() { Join(); }
    void Join()
    {
        for (std::thread& thread : std::exchange(threads, {}))
            thread.join();
    }

private:
    static bool Sleeps(pid_t thread)
    {
        std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
        std::string const status{std::istreambuf_iterator<char>(file), {}};
        return status.find(") S ") != std::string::npos;
    }

    std::vector<std::thread> threads;
};

/// An operation that ends when its descriptor is written to, and then sets its signal.
class Operation final : public PendingOperation, public std::enable_shared_from_this<Operation>
{
public:
    explicit Operation(HANDLE event)
        : signal(HandleTable::Find<SignalObject>(event)->signal), descriptor(::eventfd(0, EFD_NONBLOCK))
    {
    }
    ~Operation() override { ::close(descriptor); }

    void Begin() { EXPECT_TRUE(signal->Attach(shared_from_this())); }
    void MayEnd() const { EXPECT_EQ(::eventfd_write(descriptor, 1), 0); }
    Needs WhatItNeeds() const noexcept override { return {descriptor, never}; }
    void Advance() noexcept override
    {
        eventfd_t count;
        if (::eventfd_read(descriptor, &count) != 0)
            return; // another thread was faster
        signal->End(*this);
    }

private:
    std::shared_ptr<Signal> const signal;
    int const descriptor;
};

} // namespace

TEST(Waits, TakeWhatTheKindOfTheObjectSays)
{
    for (bool const isManual : {false, true})
    {
        OpenHandle const event = Event(isManual, true);
        for (DWORD const result : {0U, isManual ? 0U : 258U})
            EXPECT_EQ(Look(event), result);
        VOK_EXPECT_CODE(0, SetEvent(event.Get()) && ResetEvent(event.Get()));
        EXPECT_EQ(Look(event), 258U);
        VOK_EXPECT_CODE(0, SetEvent(event.Get()) && SetEvent(event.Get()));
        for (DWORD const result : {0U, isManual ? 0U : 258U}) // setting doesn't add up
            EXPECT_EQ(Look(event), result);
    }
}

TEST(Waits, SemaphoresCountToTheirMaximum)
{
    OpenHandle const semaphore = Semaphore(1, 3);
    struct
    {
        LONG count;
        DWORD code;
        LONG previous;
    } const cases[] = {{1, 0, 1},   {2, 298, -7}, {1, 0, 2}, {1, 298, -7}, {0x7FFFFFFF, 298, -7},
                       {0, 87, -7}, {-1, 87, -7}};
    for (auto const& each : cases)
    {
        LONG previous = -7;
        VOK_EXPECT_CODE(each.code, ReleaseSemaphore(semaphore.Get(), each.count, &previous));
        EXPECT_EQ(previous, each.previous) << each.count;
    }
    for (DWORD const result : {0U, 0U, 0U, 258U})
        EXPECT_EQ(Look(semaphore), result);
    VOK_EXPECT_CODE(0, ReleaseSemaphore(semaphore.Get(), 3, nullptr));
}

TEST(Waits, RefuseWhatIsWrong)
{
    OpenHandle const event = Event(true, true, L"wrong");
    OpenHandle const sameEvent = Event(true, true, L"wrong");
    OpenHandle const semaphore = Semaphore(1, 1);
    OpenHandle const file = Open(L"\\", GENERIC_READ, allShares, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
    HANDLE const stale = Event(false).Get();
    HANDLE const good = event.Get();
    std::vector<HANDLE> many(65);
    std::vector<OpenHandle> owned;
    for (HANDLE& each : many)
        each = owned.emplace_back(Event(true, true)).Get();
    HANDLE const twice[] = {good, sameEvent.Get()};
    HANDLE const withFile[] = {good, file.Get()};
    SECURITY_ATTRIBUTES attributes{sizeof attributes, &attributes, FALSE};
    auto const wait = [](auto... arguments)
    { return [=] { return WaitForMultipleObjects(arguments..., 0) != WAIT_FAILED; }; };
    std::pair<std::function<bool()>, DWORD> const cases[] = {
        {[&] { return SetEvent(semaphore.Get()); }, 6},
        {[&] { return ResetEvent(stale); }, 6},
        {[&] { return SetEvent(file.Get()); }, 6},
        {[&] { return ReleaseSemaphore(good, 1, nullptr); }, 6},
        {[&] { return WaitForSingleObject(stale, 0) != WAIT_FAILED; }, 6},
        {[&] { return WaitForSingleObject(INVALID_HANDLE_VALUE, INFINITE) != WAIT_FAILED; }, 6},
        {wait(0U, &good, FALSE), 87},
        {wait(1U, nullptr, FALSE), 87},
        {wait(65U, many.data(), FALSE), 87},
        {wait(64U, many.data(), TRUE), 0},
        {wait(2U, twice, FALSE), 0},
        {wait(2U, twice, TRUE), 87},
        {wait(2U, withFile, FALSE), 6},
        {[] { return CreateSemaphoreW(nullptr, -1, 1, nullptr); }, 87},
        {[] { return CreateSemaphoreW(nullptr, 0, 0, nullptr); }, 87},
        {[] { return CreateSemaphoreW(nullptr, 2, 1, nullptr); }, 87},
        {[&] { return CreateEventW(&attributes, TRUE, FALSE, nullptr); }, 50},
        {[&] { return CreateSemaphoreW(&attributes, 0, 1, nullptr); }, 50},
    };
    for (auto const& [call, code] : cases)
        EXPECT_EQ(CodeOf(call), code) << "case " << &call - &cases[0].first;
}

TEST(Waits, NamesAreSharedUntilTheirLastHandleIsClosed)
{
    OpenHandle first = Event(false, true, L"name");
    SetLastError(0);
    OpenHandle second = Event(true, false, L"name");
    EXPECT_EQ(GetLastError(), 183U);
    VOK_EXPECT_CODE(6, CreateSemaphoreW(nullptr, 1, 1, L"name"));
    EXPECT_EQ(Look(second), 0U);
    EXPECT_EQ(Look(first), 258U); // still the first one's kind and state
    Threads waiting(1, [handle = first.Get()] { EXPECT_EQ(WaitForSingleObject(handle, longTime), 0U); });
    first.Close();
    SetEvent(second.Get());
    waiting.Join();

    SetLastError(0);
    OpenHandle const others[] = {Event(true, true, L"NAME"), Event(true, true, L""), Event(true, true, L"")};
    EXPECT_EQ(GetLastError(), 0U);
    EXPECT_EQ(WaitFor({others[0].Get(), others[1].Get(), others[2].Get()}, true), 0U);

    second.Close();
    OpenHandle const semaphore = Semaphore(1, 1, L"name");
    ASSERT_TRUE(semaphore);
    VOK_EXPECT_CODE(6, CreateEventW(nullptr, TRUE, TRUE, L"name"));
    SetLastError(0);
    EXPECT_EQ(Look(Semaphore(0, 9, L"name")), 0U);
    EXPECT_EQ(GetLastError(), 183U);
}

TEST(Waits, ForSeveralTakeTheFirstOrAllAtOnce)
{
    OpenHandle const a = Event(false);
    OpenHandle const b = Event(false);
    OpenHandle const c = Semaphore(0, 5);
    std::vector<HANDLE> const objects = {a.Get(), b.Get(), c.Get()};
    auto const set = [&](std::string const& which)
    {
        for (char const each : which)
            each == 'c' ? ReleaseSemaphore(c.Get(), 1, nullptr) : SetEvent(each == 'a' ? a.Get() : b.Get());
    };
    struct
    {
        char const* set;
        bool all;
        DWORD result;
    } const cases[] = {
        {"", false, 258}, {"cb", false, 1}, {"a", false, 0},  {"", false, 2},   {"", false, 258}, {"ac", true, 258},
        {"", true, 258},  {"b", true, 0},   {"", false, 258}, {"abc", true, 0}, {"", true, 258},
    };
    for (auto const& each : cases)
    {
        set(each.set);
        EXPECT_EQ(WaitFor(objects, each.all), each.result) << "case " << &each - cases;
    }

    // A thread that waits for all leaves what it can't use yet to others.
    Threads waiting(1, [&] { EXPECT_EQ(WaitFor(objects, true, longTime), 0U); });
    set("ab");
    EXPECT_EQ(WaitFor({c.Get(), b.Get()}, false), 1U);
    set("c");
    EXPECT_EQ(Look(c), 0U);
    set("cb");
    waiting.Join();
    EXPECT_EQ(WaitFor(objects, false), 258U);
}

TEST(Waits, EndAtTheirTimeAndNotBefore)
{
    OpenHandle const event = Event(false);
    OpenHandle const set = Event(true, true);
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_EQ(WaitForSingleObject(event.Get(), 30), 258U);
    EXPECT_EQ(WaitFor({event.Get(), set.Get()}, true, 30), 258U);
    auto const took = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(took, 60ms);
    EXPECT_LT(took, 10s);
    for (DWORD const time : {DWORD{INFINITE}, DWORD{INFINITE - 1}})
    {
        Threads waiting(1, [&] { EXPECT_EQ(WaitForSingleObject(event.Get(), time), 0U); });
        SetEvent(event.Get());
    }
}

// Settings that come faster than anybody can wake up.
TEST(Waits, EachSettingLetsOneWaitThroughAndAManualOneAll)
{
    constexpr int count = 8;
    OpenHandle const never = Event(false);
    auto const operation = std::make_shared<Operation>(never.Get()); // which each has to look at before
    auto const letThrough = [&](OpenHandle const& object, auto signal)
    {
        Threads waiting(count, [&] { EXPECT_EQ(WaitFor({never.Get(), object.Get()}, false, longTime), 1U); });
        signal(object.Get());
        waiting.Join();
        EXPECT_EQ(Look(object), 258U);
    };
    auto const setEachTime = [](HANDLE event)
    { std::ranges::for_each(std::array<int, count>(), [=](int) { SetEvent(event); }); };
    letThrough(Event(true), [](HANDLE event) { SetEvent(event), ResetEvent(event); });
    letThrough(Event(false), setEachTime);
    letThrough(Semaphore(0, count), [](HANDLE semaphore) { ReleaseSemaphore(semaphore, count, nullptr); });
    operation->Begin();
    letThrough(Event(false), setEachTime);
    operation->MayEnd();
    EXPECT_EQ(Look(never), 0U);
}

TEST(Waits, NoSettingIsLostOrTakenTwiceBetweenThreads)
{
    OpenHandle const go = Event(false);
    OpenHandle const done = Event(false);
    OpenHandle const stop = Event(true);
    std::atomic<int> passed{0};
    auto const pass = [&]
    {
        while (WaitFor({stop.Get(), go.Get()}, false, INFINITE) == 1)
            ++passed, SetEvent(done.Get());
    };
    Threads waiting(4, pass);
    constexpr int rounds = 3000;
    for (int i = 0; i < rounds; ++i)
    {
        SetEvent(go.Get());
        ASSERT_EQ(WaitForSingleObject(done.Get(), longTime), 0U);
    }
    SetEvent(stop.Get());
    waiting.Join();
    EXPECT_EQ(passed, rounds);
}

TEST(Waits, CarryOnTheOperationsOfTheirObjects)
{
    OpenHandle const first = Event(false);
    OpenHandle const ended = Event(false);
    OpenHandle const last = Event(false);
    std::vector<HANDLE> const objects = {first.Get(), ended.Get(), last.Get()};
    auto const operation = std::make_shared<Operation>(ended.Get());
    operation->Begin();
    EXPECT_EQ(WaitFor(objects, false, 5), 258U);
    // What ended first counts first, also when nobody has looked yet.
    operation->MayEnd();
    SetEvent(last.Get());
    EXPECT_EQ(WaitFor(objects, false), 1U);
    EXPECT_EQ(WaitFor(objects, false), 2U);

    std::size_t const descriptors = OpenDescriptors();
    auto const begin = std::chrono::steady_clock::now();
    {
        // Asleep already when the operation begins; one takes its end, the others what is set.
        Threads waiting(3, [&] { EXPECT_LE(WaitFor(objects, false, longTime), 1U); });
        operation->Begin();
        std::this_thread::sleep_for(20ms);
        operation->MayEnd();
        SetEvent(first.Get());
        SetEvent(first.Get());
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
    EXPECT_EQ(OpenDescriptors(), descriptors);
    EXPECT_EQ(operation.use_count(), 1);
}

TEST(Waits, OnlyBorrowWhileTheyLookAtAnEarlierOperation)
{
    OpenHandle const ended = Event(false);
    auto const operation = std::make_shared<Operation>(ended.Get());
    auto const waitWith = [&](OpenHandle const& later, std::function<void()> const& meanwhile)
    {
        operation->Begin();
        SystemCalls::Redirection const during(SystemCalls::Poll,
                                              [&](pollfd* descriptors, nfds_t count, timespec const* time)
                                              {
                                                  meanwhile();
                                                  operation->MayEnd();
                                                  return SystemCalls::Poll.host(descriptors, count, time);
                                              });
        EXPECT_EQ(WaitFor({ended.Get(), later.Get()}, false, longTime), 0U);
    };
    OpenHandle const semaphore = Semaphore(1, 1);
    waitWith(semaphore,
             [&]
             {
                 LONG previous = 0;
                 EXPECT_EQ(CodeOf([&] { return ReleaseSemaphore(semaphore.Get(), 1, &previous); }), 298U);
             });
    EXPECT_EQ(Look(semaphore), 0U);
    EXPECT_EQ(Look(semaphore), 258U);
    for (bool const isReset : {false, true})
    {
        OpenHandle const event = Event(false, true);
        waitWith(event, [&] { isReset ? ResetEvent(event.Get()) : TRUE; });
        EXPECT_EQ(Look(event), isReset ? 258U : 0U);
    }
}

TEST(Waits, LeaveNoDescriptorToAThreadThatHasEnded)
{
    OpenHandle const event = Event(false);
    auto const operation = std::make_shared<Operation>(event.Get());
    operation->Begin();
    std::size_t const descriptors = OpenDescriptors();
    struct Last
    {
        ~Last() { EXPECT_EQ(WaitForSingleObject(event, 1), 258U); }
        HANDLE event;
    };
    auto const run = [&]
    {
        static thread_local Last const last{event.Get()};
        EXPECT_EQ(WaitForSingleObject(last.event, 1), 258U);
    };
    std::thread(run).join();
    EXPECT_EQ(OpenDescriptors(), descriptors);
    operation->MayEnd();
    EXPECT_EQ(Look(event), 0U);
}

TEST(Waits, GoOnInAChildOfAProcessWhoseThreadsWait)
{
    OpenHandle const event = Event(false, false, L"forked");
    OpenHandle const polled = Event(false);
    OpenHandle const stop = Event(true);
    auto const operation = std::make_shared<Operation>(polled.Get());
    operation->Begin();
    EXPECT_EQ(WaitForSingleObject(polled.Get(), 1), 258U); // the thread that forks has polled before
    std::atomic<bool> hasStopped{false};
    Threads waiting(2, [&] { EXPECT_EQ(WaitFor({event.Get(), polled.Get(), stop.Get()}, false, longTime), 2U); });
    auto const work = [&]
    {
        for (OpenHandle const own = Event(false); !hasStopped; Event(false, false, L"forked"))
            SetEvent(own.Get()), Look(own);
    };
    std::thread working(work);
    auto const run = [&]
    {
        EXPECT_EQ(WaitFor({polled.Get(), event.Get()}, false, 1), 258U);
        // The parent's threads are none of the child's: they take nothing here.
        SetEvent(Event(true, false, L"forked").Get());
        EXPECT_EQ(WaitFor({polled.Get(), event.Get()}, false, longTime), 1U);
        SetEvent(polled.Get());
        EXPECT_EQ(Look(polled), 0U);
    };
    for (int round = 0; round < 20; ++round)
        RunInChild(run);
    hasStopped = true;
    SetEvent(stop.Get());
    waiting.Join();
    working.join();
    operation->MayEnd();
    EXPECT_EQ(Look(polled), 0U);
}
