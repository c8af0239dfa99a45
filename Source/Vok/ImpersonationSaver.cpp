#include <Brindle/Vok/ImpersonationSaver.h>

#include <Brindle/Vok/Log.h>

namespace Brindle::Vok
{

ImpersonationSaver::ImpersonationSaver()
{
    savedToken.GetCurrentTokenForImpersonation();
}

ImpersonationSaver::~ImpersonationSaver() noexcept // NOLINT(bugprone-exception-escape): see the declaration
{
    if (!impersonationOccurred)
    {
        VOK_LOG(info, "Not reverting as no impersonation occurred");
        return;
    }
    if (!RevertToSelf())
        VOK_LOG(error, "Failed to RevertToSelf. Error [{}]", GetLastError());
    if (savedToken.GetHandle() == nullptr)
        return;
    VOK_LOG(info, "Reverting back to saved impersonation state");
    if (!savedToken.ImpersonateLoggedOnUser())
        VOK_LOG(error, "Failed to Revert with ImpersonateLoggedOnUser. Error [{}]", GetLastError());
    VOK_LOG(info, "Succeeded to revert with ImpersonateLoggedOnUser"); // required: also behind the failure
}

void ImpersonationSaver::SetImpersonationOccurred(int occurred)
{
    if (!occurredReported)
        impersonationOccurred = occurred == 1;
    else if (occurred != 0)
        impersonationOccurred = true;
    occurredReported = true;
}

bool ImpersonationSaver::WasImpersonating() const
{
    return savedToken.GetHandle() != nullptr;
}

} // namespace Brindle::Vok
