#include <Brindle/Vok/Log.h>

using namespace Brindle::Vok;

SubscriptionForLogCallbacks Pass(SubscriptionForLogCallbacks& subscription)
{
#ifdef MUST_NOT_COMPILE
    return SubscriptionForLogCallbacks(subscription);
#else
    return SubscriptionForLogCallbacks(std::move(subscription));
#endif
}
