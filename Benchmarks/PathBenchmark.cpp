// Taking paths to pieces, normalising, joining and comparing them, beside the path types of Qt, Boost, Poco and the
// standard library. Every subject has the same paths in its own string type and its own syntax: what is C:\a\b here is
// /c/a/b there, so the lengths are equal. A row's work is the same for each:
//
//     Parse          a text into a path; then directory, name without extension, and extension, as strings or paths
//     Normalise      a path with `.`, `..` and doubled separators into a new one without
//     AlreadyNormal  the same for a path that needs no change
//     Join           a directory and a name into a third path
//     Equal          whether two equal paths are the same once they are normalised; without case where the peer can
//     Order          which of two texts that differ at the end comes first; without case where the peer can
//
// Qt has no type of its own for a path without a disk behind it: its row is QFileInfo, QDir and QString. Poco's path
// normalises when it is made of a text. Boost and the standard library compare with case, which is less work.
#include <Brindle/Vok/Path.h>

#include <Poco/Path.h>
#include <Poco/String.h>
#include <QDir>
#include <QFileInfo>
#include <QString>
#include <benchmark/benchmark.h>
#include <boost/filesystem/path.hpp>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace
{

char const* const plainDirectories[] = {
    R"(C:\Windows\System32\drivers\etc)",
    R"(C:\Users\build\source\Brindle\Vok\Source)",
    R"(C:\Program Files\Vendor\Product\7.4\bin)",
    R"(C:\t)",
    R"(C:\Users\someone\AppData\Local\Temp\{6BA7B810-9DAD-11D1-80B4-00C04FD430C8})",
    R"(C:\data\2024\02\29\measurements\station-0017\raw)",
    R"(C:\srv\share\projects\long-running-project-name\design\documents\review)",
    R"(C:\a\b\c\d\e\f\g\h\i\j)",
};

char const* const crookedDirectories[] = {
    R"(C:\Windows\System32\drivers\..\etc\.)",
    R"(C:\Users\build\source\Brindle\\Vok\Source\..\..\Include)",
    R"(C:\Program Files\Vendor\.\Product\7.4\bin\..\..\7.5\bin)",
    R"(C:\t\..\t)",
    R"(C:\Users\someone\AppData\Local\Temp\\{6BA7B810-9DAD-11D1-80B4-00C04FD430C8})",
    R"(C:\data\2024\02\29\..\..\03\01\measurements\station-0017\raw)",
    R"(C:\srv\share\projects\long-running-project-name\design\documents\review\..)",
    R"(C:\a\.\b\c\..\d\e\\f\g\..\..\h\i\j)",
};

char const* const names[] = {
    "hosts.txt",
    "PathDecomposition.cpp",
    "service.exe",
    "a.log",
    "archive.tar.gz",
    "sensor-3.csv",
    "minutes.docx",
    "k.x",
    "README.md",
    "index.html",
    "2024-02-29-backup.sqlite",
    "Makefile.in",
};

/// Each name in each directory, shuffled.
std::vector<std::string> Combined(std::span<char const* const> directories)
{
    std::vector<std::string> paths;
    for (std::string const directory : directories)
    {
        for (char const* name : names)
            paths.push_back(directory + '\\' + name);
    }
    std::shuffle(paths.begin(), paths.end(), std::minstd_rand(7));
    return paths;
}

std::vector<std::string> const plainPaths = Combined(plainDirectories);
std::vector<std::string> const crookedPaths = Combined(crookedDirectories);
std::string const joinedName = "some-file-name.txt";

/// The same path in the peers' syntax.
std::string Foreign(std::string text)
{
    if (text.starts_with("C:"))
        text.replace(0, 2, "/c");
    std::replace(text.begin(), text.end(), '\\', '/');
    return text;
}

struct Ours
{
    using Text = std::wstring;
    using Path = Brindle::Vok::Path;
    static Text MakeText(std::string const& text) { return Path(text).ToString(); }
    static Path MakePath(Text const& text) { return text; }
    static Path MakeDirectory(Text const& text) { return text; }

    static void Parse(Text const& text)
    {
        Path const path(text);
        benchmark::DoNotOptimize(path.DriveAndDirectory());
        benchmark::DoNotOptimize(path.NameWithoutExtension());
        benchmark::DoNotOptimize(path.ExtensionWithDot());
    }
    static auto Normalise(Path const& path) { return path.Normalized(); }
    static auto Join(Path const& directory, Path const& name) { return Path::Join(directory, name); }
    static bool Equal(Path const& a, Path const& b) { return a == b; }
    static bool Order(Path const& a, Path const& b) { return a < b; }
};

struct QtLibrary
{
    using Text = QString;
    using Path = QString;
    static Text MakeText(std::string const& text) { return QString::fromStdString(Foreign(text)); }
    static Path MakePath(Text const& text) { return text; }
    static QDir MakeDirectory(Text const& text) { return QDir(text); }

    static void Parse(Text const& text)
    {
        QFileInfo const path(text);
        benchmark::DoNotOptimize(path.path());
        benchmark::DoNotOptimize(path.completeBaseName());
        benchmark::DoNotOptimize(path.suffix());
    }
    static auto Normalise(Path const& path) { return QDir::cleanPath(path); }
    static auto Join(QDir const& directory, Path const& name) { return directory.filePath(name); }
    static bool Equal(Path const& a, Path const& b)
    {
        return QDir::cleanPath(a).compare(QDir::cleanPath(b), Qt::CaseInsensitive) == 0;
    }
    static bool Order(Path const& a, Path const& b) { return a.compare(b, Qt::CaseInsensitive) < 0; }
};

/// Boost's path and the standard one have the same interface.
template <class PathType>
struct Standard
{
    using Text = std::string;
    using Path = PathType;
    static Text MakeText(std::string const& text) { return Foreign(text); }
    static Path MakePath(Text const& text) { return text; }
    static Path MakeDirectory(Text const& text) { return text; }

    static void Parse(Text const& text)
    {
        Path const path(text);
        benchmark::DoNotOptimize(path.parent_path());
        benchmark::DoNotOptimize(path.stem());
        benchmark::DoNotOptimize(path.extension());
    }
    static auto Normalise(Path const& path) { return path.lexically_normal(); }
    static auto Join(Path const& directory, Path const& name) { return directory / name; }
    static bool Equal(Path const& a, Path const& b) { return a.lexically_normal() == b.lexically_normal(); }
    static bool Order(Path const& a, Path const& b) { return a < b; }
};

struct PocoLibrary
{
    using Text = std::string;
    using Path = std::string;
    static Text MakeText(std::string const& text) { return Foreign(text); }
    static Path MakePath(Text const& text) { return text; }
    static Poco::Path MakeDirectory(Text const& text) { return Poco::Path(text).makeDirectory(); }

    static void Parse(Text const& text)
    {
        Poco::Path const path(text);
        benchmark::DoNotOptimize(path.parent().toString());
        benchmark::DoNotOptimize(path.getBaseName());
        benchmark::DoNotOptimize(path.getExtension());
    }
    static auto Normalise(Path const& path) { return Poco::Path(path).toString(); }
    static auto Join(Poco::Path const& directory, Path const& name) { return Poco::Path(directory, name); }
    static bool Equal(Path const& a, Path const& b)
    {
        return Poco::icompare(Poco::Path(a).toString(), Poco::Path(b).toString()) == 0;
    }
    static bool Order(Path const& a, Path const& b) { return Poco::icompare(a, b) < 0; }
};

/// Runs an operation over what was made of each text beforehand.
template <class Make, class Run>
void RunOverAll(benchmark::State& state, std::vector<std::string> const& texts, Make const& make, Run const& run)
{
    std::vector<decltype(make(std::string()))> prepared;
    for (std::string const& text : texts)
        prepared.push_back(make(text));
    for (auto _ : state)
    {
        for (auto const& each : prepared)
            run(each);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(texts.size()));
}

template <class Subject>
auto MakePath(std::string const& text)
{
    return Subject::MakePath(Subject::MakeText(text));
}

template <class Subject>
void Parse(benchmark::State& state)
{
    RunOverAll(state, plainPaths, Subject::MakeText, [](auto const& text) { Subject::Parse(text); });
}

template <class Subject>
void Normalise(benchmark::State& state)
{
    RunOverAll(state, crookedPaths, MakePath<Subject>,
               [](auto const& path) { benchmark::DoNotOptimize(Subject::Normalise(path)); });
}

template <class Subject>
void AlreadyNormal(benchmark::State& state)
{
    RunOverAll(state, plainPaths, MakePath<Subject>,
               [](auto const& path) { benchmark::DoNotOptimize(Subject::Normalise(path)); });
}

template <class Subject>
void Join(benchmark::State& state)
{
    auto const name = MakePath<Subject>(joinedName);
    RunOverAll(
        state, plainPaths, [](std::string const& text) { return Subject::MakeDirectory(Subject::MakeText(text)); },
        [&name](auto const& directory) { benchmark::DoNotOptimize(Subject::Join(directory, name)); });
}

template <class Subject>
void Compare(benchmark::State& state, std::optional<char> lastOfOther,
             bool (*compare)(typename Subject::Path const&, typename Subject::Path const&))
{
    auto const makePair = [lastOfOther](std::string text)
    {
        auto const path = MakePath<Subject>(text);
        text.back() = lastOfOther.value_or(text.back());
        return std::pair(path, MakePath<Subject>(text));
    };
    RunOverAll(state, plainPaths, makePair,
               [compare](auto const& pair) { benchmark::DoNotOptimize(compare(pair.first, pair.second)); });
}

template <class Subject>
void Equal(benchmark::State& state)
{
    Compare<Subject>(state, std::nullopt, Subject::Equal);
}

template <class Subject>
void Order(benchmark::State& state)
{
    Compare<Subject>(state, '#', Subject::Order);
}

using Boost = Standard<boost::filesystem::path>;
using Std = Standard<std::filesystem::path>;

} // namespace

#define COMPARE_SUBJECTS(row)                                                                                          \
    BENCHMARK_TEMPLATE(row, Ours)->Name(#row "/Vok");                                                                  \
    BENCHMARK_TEMPLATE(row, QtLibrary)->Name(#row "/Qt");                                                              \
    BENCHMARK_TEMPLATE(row, Boost)->Name(#row "/Boost");                                                               \
    BENCHMARK_TEMPLATE(row, PocoLibrary)->Name(#row "/Poco");                                                          \
    BENCHMARK_TEMPLATE(row, Std)->Name(#row "/Std")

COMPARE_SUBJECTS(Parse);
COMPARE_SUBJECTS(Normalise);
COMPARE_SUBJECTS(AlreadyNormal);
COMPARE_SUBJECTS(Join);
COMPARE_SUBJECTS(Equal);
COMPARE_SUBJECTS(Order);
