// What every program does with a call that it can't serve.
#pragma once

#include <cstdio>
#include <optional>
#include <span>
#include <string_view>

/// Prints the usage to standard error, and gives the exit code for it.
inline int RefuseCall(char const* program, char const* usage)
{
    std::fprintf(stderr, "usage: %s %s\n", program, usage);
    return 2;
}

/// The exit code of a call that ends here: 0 for `--help`, which prints the usage to standard output; 2 for an option
/// and for too few or too many arguments. None if the program is to go on.
inline std::optional<int> EndWithUsage(char const* program, std::span<char*> arguments, std::size_t least,
                                       std::size_t most, char const* usage)
{
    std::string_view const first = arguments.empty() ? "" : arguments[0];
    if (first == "--help" || first == "-h")
    {
        std::printf("usage: %s %s\n", program, usage);
        return 0;
    }
    if (first.starts_with('-') || arguments.size() < least || arguments.size() > most)
        return RefuseCall(program, usage);
    return {};
}
