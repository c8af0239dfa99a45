#include "SystemCalls.h"

#include "Support/ChildProcess.h"
#include "Support/OpenHandle.h"
#include "Support/TestDrive.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
namespace SystemCalls = Platform::SystemCalls;

namespace
{

TEST(Creation, IsNotLostToAnOpeningThatComesInBetween)
{
    TestDrive const drive;
    std::wstring const path = drive.Path(L"lock");
    ChildProcess peeper(
        [&](ChildProcess::Channel& channel) -> int
        {
            channel.Ready();
            for (;;)
                OpenHandle const held = Open(path, GENERIC_READ, 0, OPEN_EXISTING);
        });
    peeper.WaitUntilReady();
    for (int round = 0; round < 3000; ++round)
    {
        OpenHandle const created = Open(path, GENERIC_WRITE, 0, CREATE_NEW);
        ASSERT_TRUE(created) << "round " << round << ": " << GetLastError();
        ASSERT_EQ(::unlink(drive.Host("lock").c_str()), 0);
    }
}

TEST(Creation, ThatDiedKeepsNobodyOut)
{
    TestDrive const drive;
    drive.Write("abandoned", "");
    ASSERT_EQ(::chmod(drive.Host("abandoned").c_str(), 01644), 0);
    // Its creator may still be alive: the opening gives way for a moment. Later nobody waits.
    for (time_t const age : {0, 10})
    {
        int pauses = 0;
        SystemCalls::Redirection const sleep(SystemCalls::Sleep, [&](auto...) { return ++pauses, 0; });
        SystemCalls::Redirection time(SystemCalls::GetTime,
                                      [&](clockid_t clock, timespec* now)
                                      {
                                          int const result = SystemCalls::GetTime.host(clock, now);
                                          now->tv_sec += age;
                                          return result;
                                      });
        EXPECT_TRUE(Open(drive.Path(L"abandoned"), GENERIC_WRITE, 0, age == 0 ? OPEN_EXISTING : CREATE_ALWAYS,
                         FILE_ATTRIBUTE_READONLY))
            << GetLastError();
        EXPECT_EQ(pauses > 0, age == 0);
        EXPECT_EQ((drive.Mode("abandoned") & S_ISVTX) != 0, age == 0);
    }
}

} // namespace
