#include "Support/LogRecorder.h"

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/Log.h>

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <latch>
#include <stdexcept>
#include <thread>

using namespace Brindle::Vok;
using Brindle::Vok::Testing::LogRecorder;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

void LogPlain(VokLogSeverity severity, std::string const& message, bool forced = false)
{
    Detail::Log(forced, severity, "file", "function", 1, message);
}

void Ignore(LogStatement const&) {}

/// Collects "severity message", each with the subscriber's name in front.
SubscriptionForLogCallbacks Collect(std::vector<std::string>& target, std::string name, VokLogSeverity severity)
{
    auto const collect = [&target, name](LogStatement const& statement)
    { target.push_back(name + ToStringA(statement.severity) + ' ' + statement.message); };
    return {collect, severity};
}

} // namespace

TEST(Log, DeliversBySeverityInOrderOfSubscription)
{
    std::vector<std::string> got;
    {
        SubscriptionForLogCallbacks const first = Collect(got, "a:", VokLogSeverity::error);
        SubscriptionForLogCallbacks second = Collect(got, "b:", VokLogSeverity::trace);
        second.SetLogSeverity(VokLogSeverity::info);
        EXPECT_FALSE(Detail::ShouldLog(VokLogSeverity::trace));
        for (int severity = 0; severity < 5; ++severity)
            LogPlain(static_cast<VokLogSeverity>(severity), "x");
        LogPlain(VokLogSeverity::trace, "forced", true);
    }
    EXPECT_THAT(got, ElementsAre("a:critical x", "b:critical x", "a:error x", "b:error x", "b:warning x", "b:info x",
                                 "a:trace forced", "b:trace forced"));
    EXPECT_EQ(ToString(static_cast<VokLogSeverity>(5)), L"unknown LogSeverity");
    EXPECT_EQ(Detail::maximumLogSeverity, -1); // nobody listens
}

TEST(Log, MacroTakesNamesAndExpressionsAndEvaluatesArgumentsOnlyIfWanted)
{
    LogRecorder recorder(VokLogSeverity::warning);
    int evaluated = 0;
    WindowsError const error(5, nullptr, 0, nullptr, {}); // a local of an enumerator's name
    VokLogSeverity const chosen = VokLogSeverity::warning;
    VOK_LOG(error, L"{}", error);
    VOK_LOG(chosen, "chosen {}", ++evaluated);
    VOK_LOG(VokLogSeverity::info, "unwanted {}", ++evaluated);
    EXPECT_THAT(recorder.Lines(), ElementsAre("error: Access is denied. (Windows Error 5).", "warning: chosen 1"));
    EXPECT_EQ(evaluated, 1);
    EXPECT_STREQ(recorder.Statements()[0].file, "Tests/LogTest.cpp");
}

TEST(Log, AssertionsShowTheirSourceWithMacrosExpandedAndGoOn)
{
    LogRecorder recorder;
    SetLastError(0);
    VOK_ASSERT(GetLastError() == ERROR_MORE_DATA);
    VOK_ASSERT(GetLastError() == 0);
    EXPECT_THAT(recorder.Lines(), ElementsAre("error: Assertion failed: GetLastError() == 234L"));
}

TEST(LogFilter, DecidesBeforeFormattingAndHasNoSayAtDelivery)
{
    std::vector<std::string> got;
    int asked = 0;
    auto const filter = [&] { return ++asked, false; };
    SubscriptionForLogCallbacks const filtered([&](LogStatement const& s) { got.push_back("a:" + s.message); }, filter,
                                               VokLogSeverity::info);
    EXPECT_FALSE(Detail::ShouldLog(VokLogSeverity::error));
    EXPECT_FALSE(Detail::ShouldLog(VokLogSeverity::trace)); // stops at the threshold, unasked
    LogPlain(VokLogSeverity::error, "direct");
    SubscriptionForLogCallbacks const second = Collect(got, "b:", VokLogSeverity::info);
    SubscriptionForLogCallbacks const behind(Ignore, filter, VokLogSeverity::info);
    VOK_LOG(info, "both");
    EXPECT_EQ(asked, 2) << "asked in the order of subscription, until somebody wants it";
    EXPECT_THAT(got, ElementsAre("a:direct", "a:both", "b:info both"));
}

TEST(LogSubscription, MovesButIsNotCancelledByAnotherThatIsMovedIn)
{
    static std::vector<std::string> got; // the old callback lives as long as the process
    {
        SubscriptionForLogCallbacks target([](LogStatement const& statement)
                                           { got.push_back("old:" + statement.message); },
                                           [] { return false; }, static_cast<VokLogSeverity>(-1));
        auto first = std::make_unique<SubscriptionForLogCallbacks>(Collect(got, "new:", VokLogSeverity::error));
        SubscriptionForLogCallbacks second(std::move(*first));
        first.reset();
        target = std::move(second);
        LogPlain(VokLogSeverity::error, "move 1", true);
    }
    LogPlain(VokLogSeverity::error, "move 2", true);
    EXPECT_THAT(got, ElementsAre("old:move 1", "new:error move 1", "old:move 2"));
}

TEST(LogSubscription, WhatACallbackOrAFilterThrowsReachesTheCodeThatLogged)
{
    auto const fail = [](auto const&...) -> bool { throw std::runtime_error("x"); };
    SubscriptionForLogCallbacks const subscription(fail, fail, VokLogSeverity::error);
    LogRecorder recorder;
    EXPECT_THROW(Detail::ShouldLog(VokLogSeverity::error), std::runtime_error);
    EXPECT_THROW(LogPlain(VokLogSeverity::error, "missed"), std::runtime_error);
    EXPECT_THAT(recorder.Lines(), IsEmpty());
    SubscriptionForLogCallbacks const other(Ignore, VokLogSeverity::error); // needs the lock for itself
}

TEST(LogSubscription, ACallbackMayLogAndIsWaitedForByWhoCancels)
{
    std::latch inCallback(1);
    std::atomic<int> finished = 0;
    auto const callback = [&](LogStatement const& statement)
    {
        if (statement.message == "outer")
        {
            inCallback.count_down();
            std::this_thread::sleep_for(std::chrono::milliseconds(50)); // the other thread waits by now
            VOK_LOG(error, "inner");
        }
        ++finished;
    };
    auto subscription = std::make_unique<SubscriptionForLogCallbacks>(callback, VokLogSeverity::error);
    std::thread logger([] { LogPlain(VokLogSeverity::error, "outer"); });
    inCallback.wait();
    subscription.reset();
    EXPECT_EQ(finished, 2);
    logger.join();
}

TEST(LogSubscription, ManyThreadsLogSubscribeAndRelevel)
{
    std::atomic<int> delivered = 0;
    auto const log = [](std::stop_token const& stops)
    {
        while (!stops.stop_requested())
            VOK_LOG(info, L"{}", 1);
    };
    std::jthread const threads[] = {std::jthread(log), std::jthread(log), std::jthread(log)};
    for (int i = 0; i < 300 || delivered == 0; ++i)
    {
        std::atomic<bool> isAlive = true;
        {
            auto const callback = [&](LogStatement const&)
            {
                EXPECT_TRUE(isAlive);
                ++delivered;
            };
            SubscriptionForLogCallbacks subscription(callback, VokLogSeverity::info);
            subscription.SetLogSeverity(VokLogSeverity::error);
            subscription.SetLogSeverity(VokLogSeverity::trace);
        }
        isAlive = false;
    }
}

TEST(LogScope, TellsEntryExitAndException)
{
    LogRecorder recorder;
    auto const run = [](bool fail)
    {
        VOK_LOG_SCOPE("a={}", 1);
        if (fail)
            throw 1;
    };
    run(false);
    try
    {
        run(true);
    }
    catch (int)
    {
        VOK_LOG_SCOPE("handler");
        VOK_LOG_SCOPE("another");
    }
    EXPECT_THAT(recorder.Lines(),
                ElementsAre("trace: [ENTER] a=1", "trace: [EXIT] a=1", "trace: [ENTER] a=1",
                            "trace: [EXCEPTION EXIT] a=1", "trace: [ENTER] handler", "trace: [ENTER] another",
                            "trace: [EXIT] another", "trace: [EXIT] handler"));
}
