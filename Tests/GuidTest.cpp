#include "Support/HostFaults.h"
#include "Support/Thrown.h"

#include <Brindle/Vok/Guid.h>

#include <gtest/gtest.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;

TEST(Guid, HasOneTextFormAndNewOnesAreThePlatformsOrItsFailure)
{
    Guid const value(GUID{0x12345678, 0xABCD, 0xEF01, {0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0x01}});
    EXPECT_EQ(value.ToString(), L"{12345678-ABCD-EF01-2345-6789ABCDEF01}");
    EXPECT_EQ(FormatString("{}", value), "{12345678-ABCD-EF01-2345-6789ABCDEF01}");
    EXPECT_NE(Guid::NewGuid(), Guid::NewGuid());
    SystemCalls::Redirection const none(SystemCalls::GetRandom, FailingWith(ENOSYS));
    EXPECT_TRUE(Thrown<ComError>([] { Guid::NewGuid(); }).Message().ends_with("CoCreateGuid failed"));
}
