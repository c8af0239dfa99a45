#include <Brindle/Platform/ErrorCodes.h>

#include <gtest/gtest.h>

#include <thread>

TEST(LastError, BelongsToTheThread)
{
    SetLastError(5);
    std::thread(
        []
        {
            EXPECT_EQ(GetLastError(), 0U);
            SetLastError(7);
        })
        .join();
    EXPECT_EQ(GetLastError(), 5U);
}
