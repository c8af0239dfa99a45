// The checked forms of platform calls.
#include "Support/LogRecorder.h"
#include "Support/TestDrive.h"
#include "Support/Thrown.h"

#include <Brindle/Vok/VokWindows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Brindle::Vok;
using Brindle::Vok::Testing::LogRecorder;
using Brindle::Vok::Testing::TestDrive;
using Brindle::Vok::Testing::Thrown;

TEST(VokCreateFile, NamesNoFileByAPathWithANul)
{
    TestDrive const drive;
    drive.Write("plain.txt", "kept");
    std::wstring const path = drive.Path(L"plain.txt") + std::wstring(L"\0.bak", 5);
    Error const error =
        Thrown<Error>([&] { VokCreateFile(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr); });
    EXPECT_EQ(error.code().value(), ERROR_INVALID_NAME);
    // The text ends at the NUL.
    EXPECT_TRUE(error.Message().ends_with("CreateFile failed, path[" + WideToUtf8(drive.Path(L"plain.txt")) + "]"));
    Error assigned;
    EXPECT_FALSE(VokCreateFile(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr, assigned).IsValid());
    EXPECT_EQ(assigned.Message(), error.Message()); // its line too
    EXPECT_EQ(drive.Read("plain.txt"), "kept");
}

TEST(VokCreateFile, SetsTheErrorThatItIsGiven)
{
    LogRecorder recorder;
    Error error;
    wchar_t const* const none = nullptr;
    EXPECT_FALSE(VokCreateFile(none, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr, error).IsValid());
    EXPECT_EQ(error.code().value(), ERROR_PATH_NOT_FOUND);
    EXPECT_TRUE(error.Message().ends_with("CreateFile failed, path[(null)]")) << error.Message();
    EXPECT_THAT(recorder.Lines(), testing::IsEmpty());
}

namespace
{

class VokEnvironment : public testing::Test
{
protected:
    ~VokEnvironment() override { SetEnvironmentVariableW(L"VOK_TEST", nullptr); }

    static void Set(std::wstring const& value) { SetEnvironmentVariableW(L"VOK_TEST", value.c_str()); }
};

} // namespace

TEST_F(VokEnvironment, AVariableComesWithItsTerminatorInItsSize)
{
    Set(L"abc");
    EXPECT_EQ(VokGetEnvironmentVariable(L"VOK_TEST", false), std::wstring(L"abc\0", 4));
}

TEST_F(VokEnvironment, AMissingVariableIsToleratedOrThrown)
{
    LogRecorder recorder;
    EXPECT_EQ(VokGetEnvironmentVariable(L"VOK_TEST", true), L"");
    auto const statements = recorder.Statements();
    ASSERT_EQ(statements.size(), 1U);
    EXPECT_EQ(statements[0].severity, VokLogSeverity::info);
    EXPECT_EQ(statements[0].message, "Environment variable [VOK_TEST] not found");
    EXPECT_STREQ(statements[0].function, "Brindle::Vok::VokGetEnvironmentVariable");
    WindowsError const error = Thrown<WindowsError>([] { VokGetEnvironmentVariable(L"VOK_TEST", false); });
    EXPECT_EQ(error.code().value(), ERROR_ENVVAR_NOT_FOUND);
    EXPECT_TRUE(error.Message().ends_with("GetEnvironmentVariable [VOK_TEST] - failed with error"));
}

TEST_F(VokEnvironment, AnEmptyVariableThrowsWithTheCodeOfSuccess)
{
    Set(L"");
    WindowsError const error = Thrown<WindowsError>([] { VokGetEnvironmentVariable(L"VOK_TEST", true); });
    EXPECT_EQ(error.code().value(), 0);
    EXPECT_FALSE(error.Failed());
}

TEST_F(VokEnvironment, ExpansionAroundTheFirstBufferSize)
{
    for (std::size_t const length : {0U, 1U, 1022U, 1023U, 1024U, 1025U, 40000U})
    {
        std::wstring const text(length, L'x');
        EXPECT_EQ(VokExpandEnvironmentStrings(text), text) << length;
        Set(text + L"y");
        EXPECT_EQ(VokExpandEnvironmentStrings(L"<%VOK_TEST%>%VOK_NONE%"), L"<" + text + L"y>%VOK_NONE%");
    }
}
