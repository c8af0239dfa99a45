#include "Support/HostVariable.h"
#include "Support/LogRecorder.h"
#include "Support/Thrown.h"

#include <Brindle/Vok/VokShlobj.h>

#include <gmock/gmock.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using testing::ElementsAre;

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
    EXPECT_EQ(WithoutLine(error.Message()),
              "Source/Vok/VokShlobj.cpp: Brindle::Vok::VokSHGetKnownFolderPath The file was not found. "
              "(Com Error -7FF8FFFE). SHGetKnownFolderPath "
              "folderId[{905E63B6-C1BF-494E-B29C-65B732D3D21A}] flags[16384]");
    EXPECT_THAT(recorder.Lines(), ElementsAre("error: Throwing " + error.Message()));
}
