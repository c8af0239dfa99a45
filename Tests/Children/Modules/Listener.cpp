// A module that subscribes.
#include <Brindle/Vok/Log.h>

#include <cstdio>
#include <memory>

using namespace Brindle::Vok;

namespace
{
std::unique_ptr<SubscriptionForLogCallbacks> subscription;
}

extern "C" __attribute__((visibility("default"))) void Listen()
{
    subscription = std::make_unique<SubscriptionForLogCallbacks>(
        [](LogStatement const& statement) { std::printf("heard %s\n", statement.message.c_str()); },
        VokLogSeverity::info);
}

extern "C" __attribute__((visibility("default"))) void StopListening()
{
    subscription.reset();
}
