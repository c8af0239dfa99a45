#include <Brindle/Vok/Log.h>

#include "ReadMostlyLock.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <limits>
#include <list>
#include <mutex>
#include <shared_mutex>
#include <utility>

namespace Brindle::Vok
{
namespace
{

// Outside the channel object, so that they can be asked before it is made and after it has gone.
constinit std::atomic<bool> channelDestroyed{false};
constinit Detail::ReadMostlyLock channelLock;

class LogChannel
{
public:
    using Callback = std::function<void(LogStatement const&)>;
    using Filter = std::function<bool()>;

    struct Entry
    {
        Callback callback;
        VokLogSeverity severity;
        Filter filter;
    };

    using Position = std::list<Entry>::iterator;

    static LogChannel& Instance()
    {
        static LogChannel channel;
        return channel;
    }

    /// Runs in static destruction, without the lock: programs have stopped their threads by then.
    ~LogChannel()
    {
        channelDestroyed = true;
        subscribers.clear();
    }

    bool IsAnyoneListening() const
    {
        Listeners const known = listeners.load();
        if (known != Listeners::askFilters)
            return known == Listeners::some;
        std::shared_lock lock(channelLock);
        for (Entry const& entry : subscribers)
        {
            if (!entry.filter || entry.filter())
                return true;
        }
        return false;
    }

    /// Whether delivery would call anyone. Every subscriber's severity is at most the maximum.
    bool WouldReachAnyone(bool forced, VokLogSeverity severity) const
    {
        return listeners.load() != Listeners::none &&
               (forced || static_cast<int>(severity) <= Detail::maximumLogSeverity.load());
    }

    void Deliver(LogStatement const& statement) const
    {
        std::shared_lock lock(channelLock);
        for (Entry const& entry : subscribers)
        {
            if (statement.forced || statement.severity <= entry.severity)
                entry.callback(statement);
        }
    }

    Position Add(Callback callback, VokLogSeverity severity, Filter filter)
    {
        std::list<Entry> added;
        added.push_back({std::move(callback), severity, std::move(filter)});
        std::lock_guard lock(channelLock);
        subscribers.splice(subscribers.end(), added);
        Update();
        return std::prev(subscribers.end());
    }

    void Remove(Position position)
    {
        std::list<Entry> removed; // goes after the lock, since what a callback owns may log when it is destroyed
        std::lock_guard lock(channelLock);
        removed.splice(removed.end(), subscribers, position);
        Update();
    }

    void SetSeverity(Position position, VokLogSeverity severity)
    {
        std::lock_guard lock(channelLock);
        position->severity = severity;
        Update();
    }

private:
    /// What can be said without walking the list: the walk stops at the first subscriber that has no filter.
    enum class Listeners : int
    {
        none,
        some,
        askFilters
    };

    /// Brings the two summaries up to date; the lock is held exclusive.
    void Update()
    {
        if (channelDestroyed)
            return;
        int maximum = subscribers.empty() ? -1 : std::numeric_limits<int>::min();
        for (Entry const& entry : subscribers)
            maximum = std::max(maximum, static_cast<int>(entry.severity));
        Detail::maximumLogSeverity = maximum;
        if (subscribers.empty())
            listeners = Listeners::none;
        else
            listeners = subscribers.front().filter ? Listeners::askFilters : Listeners::some;
    }

    std::list<Entry> subscribers;
    std::atomic<Listeners> listeners{Listeners::none};
};

char const* SeverityName(VokLogSeverity severity)
{
    switch (severity)
    {
    case VokLogSeverity::critical:
        return "critical";
    case VokLogSeverity::error:
        return "error";
    case VokLogSeverity::warning:
        return "warning";
    case VokLogSeverity::info:
        return "info";
    case VokLogSeverity::trace:
        return "trace";
    }
    return "unknown LogSeverity";
}

} // namespace

std::wstring ToString(VokLogSeverity severity)
{
    return Utf8ToWide(SeverityName(severity));
}

std::string ToStringA(VokLogSeverity severity)
{
    return SeverityName(severity);
}

struct SubscriptionForLogCallbacks::Impl
{
    LogChannel::Position position;
};

SubscriptionForLogCallbacks::SubscriptionForLogCallbacks() noexcept = default;
SubscriptionForLogCallbacks::SubscriptionForLogCallbacks(SubscriptionForLogCallbacks&& other) noexcept = default;

// The Impl that was held before goes without cancelling; the header says so.
SubscriptionForLogCallbacks&
SubscriptionForLogCallbacks::operator=(SubscriptionForLogCallbacks&& other) noexcept = default;

SubscriptionForLogCallbacks::SubscriptionForLogCallbacks(std::function<void(LogStatement const&)> callback,
                                                         VokLogSeverity severity)
    : SubscriptionForLogCallbacks(std::move(callback), nullptr, severity)
{
}

SubscriptionForLogCallbacks::SubscriptionForLogCallbacks(VokLogSeverity severity,
                                                         std::function<void(LogStatement const&)> callback)
    : SubscriptionForLogCallbacks(std::move(callback), severity)
{
}

SubscriptionForLogCallbacks::SubscriptionForLogCallbacks(std::function<void(LogStatement const&)> callback,
                                                         std::function<bool()> filter, VokLogSeverity severity)
    : impl(std::make_unique<Impl>())
{
    impl->position = LogChannel::Instance().Add(std::move(callback), severity, std::move(filter));
}

SubscriptionForLogCallbacks::~SubscriptionForLogCallbacks()
{
    if (!impl)
        return;
    LogChannel& channel = LogChannel::Instance();
    if (!channelDestroyed)
        channel.Remove(impl->position);
}

void SubscriptionForLogCallbacks::SetLogSeverity(VokLogSeverity severity)
{
    LogChannel& channel = LogChannel::Instance();
    LogChannel::Position const position = impl->position;
    if (!channelDestroyed)
        channel.SetSeverity(position, severity);
}

namespace Detail
{

// Not -1: before anyone has ever subscribed, errors pass the threshold and find nobody.
constinit std::atomic<int> maximumLogSeverity{static_cast<int>(VokLogSeverity::error)};

bool ShouldLog(VokLogSeverity severity)
{
    LogChannel const& channel = LogChannel::Instance();
    if (channelDestroyed || static_cast<int>(severity) > maximumLogSeverity.load())
        return false;
    return channel.IsAnyoneListening();
}

void Log(bool forced, VokLogSeverity severity, char const* const file, char const* const function, int line,
         std::string const& message)
{
    LogChannel const& channel = LogChannel::Instance();
    if (!channelDestroyed && channel.WouldReachAnyone(forced, severity))
        channel.Deliver({forced, severity, file, function, line, message});
}

void Log(bool forced, VokLogSeverity severity, char const* const file, char const* const function, int line,
         std::string&& message)
{
    LogChannel const& channel = LogChannel::Instance();
    if (!channelDestroyed && channel.WouldReachAnyone(forced, severity))
        channel.Deliver({forced, severity, file, function, line, std::move(message)});
}

constinit VokLogSeverity const LogScope::highestSeverity = VokLogSeverity::info;

LogScope::LogScope(char const* const file, char const* const function, int line, std::string const& text)
    : file(file), function(function), line(line), text(text), uncaughtExceptions(std::uncaught_exceptions())
{
    LogPassage("[ENTER]");
}

LogScope::~LogScope() noexcept
{
    LogPassage(std::uncaught_exceptions() == uncaughtExceptions ? "[EXIT]" : "[EXCEPTION EXIT]");
}

void LogScope::LogPassage(char const* passage) const
{
    if (static_cast<int>(VokLogSeverity::trace) > maximumLogSeverity.load())
        return; // delivery would reach nobody, so the message isn't made
    std::string message = passage;
    if (!text.empty())
        message.append(" ").append(text);
    Log(false, VokLogSeverity::trace, file, function, line, std::move(message));
}

} // namespace Detail
} // namespace Brindle::Vok
