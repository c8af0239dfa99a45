// Watches directories and prints the changes in them until Ctrl-C:
//
//     Watch DIRECTORY...        paths of the host; a relative one is below the current directory
#include "Arguments.h"
#include "ChangePrinter.h"

#include <Brindle/Vok/Log.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

using namespace Brindle::Vok;

namespace
{

/// The host's root is the drive C:.
Path OnDriveC(char const* hostPath)
{
    return Path::Join(L"C:\\", Path(std::filesystem::weakly_canonical(hostPath).relative_path().string())).Normalized();
}

int Run(std::vector<Path> const& directories)
{
    // Blocked before the monitor starts its thread, so that no thread but this one takes them.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    SubscriptionForLogCallbacks const subscription([](LogStatement const& statement)
                                                   { std::fprintf(stderr, "%s\n", statement.message.c_str()); },
                                                   VokLogSeverity::error);
    ChangePrinter const printer(directories);
    std::fprintf(stderr, "watching; Ctrl-C ends\n");
    int signal;
    sigwait(&ends, &signal);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (auto const code = EndWithUsage(argv[0], {argv + 1, argv + argc}, 1, SIZE_MAX, "DIRECTORY..."))
        return *code;
    try
    {
        std::vector<Path> directories;
        for (int i = 1; i < argc; ++i)
            directories.push_back(OnDriveC(argv[i]));
        return Run(directories);
    }
    catch (std::exception const& exception)
    {
        std::fprintf(stderr, "failed: %s\n", exception.what());
        return 1;
    }
}
