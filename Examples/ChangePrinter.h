// Prints the changes in directories, each with its time and kind, for as long as it lives.
#pragma once

#include <Brindle/Vok/DirectoryMonitor.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <vector>

class ChangePrinter
{
public:
    /// Throws if a directory can't be watched.
    explicit ChangePrinter(std::vector<Brindle::Vok::Path> const& directories)
        : monitor(Brindle::Vok::MakeDirectoryMonitorFactory()->MakeDirectoryMonitor(directories, Print))
    {
    }

private:
    // Runs on the monitor's thread.
    static void Print(Brindle::Vok::DirectoryChange const& change)
    {
        auto const now = std::chrono::system_clock::now();
        std::time_t const seconds = std::chrono::system_clock::to_time_t(now);
        auto const micros = std::chrono::duration_cast<std::chrono::microseconds>(now.time_since_epoch()).count();
        std::tm local{};
        localtime_r(&seconds, &local);
        char time[16];
        std::strftime(time, sizeof time, "%H:%M:%S", &local);
        std::printf("%s.%06d %-14ls %s\n", time, static_cast<int>(micros % 1'000'000), ToString(change.action).c_str(),
                    change.path.ToStringA().c_str());
        std::fflush(stdout);
    }

    std::unique_ptr<Brindle::Vok::DirectoryMonitor> monitor;
};
