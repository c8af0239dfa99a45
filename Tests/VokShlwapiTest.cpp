// The checked form of the query for associations.
#include "Support/LogRecorder.h"
#include "Support/Replacement.h"
#include "Support/TestDesktop.h"
#include "Support/Thrown.h"

#include <Brindle/Vok/VokShlwapi.h>

#include <gmock/gmock.h>

#include <functional>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;

namespace
{

/// Stands for the platform while it is set. It gets `extra`, the buffer and the size.
std::function<HRESULT(LPCWSTR, LPWSTR, LPDWORD)> standIn;

} // namespace

VOK_TEST_REPLACE(standIn, standIn(extra, out, size), HRESULT, AssocQueryStringW,
                 (ASSOCF a, ASSOCSTR b, LPCWSTR c, LPCWSTR extra, LPWSTR out, LPDWORD size),
                 (a, b, c, extra, out, size))

namespace
{

std::wstring Ask()
{
    return VokAssocQueryString(ASSOCF_NONE, ASSOCSTR_EXECUTABLE, L".vok", L"");
}

TEST(VokAssociation, GivesTheProgramOrNothing)
{
    TestDesktop const desktop;
    EXPECT_EQ(Ask(), L"");
    desktop.AddProgram("show");
    desktop.AddEntry("share/applications/show.desktop", "Show", "show %f");
    desktop.drive.Write("share/mime/globs2", "50:application/x-vok:*.vok\n");
    desktop.drive.Write("etc/mimeapps.list", "[Default Applications]\napplication/x-vok=show.desktop\n");
    EXPECT_EQ(Ask(), desktop.Program(L"show"));
}

TEST(VokAssociation, ThrowsEveryFirstAnswerButASizeAndTakesTheSecondAsItComes)
{
    for (HRESULT const code : {S_OK, E_INVALIDARG})
    {
        LogRecorder recorder;
        standIn = [result = code](auto...) { return result; };
        ComError const error = Thrown<ComError>([] { Ask(); });
        EXPECT_EQ(error.code(), std::error_code(code, Detail::ComErrorCategory::Instance()));
        EXPECT_EQ(WithoutLine(error.Message()), "Source/Vok/VokShlwapi.cpp: Brindle::Vok::VokAssocQueryString " +
                                                    HresultToStringA(code) + " (Com Error " +
                                                    (code == S_OK ? "0" : "-7FF8FFA9") + "). AssocQueryString");
        EXPECT_THAT(recorder.Lines(), testing::ElementsAre("error: Throwing " + error.Message()));
    }
    HRESULT second = E_FAIL;
    standIn = [&](LPCWSTR, LPWSTR out, LPDWORD size) -> HRESULT
    {
        EXPECT_EQ(std::exchange(*size, 5), out ? 5U : 0U);
        if (!out)
            return S_FALSE;
        std::char_traits<wchar_t>::copy(out, L"ab\0cd", 5);
        return second;
    };
    EXPECT_EQ(Ask(), L"");
    second = S_FALSE;
    EXPECT_EQ(Ask(), L"ab");
    standIn = nullptr;
}

} // namespace
