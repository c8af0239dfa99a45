// Collects the statements of the log channel for the tests to look at.
#pragma once

#include <Brindle/Vok/Log.h>

#include <mutex>
#include <string>
#include <vector>

namespace Brindle::Vok::Testing
{

class LogRecorder
{
public:
    explicit LogRecorder(VokLogSeverity severity = VokLogSeverity::trace)
        : subscription([this](LogStatement const& statement) { Add(statement); }, severity)
    {
    }

    std::vector<LogStatement> Statements() const
    {
        std::lock_guard lock(mutex);
        return statements;
    }

    /// "severity: message" of each statement.
    std::vector<std::string> Lines() const
    {
        std::vector<std::string> lines;
        for (LogStatement const& statement : Statements())
            lines.push_back(ToStringA(statement.severity) + ": " + statement.message);
        return lines;
    }

    /// "function: message" of each statement.
    std::vector<std::string> LinesWithFunction() const
    {
        std::vector<std::string> lines;
        for (LogStatement const& statement : Statements())
            lines.push_back(std::string(statement.function) + ": " + statement.message);
        return lines;
    }

private:
    void Add(LogStatement const& statement)
    {
        std::lock_guard lock(mutex);
        statements.push_back(statement);
    }

    mutable std::mutex mutex;
    std::vector<LogStatement> statements;
    SubscriptionForLogCallbacks subscription;
};

} // namespace Brindle::Vok::Testing
