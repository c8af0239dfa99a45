#include <Brindle/Platform/ErrorCodes.h>

namespace
{
thread_local DWORD lastError = 0;
}

DWORD GetLastError() noexcept
{
    return lastError;
}

void SetLastError(DWORD code) noexcept
{
    lastError = code;
}
