#include "Support/StandIn.h"

using namespace Brindle::Vok::Testing;

namespace
{

/// The value, asked for in the platform's two calls.
std::wstring Get(wchar_t const* name)
{
    auto const size = GetEnvironmentVariableW(name, nullptr, 0);
    std::wstring value(size, L'\0');
    if (size > 0)
        value.resize(GetEnvironmentVariableW(name, value.data(), size));
    return value;
}

std::wstring Expand(wchar_t const* text)
{
    std::wstring result(ExpandEnvironmentStringsW(text, nullptr, 0), L'\0');
    auto const count = ExpandEnvironmentStringsW(text, result.data(), static_cast<DWORD>(result.size()));
    EXPECT_EQ(count, result.size());
    result.resize(count - 1);
    return result;
}

TEST(EnvironmentVariables, GiveTheSizeThatIsMissing)
{
    HostVariable const variable("VOK_TEST", "a\xC3\xA9\xF0\x9F\x98\x80\xFF");
    wchar_t buffer[8] = L"";
    VOK_EXPECT_CODE(0, GetEnvironmentVariableW(L"VOK_TEST", buffer, 5) == 6);
    VOK_EXPECT_CODE(0, GetEnvironmentVariableW(L"VOK_TEST", buffer, 6) == 5);
    EXPECT_STREQ(buffer, L"a\u00E9\xD83D\xDE00\uFFFD");
    variable.Set("");
    VOK_EXPECT_CODE(0, GetEnvironmentVariableW(L"VOK_TEST", buffer, 8)) << "it is there";
    VOK_EXPECT_CODE(ERROR_ENVVAR_NOT_FOUND, GetEnvironmentVariableW(L"VOK_TEST_MISSING", buffer, 8));
}

TEST(EnvironmentVariables, AreFoundSetAndRemovedUnderTheSpellingTheyHave)
{
    HostVariable const exact("vok_test", "exact");
    HostVariable const variable("Vok_Test", "old");
    EXPECT_EQ(Get(L"Vok_Test"), L"old");
    exact.Set(nullptr);
    EXPECT_EQ(Get(L"VOK_TEST"), L"old");
    EXPECT_TRUE(SetEnvironmentVariableW(L"VOK_TEST", L"n\u00E9w"));
    EXPECT_STREQ(getenv("Vok_Test"), "n\xC3\xA9w");
    EXPECT_EQ(getenv("VOK_TEST"), nullptr);
    EXPECT_TRUE(SetEnvironmentVariableW(L"VOK_TEST", nullptr));
    EXPECT_EQ(getenv("Vok_Test"), nullptr);
    VOK_EXPECT_CODE(ERROR_ENVVAR_NOT_FOUND, SetEnvironmentVariableW(L"VOK_TEST", nullptr));
    for (auto const* const name : {L"", L"A=B", L"\xD800", static_cast<wchar_t const*>(nullptr)})
        VOK_EXPECT_CODE(ERROR_INVALID_PARAMETER, SetEnvironmentVariableW(name, L"x"));
}

TEST(EnvironmentVariables, OfTemporaryFilesAreWindowsSyntax)
{
    std::tuple<char const*, char const*, std::wstring, std::wstring> const cases[] = {
        {nullptr, nullptr, L"C:\\tmp", L"C:\\tmp"},
        {"/a", "/b", L"C:\\a", L"C:\\b"},
        {"X:\\t", "relative/b", L"X:\\t", L"relative/b"},
        {"/a:b\xFF", nullptr, L"C:\\a\uF03Ab\xDCFF", L"C:\\a\uF03Ab\xDCFF"},
    };
    HostVariable const temp("TEMP", nullptr);
    HostVariable const tmp("TMP", nullptr);
    for (auto const& [hostTemp, hostTmp, expectedTemp, expectedTmp] : cases)
    {
        temp.Set(hostTemp);
        tmp.Set(hostTmp);
        EXPECT_EQ(Get(L"TEMP"), expectedTemp);
        EXPECT_EQ(Get(L"Tmp"), expectedTmp);
        EXPECT_EQ(Expand(L"%temp%\\x"), expectedTemp + L"\\x");
    }
}

TEST(Expansion, ReplacesWhatItKnowsAndLeavesTheRest)
{
    HostVariable const variable("VOK_TEST", "value");
    HostVariable const nested("VOK_NESTED", "%VOK_TEST%");
    std::pair<wchar_t const*, wchar_t const*> const cases[] = {
        {L"<%vok_test%%VOK_TEST%>", L"<valuevalue>"},
        {L"%VOK_MISSING%VOK_TEST%", L"%VOK_MISSING%VOK_TEST%"},
        {L"100% of %VOK_TEST%", L"100% of %VOK_TEST%"},
        {L"%VOK_TEST", L"%VOK_TEST"},
        {L"%VOK_NESTED%", L"%VOK_TEST%"},
    };
    for (auto const& [text, expected] : cases)
        EXPECT_EQ(Expand(text), expected);
    VOK_EXPECT_CODE(ERROR_INVALID_PARAMETER, ExpandEnvironmentStringsW(nullptr, nullptr, 0));
}

TEST(EnvironmentVariables, MayBeUsedByManyThreads)
{
    std::atomic<bool> isOver = false;
    auto const use = [&](std::wstring const& name)
    {
        for (int round = 0; round < 300 || !isOver; ++round)
        {
            SetEnvironmentVariableW(name.c_str(), std::to_wstring(round).c_str());
            EXPECT_EQ(Get(name.c_str()), std::to_wstring(round));
        }
        SetEnvironmentVariableW(name.c_str(), nullptr);
    };
    std::thread one(use, L"VOK_TEST_1");
    std::thread other(use, L"VOK_TEST_2");
    for (int i = 0; i < 20; ++i)
        RunInChild([] { EXPECT_NE(Get(L"TEMP"), L""); });
    isOver = true;
    one.join();
    other.join();
}

} // namespace
