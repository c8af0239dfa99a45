#include "Support/ChildProcess.h"
#include "Support/HostVariable.h"
#include "Support/LogRecorder.h"
#include "Support/Thrown.h"

#include <Brindle/Vok/VokShlobj.h>

#include <gmock/gmock.h>

#include <csignal>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using testing::AnyOf;
using testing::ElementsAre;

namespace
{

constexpr char failure[] = "Source/Vok/VokShlobj.cpp: Brindle::Vok::VokSHGetKnownFolderPath The file was not found. "
                           "(Com Error -7FF8FFFE). SHGetKnownFolderPath "
                           "folderId[{905E63B6-C1BF-494E-B29C-65B732D3D21A}] flags[16384]";

} // namespace

TEST(VokSHGetKnownFolderPath, GivesThePathOrThrowsWithFolderAndFlags)
{
    HostVariable const home("HOME", "/h");
    LogRecorder recorder;
    Error assigned;
    EXPECT_EQ(VokSHGetKnownFolderPath(FOLDERID_Profile, KF_FLAG_DONT_VERIFY, nullptr), L"C:\\h");
    EXPECT_EQ(VokSHGetKnownFolderPath(FOLDERID_Profile, assigned, KF_FLAG_DONT_VERIFY, nullptr), L"C:\\h");
    EXPECT_FALSE(assigned.Failed());
    ComError const error =
        Thrown<ComError>([] { VokSHGetKnownFolderPath(FOLDERID_ProgramFiles, KF_FLAG_DONT_VERIFY, nullptr); });
    EXPECT_EQ(error.code(), std::error_code(static_cast<int>(0x80070002), Detail::ComErrorCategory::Instance()));
    EXPECT_EQ(WithoutLine(error.Message()), failure);
    EXPECT_THAT(recorder.Lines(), ElementsAre("error: Throwing " + error.Message()));
}

namespace
{

constexpr int faulted = 42;
constexpr int faultedUnset = 43;

Error assigned;

void OnFault(int)
{
    bool const isSet = assigned.Failed() && assigned.code() == std::error_code(2, std::system_category()) &&
                       WithoutLine(assigned.Message()) == failure;
    ::_exit(isSet ? faulted : faultedUnset);
}

} // namespace

TEST(VokSHGetKnownFolderPath, FaultsOnceTheErrorThatItIsGivenIsSet)
{
    ChildProcess child(
        [](auto const&)
        {
            std::signal(SIGSEGV, OnFault);
            try
            {
                VokSHGetKnownFolderPath(FOLDERID_ProgramFiles, assigned, KF_FLAG_DONT_VERIFY, nullptr);
                return 2;
            }
            catch (...)
            {
                return 3;
            }
        });
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    EXPECT_THAT(child.Join(), AnyOf(faulted, 1, -SIGABRT)); // a sanitizer may tell first
#else
    EXPECT_EQ(child.Join(), faulted);
#endif
}
