#include "Support/StandIn.h"

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

} // namespace

TEST(Waits, TakeWhatTheKindOfTheObjectSaysOrTheirTime)
{
    for (bool const isManual : {false, true})
    {
        OpenHandle const event = Event(isManual);
        VOK_EXPECT_CODE(0, SetEvent(event.Get()) && SetEvent(event.Get()));
        for (DWORD const result : {0U, isManual ? 0U : 258U}) // setting doesn't add up
            EXPECT_EQ(Look(event), result);
        VOK_EXPECT_CODE(0, ResetEvent(event.Get()));
        auto const begin = std::chrono::steady_clock::now();
        EXPECT_EQ(WaitForSingleObject(event.Get(), 30), 258U);
        EXPECT_GE(std::chrono::steady_clock::now() - begin, 30ms);
    }
}

TEST(Waits, SemaphoresCountToTheirMaximum)
{
    OpenHandle const semaphore = Semaphore(1, 3);
    std::tuple<LONG, DWORD, LONG> const cases[] = {{1, 0, 1},   {2, 298, -7}, {1, 0, 2}, {0x7FFFFFFF, 298, -7},
                                                   {0, 87, -7}, {-1, 87, -7}};
    for (auto const& [count, code, expected] : cases)
    {
        LONG previous = -7;
        VOK_EXPECT_CODE(code, ReleaseSemaphore(semaphore.Get(), count, &previous));
        EXPECT_EQ(previous, expected) << count;
    }
    for (DWORD const result : {0U, 0U, 0U, 258U})
        EXPECT_EQ(Look(semaphore), result);
}

TEST(Waits, RefuseWhatIsWrong)
{
    OpenHandle const event = Event(true, true, L"wrong");
    OpenHandle const sameEvent = Event(true, true, L"wrong");
    std::vector<HANDLE> const many(65, event.Get());
    auto const code = [](std::vector<HANDLE> const& objects, bool all)
    { return CodeOf([&] { return WaitFor(objects, all) != WAIT_FAILED; }); };
    EXPECT_EQ(code({}, false), 87U);
    EXPECT_EQ(code(many, false), 87U);
    EXPECT_EQ(code({many.begin(), many.begin() + 64}, false), 0U);
    EXPECT_EQ(code({event.Get(), sameEvent.Get()}, true), 87U);
    EXPECT_EQ(code({event.Get(), Open(L"\\dev\\null", GENERIC_READ).Get()}, false), 6U);
    VOK_EXPECT_CODE(6, SetEvent(Semaphore(1, 1).Get()));
    VOK_EXPECT_CODE(87, CreateSemaphoreW(nullptr, 2, 1, nullptr));
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
    EXPECT_TRUE(Event(true, true, L"NAME"));
    EXPECT_EQ(GetLastError(), 0U);
    first.Close();
    second.Close();
    EXPECT_TRUE(Semaphore(1, 1, L"name"));
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
    std::tuple<char const*, bool, DWORD> const cases[] = {
        {"", false, 258}, {"cb", false, 1}, {"a", false, 0},  {"", false, 2},   {"", false, 258}, {"ac", true, 258},
        {"", true, 258},  {"b", true, 0},   {"", false, 258}, {"abc", true, 0}, {"", true, 258},
    };
    for (auto const& [which, all, result] : cases)
    {
        set(which);
        EXPECT_EQ(WaitFor(objects, all), result) << which << ' ' << all;
    }
}

// Settings that come faster than anybody can wake up.
TEST(Waits, EachSettingLetsOneWaitThroughAndAManualOneAll)
{
    constexpr int count = 8;
    auto const letThrough = [&](OpenHandle const& object, auto signal)
    {
        Threads waiting(count, [&] { EXPECT_EQ(WaitForSingleObject(object.Get(), longTime), 0U); });
        signal(object.Get());
        waiting.Join();
        EXPECT_EQ(Look(object), 258U);
    };
    auto const setEachTime = [](HANDLE event)
    { std::ranges::for_each(std::array<int, count>(), [=](int) { SetEvent(event); }); };
    letThrough(Event(true), [](HANDLE event) { SetEvent(event), ResetEvent(event); });
    letThrough(Event(false), setEachTime);
    letThrough(Semaphore(0, count), [](HANDLE semaphore) { ReleaseSemaphore(semaphore, count, nullptr); });
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

TEST(Waits, GoOnInAChildOfAProcessWhoseThreadsWait)
{
    OpenHandle const event = Event(false);
    OpenHandle const stop = Event(true);
    std::atomic<bool> hasStopped{false};
    Threads waiting(2, [&] { EXPECT_EQ(WaitFor({event.Get(), stop.Get()}, false, longTime), 1U); });
    auto const work = [&]
    {
        for (OpenHandle const own = Event(false); !hasStopped; Event(false, false, L"forked"))
            SetEvent(own.Get()), Look(own);
    };
    std::thread working(work);
    auto const run = [&]
    {
        EXPECT_EQ(WaitForSingleObject(event.Get(), 1), 258U);
        SetEvent(event.Get()); // the parent's threads are none of the child's: they take nothing here
        EXPECT_EQ(WaitForSingleObject(event.Get(), longTime), 0U);
    };
    for (int round = 0; round < 20; ++round)
        RunInChild(run);
    hasStopped = true;
    SetEvent(stop.Get());
    waiting.Join();
    working.join();
}
