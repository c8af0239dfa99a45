// Whom a thread acts as, as the kernel tells it: not from any bookkeeping of the stand-in.
//
//     KernelIdentity const before;
//     …
//     EXPECT_EQ(KernelIdentity(), before);
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <ostream>
#include <string>
#include <unistd.h>

namespace Brindle::Vok::Testing
{

struct KernelIdentity
{
    /// Of the calling thread.
    KernelIdentity()
    {
        std::ifstream file("/proc/thread-self/status");
        for (std::string line; std::getline(file, line);)
            for (char const* const name : {"Uid:", "Gid:", "Groups:", "CapEff:", "CapPrm:", "CapAmb:"})
            {
                text += line.starts_with(name) ? line + '\n' : "";
            }
    }

    bool Has(std::string const& line) const { return text.find(line + '\n') != std::string::npos; }

    bool operator==(KernelIdentity const&) const = default;

    std::string text;
    unsigned user = ::geteuid();
};

inline void PrintTo(KernelIdentity const& identity, std::ostream* stream)
{
    *stream << identity.text;
}

} // namespace Brindle::Vok::Testing

/// Ends a test that only the superuser can run.
#define VOK_NEEDS_SUPERUSER()                                                                                          \
    if (::geteuid() != 0)                                                                                              \
    GTEST_SKIP() << "only the superuser may become others"
