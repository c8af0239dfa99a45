// What stands behind the handle of a process.
#pragma once

#include "HandleTable.h"
#include "Identity.h"

namespace Brindle::Vok::Platform
{

/// What a token holds: whom somebody acts as, and the session.
struct TokenSubject
{
    Identity identity;
    DWORD session;
};

/// False with ERROR_INVALID_HANDLE for what isn't a process, ERROR_ACCESS_DENIED for one that has ended or that the
/// calling thread may not look into. May throw std::bad_alloc.
bool FindSubjectOfProcess(HANDLE process, TokenSubject& found);

/// The session of a process that is there. False with ERROR_INVALID_PARAMETER or ERROR_ACCESS_DENIED.
bool FindSession(DWORD processId, DWORD& session) noexcept;

} // namespace Brindle::Vok::Platform
