// What benchmarks of files share: a directory of their own, also behind drive T, gone at the end.
// VOK_BENCHMARK_DIRECTORY names the directory that it is made in (the temporary directory otherwise), so that file
// systems can be compared.
#pragma once

#include <Brindle/Vok/PlatformHost.h>

#include <cstdlib>
#include <filesystem>
#include <stdlib.h>
#include <string>

inline void Check(bool ok)
{
    if (!ok)
        std::abort();
}

class Workplace
{
public:
    Workplace()
    {
        char const* const given = std::getenv("VOK_BENCHMARK_DIRECTORY");
        std::filesystem::path const parent = given ? given : std::filesystem::temp_directory_path();
        std::string pattern = (parent / "VokBenchmark.XXXXXX").string();
        Check(::mkdtemp(pattern.data()) != nullptr && Brindle::Vok::Platform::MapDrive(L'T', pattern));
        directory = pattern;
    }
    Workplace(Workplace const&) = delete;
    Workplace& operator=(Workplace const&) = delete;
    ~Workplace()
    {
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }

    std::string directory;
};

/// The host's path of a name in it.
inline std::string HostPath(std::string const& name)
{
    static Workplace const workplace;
    return workplace.directory + '/' + name;
}
