#include <Brindle/Vok/UnImpersonator.h>

#include <Brindle/Vok/Log.h>

namespace Brindle::Vok
{

UnImpersonator::UnImpersonator()
{
    VOK_LOG_SCOPE();
    if (!saver.WasImpersonating())
        return;
    if (RevertToSelf())
        VOK_LOG(info, "Impersonation stopped");
    else
        VOK_LOG(error, "Failed to stop impersonating [{}]", GetLastError());
}

UnImpersonator::~UnImpersonator() = default;

} // namespace Brindle::Vok
