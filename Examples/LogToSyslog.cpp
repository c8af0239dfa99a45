// Sends all log statements of the process to syslog(3), with the name of the function that logs in front of the text.
// Here a component counts the lines of files and logs that:
//
//     LogToSyslog [--stderr] [--trace] FILE...
//
//     --stderr    to standard error too
//     --trace     when functions are entered and left, too
#include "Arguments.h"
#include "LineCounter.h"
#include "OneLine.h"

#include <Brindle/Vok/Log.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <span>
#include <string_view>
#include <syslog.h>
#include <vector>

using namespace Brindle::Vok;

namespace
{

int PriorityOf(VokLogSeverity severity)
{
    switch (severity)
    {
    case VokLogSeverity::critical:
        return LOG_CRIT;
    case VokLogSeverity::error:
        return LOG_ERR;
    case VokLogSeverity::warning:
        return LOG_WARNING;
    case VokLogSeverity::info:
        return LOG_INFO;
    case VokLogSeverity::trace:
        return LOG_DEBUG;
    }
    return severity < VokLogSeverity::critical ? LOG_CRIT : LOG_DEBUG; // other numbers are allowed
}

/// Lives in main, longer than any thread that logs. One for the process, as openlog and its name are.
class SyslogOutput
{
public:
    /// The name isn't copied.
    SyslogOutput(char const* name, int options, VokLogSeverity severity)
        : connection(name, options), log(Send, severity)
    {
    }

private:
    struct Connection
    {
        Connection(char const* name, int options) { openlog(name, options, LOG_USER); }
        ~Connection() { closelog(); }
        Connection(Connection const&) = delete;
        Connection& operator=(Connection const&) = delete;
    };

    // Runs on the thread that logs, on several at a time, and must not throw: a statement is lost rather than its
    // speaker. A message is no format.
    static void Send(LogStatement const& statement)
    {
        try
        {
            syslog(PriorityOf(statement.severity), "%s: %s", statement.function ? statement.function : "?",
                   OneLine(statement.message).c_str());
        }
        catch (std::exception const&)
        {
            syslog(LOG_CRIT, "no memory for a log statement");
        }
    }

    Connection connection;
    SubscriptionForLogCallbacks log; // ends first
};

} // namespace

int main(int argc, char** argv)
{
    std::span<char*> arguments(argv + 1, argv + argc);
    int options = LOG_PID;
    VokLogSeverity severity = VokLogSeverity::info;
    for (; !arguments.empty(); arguments = arguments.subspan(1))
        if (arguments[0] == std::string_view("--stderr"))
            options |= LOG_PERROR;
        else if (arguments[0] == std::string_view("--trace"))
            severity = VokLogSeverity::trace;
        else
            break;
    if (auto const code = EndWithUsage(argv[0], arguments, 1, SIZE_MAX, "[--stderr] [--trace] FILE..."))
        return *code;
    try
    {
        SyslogOutput const output("LogToSyslog", options, severity);
        return CountLines(std::vector<Path>(arguments.begin(), arguments.end())) ? 0 : 1;
    }
    catch (std::exception const& exception)
    {
        std::fprintf(stderr, "failed: %s\n", exception.what());
        return 1;
    }
}
