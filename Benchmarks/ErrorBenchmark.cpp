// Composing an error message, beside fmt's time for the same text; and throwing and catching, beside std::system_error
// with the same text.
#include <Brindle/Vok/Error.h>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <string>
#include <system_error>

using namespace Brindle::Vok;

namespace
{

char const* const file = "Source/Vok/FileSystem.cpp";
char const* const function = "Brindle::Vok::FileImpl::WriteAllText";
std::string const text = "WriteFile content failed [C:\\Users\\someone\\Documents\\report.txt]";
std::string const systemText = "Access is denied.";

void OursCompose(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(Detail::ComposeWindowsMessage(5, file, 123, function, text));
}
BENCHMARK(OursCompose)->Name("Compose/Vok");

void FmtCompose(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(
            fmt::format("{}({}): {} {} (Windows Error {}). {}", file, 123, function, systemText, 5U, text));
}
BENCHMARK(FmtCompose)->Name("Compose/Fmt");

[[gnu::noinline]] void OursThrow()
{
    VOK_THROW(WindowsError, 5, "failed [{}]", text);
}

void OursThrowAndCatch(benchmark::State& state)
{
    for (auto _ : state)
    {
        try
        {
            OursThrow();
        }
        catch (WindowsError const& error)
        {
            benchmark::DoNotOptimize(error.what());
        }
    }
}
BENCHMARK(OursThrowAndCatch)->Name("ThrowAndCatch/Vok");

[[gnu::noinline]] void SystemErrorThrow()
{
    throw std::system_error(
        5, std::system_category(),
        fmt::format("{}({}): {} {} (Windows Error {}). failed [{}]", file, 123, function, systemText, 5U, text));
}

void SystemErrorThrowAndCatch(benchmark::State& state)
{
    for (auto _ : state)
    {
        try
        {
            SystemErrorThrow();
        }
        catch (std::system_error const& error)
        {
            benchmark::DoNotOptimize(error.what());
        }
    }
}
BENCHMARK(SystemErrorThrowAndCatch)->Name("ThrowAndCatch/SystemErrorWithTheSameText");

[[gnu::noinline]] void BareSystemErrorThrow()
{
    throw std::system_error(5, std::system_category(), text);
}

void BareSystemErrorThrowAndCatch(benchmark::State& state)
{
    for (auto _ : state)
    {
        try
        {
            BareSystemErrorThrow();
        }
        catch (std::system_error const& error)
        {
            benchmark::DoNotOptimize(error.what());
        }
    }
}
BENCHMARK(BareSystemErrorThrowAndCatch)->Name("ThrowAndCatch/SystemErrorWithAReadyText");

} // namespace
