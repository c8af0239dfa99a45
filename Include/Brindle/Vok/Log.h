// The log channel: one for the whole process, shared by every component that links this library.
//
//     // The program subscribes and gets every statement up to a severity, on the thread that logs:
//     Brindle::Vok::SubscriptionForLogCallbacks subscription(
//         [](Brindle::Vok::LogStatement const& statement) { std::cerr << statement.message << '\n'; },
//         Brindle::Vok::VokLogSeverity::info);
//
//     // Any component logs. The arguments are evaluated only if somebody listens:
//     VOK_LOG(info, L"{} files in [{}]", count, path);
//
// Nothing is logged anywhere by itself: with no subscriber a statement goes nowhere and costs one load and a compare
// (those at error and critical a call more, until somebody has subscribed for the first time).
//
// What is not guaranteed: an order between statements of different threads; delivery once static destruction has torn
// the channel down (statements are then dropped, subscriptions may still be destroyed). The teardown does not wait for
// other threads, so a program stops its threads before it leaves main. A child made by fork while other threads log may
// log, but must not subscribe or end a subscription: that may wait for threads that the child doesn't have.
#pragma once

#include <Brindle/Vok/Detail/FunctionName.h>
#include <Brindle/Vok/FormatString.h>
#include <Brindle/Vok/Platform.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Brindle::Vok
{

/// How much a statement matters; a lower value is more severe. Other values are allowed and compare as numbers.
enum class VokLogSeverity : std::int32_t
{
    critical = 0, ///< for callers: the library has no such statement
    error = 1,    ///< failures, throw notices, failed assertions
    warning = 2,  ///< a failure that was worked around
    info = 3,     ///< a normal but notable outcome
    trace = 4     ///< entry and exit of a scope
};

/// "critical", "error", "warning", "info" or "trace"; "unknown LogSeverity" for any other value. Any thread may call
/// it.
VOK_EXPORT std::wstring ToString(VokLogSeverity severity);
/// The same as narrow text.
VOK_EXPORT std::string ToStringA(VokLogSeverity severity);

/// One statement, as subscribers get it. It and all it points at is valid during the callback only.
struct LogStatement
{
    bool forced;             ///< it goes to every subscriber, whatever severity that one asked for
    VokLogSeverity severity; ///< as the statement has it, also a value that no enumerator names
    char const* file;        ///< source file as its compiler names it; may be null
    char const* function;    ///< scoped function name; may be null
    int line;                ///< in that file
    std::string message;     ///< UTF-8
};

/// Keeps a callback subscribed to the log channel for as long as it lives. It is movable and not copyable; a default
/// or moved-from object is empty. Different objects may be used from different threads; one object isn't synchronised.
///
/// The callback runs on the thread that logs, concurrently with itself on other threads, with the channel's lock held
/// shared. It may log (which calls it again). It must not make, destroy or re-level a subscription: that waits for
/// every running callback, its own included, for ever. It must not throw: what it throws reaches the code that logged,
/// later subscribers miss the statement, and out of a scope's exit statement it ends the process. An empty callback
/// subscribes, and the first delivery throws std::bad_function_call.
///
/// The filter, if there is one, says whether this subscriber is listening at the moment. It is asked before a statement
/// is formatted and under the same conditions as the callback. It is not asked again at delivery, so a subscriber whose
/// filter said no still gets a statement that another one wanted.
class VOK_EXPORT SubscriptionForLogCallbacks
{
public:
    /// Subscribes nothing.
    SubscriptionForLogCallbacks() noexcept;

    /// Subscribes for statements of `severity` and of all more severe ones. Waits until no callback is running. Throws
    /// std::bad_alloc alone.
    SubscriptionForLogCallbacks(std::function<void(LogStatement const&)> callback, VokLogSeverity severity);
    /// The same, for a callback that is written out in the call.
    SubscriptionForLogCallbacks(VokLogSeverity severity, std::function<void(LogStatement const&)> callback);
    /// The same with a filter; an empty one is none.
    SubscriptionForLogCallbacks(std::function<void(LogStatement const&)> callback, std::function<bool()> filter,
                                VokLogSeverity severity);

    /// Takes over the other subscription, which goes on without a gap.
    SubscriptionForLogCallbacks(SubscriptionForLogCallbacks&& other) noexcept;
    /// Takes over the other subscription. One that this object held before is not cancelled: its callback goes on
    /// receiving for the rest of the process. Destroy the old subscription first where that isn't wanted.
    SubscriptionForLogCallbacks& operator=(SubscriptionForLogCallbacks&& other) noexcept;
    SubscriptionForLogCallbacks(SubscriptionForLogCallbacks const&) = delete;
    SubscriptionForLogCallbacks& operator=(SubscriptionForLogCallbacks const&) = delete;

    /// Cancels. When it has returned, the callback is not running on any thread and will not be called again.
    ~SubscriptionForLogCallbacks();

    /// Changes what this subscriber gets, at once, once no callback is running. Calling it on an empty subscription is
    /// a fault.
    void SetLogSeverity(VokLogSeverity severity);

private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};

namespace Detail
{

/// The greatest severity value that any subscriber asked for; -1 once the last one has gone.
VOK_EXPORT extern std::atomic<int> maximumLogSeverity;

/// Whether a statement of this severity would be of interest to anyone now: some subscriber wants it, and some
/// subscriber has no filter or one that says yes.
VOK_EXPORT bool ShouldLog(VokLogSeverity severity);

/// Delivers a statement to every subscriber whose severity allows it, or to all if it is forced. Filters have no say.
/// `file` and `function` must outlive the call.
VOK_EXPORT void Log(bool forced, VokLogSeverity severity, char const* const file, char const* const function, int line,
                    std::string const& message);
/// The same for a message that is no longer needed.
VOK_EXPORT void Log(bool forced, VokLogSeverity severity, char const* const file, char const* const function, int line,
                    std::string&& message);

/// ShouldLog, decided in line when nobody asked for such a severity.
inline bool IsWanted(VokLogSeverity severity)
{
    return static_cast<int>(severity) <= maximumLogSeverity.load(std::memory_order_relaxed) && ShouldLog(severity);
}

/// Logs "[ENTER]" when it is made and "[EXIT]", or "[EXCEPTION EXIT]" if an exception is passing, when it goes, each
/// followed by a blank and the text if there is one. Severity trace; it lives on one thread's stack. VOK_LOG_SCOPE
/// declares one. A subscriber that throws at the exit statement ends the process.
class VOK_EXPORT LogScope
{
public:
    /// A text is worth preparing if someone wants this severity, although the statements themselves are at trace.
    static VokLogSeverity const highestSeverity;

    LogScope(char const* const file, char const* const function, int line, std::string const& text);
    ~LogScope() noexcept;
    LogScope(LogScope const&) = delete;
    LogScope& operator=(LogScope const&) = delete;

private:
    void LogPassage(char const* passage) const;

    char const* const file;
    char const* const function;
    int line;
    std::string text;
    int uncaughtExceptions;
};

inline std::string ScopeText()
{
    return {};
}

template <class Char, class... Arguments>
std::string ScopeText(Char const* format, Arguments const&... arguments)
{
    return FormatText(format, arguments...);
}

} // namespace Detail
} // namespace Brindle::Vok

/// VOK_LOG(severity, format, arguments...): logs a text that is formatted only if somebody wants it; the arguments are
/// evaluated only then. The severity is an enumerator's bare name or any expression of that type; the format is a
/// literal or a pointer to narrow or wide text, and required.
///
/// A narrow format takes text of both widths as it is. A wide format widens narrow text (char const*, std::string) byte
/// by byte, without decoding UTF-8, so only ASCII comes out as it was: with the UTF-8 text "\u00E4", L"[{}]" gives
/// "[\u00C3\u00A4]". Give such text to a narrow format, or through Utf8ToWide. The other macros do the same.
#define VOK_LOG(logSeverity, ...)                                                                                      \
    do                                                                                                                 \
    {                                                                                                                  \
        ::Brindle::Vok::VokLogSeverity vokSeverity;                                                                    \
        {                                                                                                              \
            using enum ::Brindle::Vok::VokLogSeverity;                                                                 \
            vokSeverity = logSeverity;                                                                                 \
        }                                                                                                              \
        if (::Brindle::Vok::Detail::IsWanted(vokSeverity))                                                             \
            ::Brindle::Vok::Detail::Log(false, vokSeverity, __FILE__, VOK_FUNCTION_NAME, __LINE__,                     \
                                        ::Brindle::Vok::Detail::FormatText(__VA_ARGS__));                              \
    } while (false)

/// VOK_ASSERT(expression): a soft assertion. A false expression is logged at error as "Assertion failed: " and its
/// source text with macros expanded, and execution goes on, in every build.
#define VOK_ASSERT(...) VOK_DETAIL_ASSERT_EXPANDED(__VA_ARGS__)
/// Takes the expression and its text apart.
#define VOK_DETAIL_ASSERT_EXPANDED(...) VOK_DETAIL_ASSERT((__VA_ARGS__), #__VA_ARGS__)

/// The same with a text of its own, where the text is fixed and the expression isn't.
#define VOK_DETAIL_ASSERT(expression, text)                                                                            \
    do                                                                                                                 \
    {                                                                                                                  \
        if (!(expression))                                                                                             \
            VOK_LOG(error, "Assertion failed: " text);                                                                 \
    } while (false)

/// One name of two, behind what each expands to.
#define VOK_DETAIL_JOIN(a, b) VOK_DETAIL_JOIN_EXPANDED(a, b)
/// Takes the names as they stand.
#define VOK_DETAIL_JOIN_EXPANDED(a, b) a##b

/// VOK_LOG_SCOPE() or VOK_LOG_SCOPE(format, arguments...): logs that the enclosing function was entered here and, at
/// the end of the block, that it was left. The arguments are evaluated only if somebody wants severity info,
/// although the statements are at trace.
#define VOK_LOG_SCOPE(...)                                                                                             \
    ::Brindle::Vok::Detail::LogScope const VOK_DETAIL_JOIN(vokLogScope, __LINE__)(                                     \
        __FILE__, VOK_FUNCTION_NAME, __LINE__,                                                                         \
        ::Brindle::Vok::Detail::IsWanted(::Brindle::Vok::Detail::LogScope::highestSeverity)                            \
            ? ::Brindle::Vok::Detail::ScopeText(__VA_ARGS__)                                                           \
            : ::std::string())
