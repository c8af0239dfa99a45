// Logs at every stage of a process's end and prints what is delivered.
#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/Log.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

using namespace Brindle::Vok;

namespace
{

void Deliver(LogStatement const& statement)
{
    std::printf("delivered %s\n", statement.message.c_str());
}

std::atomic<bool> channelHasGone = false;
std::atomic<bool> threadHasLogged = false;

void LogOnceTheChannelHasGone()
{
    channelHasGone.wait(false);
    VOK_LOG(error, "from a detached thread");
    threadHasLogged = true;
    threadHasLogged.notify_one();
}

void LogEverything()
{
    VOK_LOG(critical, "from a late static");
    Detail::Log(true, VokLogSeverity::critical, "file", "function", 1, "forced from a late static");
    VOK_LOG_SCOPE("late scope");
    std::printf("still %s\n", ComError(E_FAIL, nullptr, 0, nullptr, "late").code().category().name());
}

/// Made before main, so it goes after the channel, which the first statement made.
struct Late
{
    ~Late()
    {
        std::printf("ShouldLog %d\n", Detail::ShouldLog(VokLogSeverity::critical));
        LogEverything();
        subscription->SetLogSeverity(VokLogSeverity::trace);
        subscription.reset();
        {
            SubscriptionForLogCallbacks const tooLate(Deliver, VokLogSeverity::trace);
        }
        channelHasGone = true;
        channelHasGone.notify_one();
        threadHasLogged.wait(false);
        std::printf("end\n");
    }

    std::unique_ptr<SubscriptionForLogCallbacks> subscription;
};

Late late;

struct Early
{
    ~Early() { VOK_LOG(error, "from an early static"); }
};

} // namespace

int main()
{
    late.subscription = std::make_unique<SubscriptionForLogCallbacks>(Deliver, VokLogSeverity::error);
    static Early const early;
    std::atexit([] { VOK_LOG(error, "from an exit handler"); });
    std::thread(LogOnceTheChannelHasGone).detach();
    VOK_LOG(error, "from main");
    return 0;
}
