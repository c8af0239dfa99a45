#include "Support/HostFaults.h"
#include "Support/LogRecorder.h"
#include "Support/Thrown.h"

#include <Brindle/Vok/Guid.h>

#include <gtest/gtest.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;

TEST(Guid, HasOneTextForm)
{
    GUID const value{0x12345678, 0xABCD, 0xEF01, {0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0x01}};
    EXPECT_EQ(Guid(value).ToString(), L"{12345678-ABCD-EF01-2345-6789ABCDEF01}");
    EXPECT_EQ(Guid().ToString(), L"{00000000-0000-0000-0000-000000000000}");
    EXPECT_EQ(FormatString("{}", Guid(value)), "{12345678-ABCD-EF01-2345-6789ABCDEF01}");
    EXPECT_EQ(FormatStringW(L"{}", Guid(value)), L"{12345678-ABCD-EF01-2345-6789ABCDEF01}");
}

TEST(Guid, NewOnesAreThePlatformsOrItsFailure)
{
    EXPECT_NE(Guid::NewGuid(), Guid::NewGuid());
    SystemCalls::Redirection const none(SystemCalls::GetRandom, FailingWith(ENOSYS));
    LogRecorder recorder;
    ComError const error = Thrown<ComError>([] { Guid::NewGuid(); });
    EXPECT_EQ(error.code().value(), static_cast<int>(0x80070078));
    ASSERT_EQ(recorder.Statements().size(), 1U);
    EXPECT_STREQ(recorder.Statements()[0].function, "Brindle::Vok::Guid::NewGuid");
    EXPECT_STREQ(recorder.Statements()[0].file, "Include/Brindle/Vok/Guid.h");
    EXPECT_TRUE(recorder.Statements()[0].message.ends_with("CoCreateGuid failed"));
}
