// What a token holds, for the rooms that act for its user.
#pragma once

#include "Identity.h"

#include <Brindle/Platform/Security.h>

namespace Brindle::Vok::Platform
{

/// Whose the token is. False with ERROR_INVALID_HANDLE, with ERROR_ACCESS_DENIED if it was opened without one of the
/// rights, or with ERROR_NOT_ENOUGH_MEMORY.
bool FindIdentityOfToken(HANDLE token, DWORD access, Identity& identity) noexcept;

} // namespace Brindle::Vok::Platform
