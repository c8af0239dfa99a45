// What happens at the limits that the host sets a process.
#include "Support/ChildProcess.h"
#include "Support/OpenHandle.h"
#include "Support/TestDrive.h"

#include <Brindle/Platform/Text.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>

using namespace Brindle::Vok::Testing;

namespace
{

DWORD CodeOfWriting(HANDLE file, DWORD count)
{
    std::string const bytes(count, 'x');
    DWORD written = 0;
    return CodeOf([&] { return WriteFile(file, bytes.data(), count, &written, nullptr); });
}

TEST(Limits, OfAFilesSizeAreErrorsAndNoSignals)
{
    TestDrive const drive;
    RunInChild(
        [&]
        {
            OpenHandle const openedBefore = Open(drive.Path(L"before"), GENERIC_WRITE, 0, CREATE_NEW);
            rlimit const limit{1000, 1000};
            EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
            OpenHandle const file = Open(drive.Path(L"after"), GENERIC_WRITE, 0, CREATE_NEW);
            EXPECT_EQ(CodeOfWriting(file.Get(), 1000), ERROR_SUCCESS);
            EXPECT_EQ(CodeOfWriting(file.Get(), 1), ERROR_FILE_TOO_LARGE);
            EXPECT_EQ(CodeOfWriting(openedBefore.Get(), 1001), ERROR_FILE_TOO_LARGE);
            EXPECT_EQ(CodeOfWriting(openedBefore.Get(), 1), ERROR_FILE_TOO_LARGE);
        });
    EXPECT_EQ(drive.Read("after").size(), 1000U);
}

// The C library would remember for good that it couldn't read the tables of a page.
TEST(Limits, OfDescriptorsPassForCodePages)
{
    auto const run = []
    {
        wchar_t wide[4];
        auto const convert = [&] { return MultiByteToWideChar(1251, 0, "\xC4", 1, wide, 4); };
        rlimit limit{};
        EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
        rlimit const none{0, limit.rlim_max};
        EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
        EXPECT_EQ(CodeOf(convert), ERROR_TOO_MANY_OPEN_FILES);
        EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
        EXPECT_EQ(CodeOf(convert), ERROR_SUCCESS);
    };
    EXPECT_EQ(InChild(run), 0);
}

} // namespace
