// A log statement that nobody wants, beside one relaxed load; and one that reaches one subscriber, beside spdlog with a
// null sink, on one thread and on two.
#include <Brindle/Vok/Log.h>

#include <benchmark/benchmark.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

#include <atomic>
#include <memory>

using namespace Brindle::Vok;

namespace
{

constexpr int batch = 64; // one iteration's statements, so that the loop itself does not count

std::atomic<int> plainLevel{1};

void RelaxedLoad(benchmark::State& state)
{
    for (auto _ : state)
    {
        for (int i = 0; i < batch; ++i)
        {
            if (plainLevel.load(std::memory_order_relaxed) > 3)
                benchmark::ClobberMemory();
            benchmark::DoNotOptimize(i);
        }
    }
    state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(RelaxedLoad)->Name("Unwanted/OneRelaxedLoad");

void OursUnwanted(benchmark::State& state)
{
    SubscriptionForLogCallbacks const subscription([](LogStatement const&) {}, VokLogSeverity::warning);
    for (auto _ : state)
    {
        for (int i = 0; i < batch; ++i)
        {
            VOK_LOG(trace, "value {} of {}", i, "some text");
            benchmark::DoNotOptimize(i);
        }
    }
    state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(OursUnwanted)->Name("Unwanted/Vok");

void SpdlogUnwanted(benchmark::State& state)
{
    spdlog::logger logger("null", std::make_shared<spdlog::sinks::null_sink_mt>());
    logger.set_level(spdlog::level::warn);
    for (auto _ : state)
    {
        for (int i = 0; i < batch; ++i)
        {
            logger.trace("value {} of {}", i, "some text");
            benchmark::DoNotOptimize(i);
        }
    }
    state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(SpdlogUnwanted)->Name("Unwanted/Spdlog");

std::unique_ptr<SubscriptionForLogCallbacks> subscriber;
std::shared_ptr<spdlog::logger> nullLogger;

void OursToOneSubscriber(benchmark::State& state)
{
    int i = 0;
    for (auto _ : state)
        VOK_LOG(info, "value {} of {}", ++i, "some text");
    state.SetItemsProcessed(state.iterations());
}

void OursToOneSubscriberWide(benchmark::State& state)
{
    int i = 0;
    for (auto _ : state)
        VOK_LOG(info, L"value {} of {}", ++i, L"some text");
    state.SetItemsProcessed(state.iterations());
}

void SpdlogToNullSink(benchmark::State& state)
{
    int i = 0;
    for (auto _ : state)
        nullLogger->info("value {} of {}", ++i, "some text");
    state.SetItemsProcessed(state.iterations());
}

void Subscribe(benchmark::State const&)
{
    subscriber = std::make_unique<SubscriptionForLogCallbacks>([](LogStatement const& statement)
                                                               { benchmark::DoNotOptimize(statement.message.data()); },
                                                               VokLogSeverity::info);
}

void Unsubscribe(benchmark::State const&)
{
    subscriber.reset();
}

void MakeNullLogger(benchmark::State const&)
{
    nullLogger = std::make_shared<spdlog::logger>("null", std::make_shared<spdlog::sinks::null_sink_mt>());
}

void DropNullLogger(benchmark::State const&)
{
    nullLogger.reset();
}

BENCHMARK(OursToOneSubscriber)
    ->Name("OneSubscriber/Vok")
    ->Setup(Subscribe)
    ->Teardown(Unsubscribe)
    ->ThreadRange(1, 2)
    ->UseRealTime();
BENCHMARK(OursToOneSubscriberWide)
    ->Name("OneSubscriber/VokWideFormat")
    ->Setup(Subscribe)
    ->Teardown(Unsubscribe)
    ->ThreadRange(1, 2)
    ->UseRealTime();
BENCHMARK(SpdlogToNullSink)
    ->Name("OneSubscriber/Spdlog")
    ->Setup(MakeNullLogger)
    ->Teardown(DropNullLogger)
    ->ThreadRange(1, 2)
    ->UseRealTime();

} // namespace
