// The checked form of the query for associations.
#include "Support/LogRecorder.h"
#include "Support/TestDesktop.h"
#include "Support/Thrown.h"

#include <Brindle/Vok/VokShlwapi.h>

#include <gmock/gmock.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;

TEST(VokAssocQueryString, GivesTheProgramOrNothingOrThrows)
{
    TestDesktop const desktop;
    auto const ask = [] { return VokAssocQueryString(ASSOCF_NONE, ASSOCSTR_EXECUTABLE, L".vok", L""); };
    EXPECT_EQ(ask(), L"");
    desktop.AddProgram("show");
    desktop.AddEntry("share/applications/show.desktop", "Show", "show %f");
    desktop.drive.Write("share/mime/globs2", "50:application/x-vok:*.vok\n");
    desktop.drive.Write("etc/mimeapps.list", "[Default Applications]\napplication/x-vok=show.desktop\n");
    EXPECT_EQ(ask(), desktop.Program(L"show"));
    LogRecorder recorder;
    auto const error =
        Thrown<ComError>([] { VokAssocQueryString(ASSOCF_NONE, static_cast<ASSOCSTR>(999), L".vok", L""); });
    EXPECT_EQ(WithoutLine(error.Message()), "Source/Vok/VokShlwapi.cpp: Brindle::Vok::VokAssocQueryString " +
                                                HresultToStringA(E_INVALIDARG) +
                                                " (Com Error -7FF8FFA9). AssocQueryString");
    EXPECT_THAT(recorder.Lines(), testing::ElementsAre("error: Throwing " + error.Message()));
}
