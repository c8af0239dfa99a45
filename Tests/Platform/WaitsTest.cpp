#include "Support/ChildProcess.h"
#include "Support/OpenHandle.h"

#include <Brindle/Platform/Waits.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <string>
#include <thread>
#include <vector>

using namespace Brindle::Vok::Testing;
using namespace std::chrono_literals;

namespace
{

OpenHandle MakeEvent(bool manualReset = false, bool isSet = false, wchar_t const* name = nullptr)
{
    return OpenHandle(CreateEventW(nullptr, manualReset, isSet, name));
}

OpenHandle MakeSemaphore(LONG count, LONG most, wchar_t const* name = nullptr)
{
    return OpenHandle(CreateSemaphoreW(nullptr, count, most, name));
}

bool IsSet(OpenHandle const& object)
{
    return WaitForSingleObject(object.Get(), 0) == WAIT_OBJECT_0;
}

DWORD Wait(std::vector<OpenHandle> const& objects, bool all, DWORD milliseconds)
{
    std::vector<HANDLE> handles;
    for (OpenHandle const& object : objects)
        handles.push_back(object.Get());
    return WaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), all, milliseconds);
}

} // namespace

TEST(Waits, TakeASignalAsItsObjectDoes)
{
    OpenHandle const automatic = MakeEvent(false, true);
    EXPECT_TRUE(IsSet(automatic));
    EXPECT_FALSE(IsSet(automatic));
    OpenHandle const manual = MakeEvent(true, true);
    EXPECT_TRUE(IsSet(manual));
    EXPECT_TRUE(IsSet(manual));
    EXPECT_TRUE(ResetEvent(manual.Get()));
    EXPECT_FALSE(IsSet(manual));
    EXPECT_TRUE(SetEvent(automatic.Get()));
    EXPECT_TRUE(SetEvent(automatic.Get())); // two are one
    EXPECT_TRUE(IsSet(automatic));
    EXPECT_FALSE(IsSet(automatic));
    OpenHandle const semaphore = MakeSemaphore(1, 3);
    EXPECT_TRUE(IsSet(semaphore));
    EXPECT_FALSE(IsSet(semaphore));
    LONG previous = -1;
    EXPECT_TRUE(ReleaseSemaphore(semaphore.Get(), 2, &previous));
    EXPECT_EQ(previous, 0);
    EXPECT_EQ(CodeOf([&] { return ReleaseSemaphore(semaphore.Get(), 2, nullptr); }), ERROR_TOO_MANY_POSTS);
    EXPECT_EQ(CodeOf([&] { return ReleaseSemaphore(semaphore.Get(), std::numeric_limits<LONG>::max(), nullptr); }),
              ERROR_TOO_MANY_POSTS);
    EXPECT_TRUE(IsSet(semaphore));
    EXPECT_TRUE(IsSet(semaphore));
    EXPECT_FALSE(IsSet(semaphore));
}

TEST(Waits, EndWithTheFirstOfSeveralOrWithAll)
{
    std::vector<OpenHandle> objects;
    for (int i = 0; i < 64; ++i)
        objects.push_back(MakeEvent());
    EXPECT_EQ(Wait(objects, false, 0), WAIT_TIMEOUT);
    SetEvent(objects[63].Get());
    SetEvent(objects[5].Get());
    EXPECT_EQ(Wait(objects, false, 0), WAIT_OBJECT_0 + 5);
    EXPECT_EQ(Wait(objects, false, INFINITE), WAIT_OBJECT_0 + 63);
    for (std::size_t i = 1; i < 64; ++i)
        SetEvent(objects[i].Get());
    EXPECT_EQ(Wait(objects, true, 1), WAIT_TIMEOUT);
    EXPECT_TRUE(IsSet(objects[7])); // none was taken
    SetEvent(objects[7].Get());
    std::thread last(
        [&]
        {
            std::this_thread::sleep_for(5ms);
            SetEvent(objects[0].Get());
        });
    EXPECT_EQ(Wait(objects, true, INFINITE), WAIT_OBJECT_0);
    last.join();
    EXPECT_EQ(Wait(objects, false, 0), WAIT_TIMEOUT); // all were
}

TEST(Waits, LastAsLongAsTheyAreTold)
{
    OpenHandle const event = MakeEvent();
    for (DWORD const milliseconds : {0U, 1U, 30U})
    {
        auto const begin = std::chrono::steady_clock::now();
        EXPECT_EQ(WaitForSingleObject(event.Get(), milliseconds), WAIT_TIMEOUT);
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(milliseconds));
    }
}

TEST(Waits, RefuseWhatCannotBeWaitedFor)
{
    OpenHandle const event = MakeEvent();
    OpenHandle const semaphore = MakeSemaphore(1, 1);
    HANDLE const twice[] = {event.Get(), semaphore.Get(), event.Get()};
    HANDLE const withNone[] = {event.Get(), nullptr};
    std::vector<HANDLE> const many(65, semaphore.Get());
    SECURITY_ATTRIBUTES security{};
    security.lpSecurityDescriptor = &security;
    struct Row
    {
        DWORD code;
        DWORD expected;
    };
    auto const waitCode = [](DWORD result) -> DWORD { return result == WAIT_FAILED ? GetLastError() : ERROR_SUCCESS; };
    for (Row const& row :
         {
             Row{waitCode(WaitForMultipleObjects(0, twice, FALSE, 0)), ERROR_INVALID_PARAMETER},
             Row{waitCode(WaitForMultipleObjects(1, nullptr, FALSE, 0)), ERROR_INVALID_PARAMETER},
             Row{waitCode(WaitForMultipleObjects(65, many.data(), FALSE, 0)), ERROR_INVALID_PARAMETER},
             Row{waitCode(WaitForMultipleObjects(3, twice, TRUE, 0)), ERROR_INVALID_PARAMETER},
             Row{waitCode(WaitForMultipleObjects(2, withNone, FALSE, 0)), ERROR_INVALID_HANDLE},
             Row{waitCode(WaitForSingleObject(INVALID_HANDLE_VALUE, 0)), ERROR_INVALID_HANDLE},
             Row{CodeOf([&] { return SetEvent(semaphore.Get()); }), ERROR_INVALID_HANDLE},
             Row{CodeOf([&] { return ResetEvent(nullptr); }), ERROR_INVALID_HANDLE},
             Row{CodeOf([&] { return ReleaseSemaphore(event.Get(), 1, nullptr); }), ERROR_INVALID_HANDLE},
             Row{CodeOf([&] { return ReleaseSemaphore(semaphore.Get(), 0, nullptr); }), ERROR_INVALID_PARAMETER},
             Row{CodeOf([&] { return CreateSemaphoreW(nullptr, 2, 1, nullptr); }), ERROR_INVALID_PARAMETER},
             Row{CodeOf([&] { return CreateSemaphoreW(nullptr, -1, 1, nullptr); }), ERROR_INVALID_PARAMETER},
             Row{CodeOf([&] { return CreateSemaphoreW(nullptr, 0, 0, nullptr); }), ERROR_INVALID_PARAMETER},
             Row{CodeOf([&] { return CreateEventW(&security, FALSE, FALSE, nullptr); }), ERROR_NOT_SUPPORTED},
         })
        EXPECT_EQ(row.code, row.expected);
    EXPECT_TRUE(IsSet(semaphore)); // no failed wait took it
}

TEST(Waits, ShareAnObjectByItsName)
{
    OpenHandle const first = MakeEvent(true, false, L"Vok \u00E4");
    SetLastError(ERROR_SUCCESS);
    OpenHandle second = MakeEvent(false, true, L"Vok \u00E4"); // whose arguments mean nothing
    EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
    EXPECT_NE(first.Get(), second.Get());
    EXPECT_FALSE(IsSet(first));
    SetEvent(second.Get());
    second.Close();
    EXPECT_TRUE(IsSet(first));
    EXPECT_TRUE(IsSet(first));
    EXPECT_EQ(CodeOf([] { return CreateSemaphoreW(nullptr, 0, 1, L"Vok \u00E4"); }), ERROR_INVALID_HANDLE);
    for (wchar_t const* const name : {L"vok \u00E4", L"", static_cast<wchar_t const*>(nullptr)})
        EXPECT_FALSE(IsSet(MakeEvent(true, false, name)));
    {
        OpenHandle const gone = MakeEvent(true, true, L"Vok gone");
    }
    EXPECT_FALSE(IsSet(MakeEvent(true, false, L"Vok gone")));
}

TEST(Waits, AreNotEndedByClosing)
{
    OpenHandle event = MakeEvent(false, false, L"Vok closed");
    OpenHandle const other = MakeEvent(false, false, L"Vok closed");
    std::atomic<DWORD> result = WAIT_FAILED;
    std::thread waiter([&, handle = event.Get()] { result = WaitForSingleObject(handle, INFINITE); });
    std::this_thread::sleep_for(5ms);
    event.Close();
    EXPECT_EQ(result, WAIT_FAILED);
    SetEvent(other.Get());
    waiter.join();
    EXPECT_EQ(result, WAIT_OBJECT_0);
}

// Each signal ends one wait, whatever the threads wait for besides.
TEST(Waits, LoseAndDoubleNoSignal)
{
    constexpr int signals = 3000;
    std::vector<OpenHandle> objects;
    objects.push_back(MakeSemaphore(0, signals));
    objects.push_back(MakeEvent());
    objects.push_back(MakeEvent(true));
    OpenHandle const taken = MakeEvent();
    std::atomic<int> counts[2]{};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i)
        waiters.emplace_back(
            [&]
            {
                for (DWORD which; (which = Wait(objects, false, INFINITE)) < 2;)
                {
                    ++counts[which];
                    if (which == 1)
                        SetEvent(taken.Get());
                }
            });
    for (int i = 0; i < signals; ++i)
    {
        ReleaseSemaphore(objects[0].Get(), 1, nullptr);
        SetEvent(objects[1].Get());
        ASSERT_EQ(WaitForSingleObject(taken.Get(), 10'000), WAIT_OBJECT_0) << i;
    }
    while (counts[0] < signals)
        std::this_thread::yield();
    SetEvent(objects[2].Get());
    for (std::thread& waiter : waiters)
        waiter.join();
    EXPECT_EQ(counts[0], signals);
    EXPECT_EQ(counts[1], signals);
}

TEST(Waits, WorkInAChildProcess)
{
    OpenHandle const event = MakeEvent();
    std::atomic<bool> isOver = false;
    std::vector<std::thread> threads;
    for (wchar_t const* const name : {L"Vok fork", static_cast<wchar_t const*>(nullptr)})
        threads.emplace_back(
            [&, name]
            {
                while (!isOver)
                {
                    SetEvent(event.Get());
                    WaitForSingleObject(event.Get(), 0);
                    MakeEvent(false, false, name);
                }
            });
    for (int i = 0; i < 50; ++i)
    {
        ChildProcess child(
            [&](ChildProcess::Channel const&)
            {
                OpenHandle const named = MakeEvent(true, true, L"Vok fork");
                return SetEvent(event.Get()) && IsSet(event) && named ? 0 : 1;
            });
        EXPECT_EQ(child.Join(), 0);
    }
    isOver = true;
    for (std::thread& thread : threads)
        thread.join();
}
