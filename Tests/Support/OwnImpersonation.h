// Threads impersonate with the process's own token here, which everybody may, so most tests run without privileges.
#pragma once

#include "OpenHandle.h"

#include <gtest/gtest.h>

namespace Brindle::Vok::Testing
{

inline constexpr char const* impersonatesAgain = "info: Reverting back to saved impersonation state";
inline constexpr char const* hasImpersonated = "info: Succeeded to revert with ImpersonateLoggedOnUser";

inline bool Impersonates()
{
    HANDLE token = nullptr;
    return OpenThreadToken(GetCurrentThread(), 0, FALSE, &token) && CloseHandle(token);
}

struct ImpersonationTests : testing::Test
{
    ~ImpersonationTests() override { EXPECT_TRUE(RevertToSelf()); }

    void Impersonate() const { ASSERT_TRUE(ImpersonateLoggedOnUser(token)); }

    OpenHandle const owner = OwnToken(MAXIMUM_ALLOWED);
    HANDLE const token = owner.Get();
};

} // namespace Brindle::Vok::Testing
