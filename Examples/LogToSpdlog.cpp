// Hands all log statements of the process to spdlog, with their function and their place in the source, here for a file
// that is begun anew at a MiB, three old ones kept. A component counts the lines of files and logs that:
//
//     LogToSpdlog LOG FILE...
#include "Arguments.h"
#include "LineCounter.h"
#include "OneLine.h"

#include <Brindle/Vok/Log.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <memory>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#include <vector>

using namespace Brindle::Vok;

namespace
{

spdlog::level::level_enum LevelOf(VokLogSeverity severity)
{
    switch (severity)
    {
    case VokLogSeverity::critical:
        return spdlog::level::critical;
    case VokLogSeverity::error:
        return spdlog::level::err;
    case VokLogSeverity::warning:
        return spdlog::level::warn;
    case VokLogSeverity::info:
        return spdlog::level::info;
    case VokLogSeverity::trace:
        return spdlog::level::trace;
    }
    return severity < VokLogSeverity::critical ? spdlog::level::critical : spdlog::level::trace;
}

/// Subscribes a logger for as long as the subscription lives, for what its level lets through now: a statement that
/// it would drop isn't even formatted.
SubscriptionForLogCallbacks Subscribe(std::shared_ptr<spdlog::logger> logger)
{
    auto severity = VokLogSeverity::critical;
    for (auto each : {VokLogSeverity::error, VokLogSeverity::warning, VokLogSeverity::info, VokLogSeverity::trace})
        if (logger->should_log(LevelOf(each)))
            severity = each;
    // Runs on the thread that logs, on several at a time, so the logger's sinks must be those that end in _mt. It must
    // not throw; spdlog doesn't, but the text takes memory.
    auto const send = [logger = std::move(logger)](LogStatement const& statement)
    {
        try
        {
            spdlog::source_loc const place(statement.file, statement.line,
                                           statement.function ? statement.function : "?");
            logger->log(place, LevelOf(statement.severity), spdlog::string_view_t(OneLine(statement.message)));
        }
        catch (std::exception const&)
        {
            logger->log(spdlog::level::critical, spdlog::string_view_t("no memory for a log statement"));
        }
    };
    return {send, severity};
}

} // namespace

int main(int argc, char** argv)
{
    if (auto const code = EndWithUsage(argv[0], {argv + 1, argv + argc}, 2, SIZE_MAX, "LOG FILE..."))
        return *code;
    try
    {
        auto const logger = spdlog::rotating_logger_mt("LogToSpdlog", argv[1], std::size_t{1} << 20, 3);
        logger->set_level(spdlog::level::trace);
        logger->set_pattern("%Y-%m-%d %H:%M:%S.%f %-8l %!: %v (%s:%#)");
        logger->flush_on(spdlog::level::err);
        auto const subscription = Subscribe(logger);
        return CountLines(std::vector<Path>(argv + 2, argv + argc)) ? 0 : 1;
    }
    catch (std::exception const& exception)
    {
        std::fprintf(stderr, "failed: %s\n", exception.what());
        return 1;
    }
}
