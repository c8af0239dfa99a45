// Writing and reading a whole file with both generations, beside plain open, write or read, and close on the same bytes
// in the same directory. The plain reader makes a fresh buffer each time, as whoever returns a text has to.
#include <Brindle/Vok/FileSystem.h>
#include <Brindle/Vok/FileSystemV2.h>

#include "Workplace.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace Brindle::Vok;

namespace
{

/// The file that all rows use, and T:\file.txt to the library.
std::string const& FilePath()
{
    static std::string const path = HostPath("file.txt");
    return path;
}

void PlainWrite(std::string const& path, std::string const& bytes)
{
    int const descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    Check(descriptor >= 0);
    Check(::write(descriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
    Check(::close(descriptor) == 0);
}

void PlainWriting(benchmark::State& state)
{
    std::string const bytes(static_cast<std::size_t>(state.range(0)), 'x');
    for (auto _ : state)
        PlainWrite(FilePath(), bytes);
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void OursWriting(benchmark::State& state)
{
    std::string const bytes(static_cast<std::size_t>(state.range(0)), 'x');
    FilePath();
    std::unique_ptr<File> const file = MakeFileSystem()->MakeFile(L"T:\\file.txt");
    for (auto _ : state)
        file->WriteAllText(bytes, TextEncoding::Utf8, ByteOrderMarkPolicy::Omit, LineEndingPolicy::Unchanged);
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void OursV2Writing(benchmark::State& state)
{
    std::vector<unsigned char> const bytes(static_cast<std::size_t>(state.range(0)), 'x');
    FilePath();
    std::unique_ptr<V2::IFile> const file = V2::MakeFileSystem()->MakeFile(L"T:\\file.txt");
    for (auto _ : state)
        file->WriteAllBytes(bytes);
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void PlainReading(benchmark::State& state)
{
    PlainWrite(FilePath(), std::string(static_cast<std::size_t>(state.range(0)), 'x'));
    for (auto _ : state)
    {
        int const descriptor = ::open(FilePath().c_str(), O_RDONLY | O_CLOEXEC);
        Check(descriptor >= 0);
        struct stat status;
        Check(::fstat(descriptor, &status) == 0);
        auto const size = static_cast<std::size_t>(status.st_size);
        auto const buffer = std::make_unique_for_overwrite<char[]>(size);
        Check(::read(descriptor, buffer.get(), size) == status.st_size);
        Check(::close(descriptor) == 0);
        benchmark::DoNotOptimize(buffer.get());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void OursReading(benchmark::State& state)
{
    PlainWrite(FilePath(), std::string(static_cast<std::size_t>(state.range(0)), 'x'));
    std::unique_ptr<File> const file = MakeFileSystem()->MakeFile(L"T:\\file.txt");
    for (auto _ : state)
        benchmark::DoNotOptimize(file->ReadAllTextA());
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

template <auto read>
void OursV2Reading(benchmark::State& state)
{
    PlainWrite(FilePath(), std::string(static_cast<std::size_t>(state.range(0)), 'x'));
    std::unique_ptr<V2::IFile> const file = V2::MakeFileSystem()->MakeFile(L"T:\\file.txt");
    for (auto _ : state)
        benchmark::DoNotOptimize(((*file).*read)());
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

[[maybe_unused]] bool const isRegistered = []
{
    struct
    {
        char const* name;
        void (*run)(benchmark::State&);
    } const rows[] = {
        {"Write/Plain", PlainWriting},
        {"Write/Vok", OursWriting},
        {"Write/VokV2", OursV2Writing},
        {"Read/Plain", PlainReading},
        {"Read/Vok", OursReading},
        {"Read/VokV2", OursV2Reading<&V2::IFile::ReadAllBytes>},
        {"Read/VokV2TextA", OursV2Reading<&V2::IFile::ReadAllTextA>},
    };
    for (auto const& row : rows)
        benchmark::RegisterBenchmark(row.name, row.run)->Arg(1 << 10)->Arg(1 << 20)->Arg(1 << 28)->UseRealTime();
    return true;
}();

} // namespace
