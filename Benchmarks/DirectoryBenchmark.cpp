// Walking a directory and asking what is at a path with the first generation, listing one with sizes and deleting a
// tree with the second one (whose deletion both share), beside the standard library, Boost and Qt with the same
// questions on the same entries.
//
// What rows need is made when the first of them runs; for the deletions that is 1.4 million files.
//
// Rows of listings tell the time that passes for one entry (`each`), since a second thread may help with large
// directories, on a second processor; under `taskset -c 0` there is none. One entry in a hundred is a directory. The
// second generation's objects give no times, though each record that they are made of has them; VokSearch takes sizes
// and times. For the attributes the peers ask for the status by the entry's path, since nothing that came with the
// entry holds permissions. For the kind, Std and Qt look at what came with the entry, which costs no system call, while
// Boost and StdStatusByPath, which is std::filesystem::is_directory by the entry's path, ask the disk.
//
// A deletion's row times pairs of equal trees, one deleted by us and one by std::filesystem::remove_all, each first in
// turn, and tells the medians in milliseconds and the median and quartiles of the pairs' ratios. Some file systems are
// slow at making files for a while after many were deleted, so that all trees of all rows are made before the first
// deletion: don't interleave rows at random.
#include <Brindle/Vok/FileSystem.h>
#include <Brindle/Vok/FileSystemV2.h>
#include <Brindle/Vok/FormatString.h>

#include "Workplace.h"

#include <QDateTime>
#include <QDirIterator>
#include <benchmark/benchmark.h>
#include <boost/filesystem.hpp>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace Brindle::Vok;

namespace
{

/// The same place by its name from the host's root, so that our paths are as long as the peers'.
Path VokPath(std::string const& hostPath)
{
    std::wstring text = L"C:" + Utf8ToWide(hostPath);
    std::replace(text.begin(), text.end(), L'/', L'\\');
    return text;
}

std::shared_ptr<FileSystem> const& Service()
{
    static std::shared_ptr<FileSystem> const service = MakeFileSystem();
    return service;
}

/// A directory under construction, through its descriptor.
class Builder
{
public:
    explicit Builder(std::string const& path) : Builder(AT_FDCWD, path) {}
    Builder(Builder const&) = delete;
    Builder& operator=(Builder const&) = delete;
    ~Builder() { ::close(descriptor); }

    Builder AddDirectory(std::string const& name) const { return {descriptor, name}; }
    void AddFile(std::string const& name, std::string const& content) const
    {
        int const file = ::openat(descriptor, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        Check(file >= 0);
        if (!content.empty())
            Check(::write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
        ::close(file);
    }
    void AddFiles(int count, int size = 0) const
    {
        std::string const content(static_cast<std::size_t>(size), 'x');
        for (int i = 0; i < count; ++i)
            AddFile("file" + std::to_string(100'000 + i) + ".txt", content);
    }
    /// Writes out whatever waits, so that it isn't done within what is measured.
    void Sync() const { ::syncfs(descriptor); }

private:
    Builder(int parent, std::string const& name)
    {
        Check(::mkdirat(parent, name.c_str(), 0755) == 0);
        descriptor = ::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        Check(descriptor >= 0);
    }

    int descriptor = -1;
};

// Walking

/// A directory to walk, as each of the peers names it.
struct Listing
{
    explicit Listing(int count)
        : count(count), host(HostPath("list" + std::to_string(count))), vok(VokPath(host)), boost(host),
          qt(QString::fromStdString(host))
    {
        Builder const builder(host);
        for (int i = 1; i <= count; ++i)
        {
            if (i % 100 == 0)
                (void)builder.AddDirectory("directory" + std::to_string(1'000'000 + i));
            else
                builder.AddFile("file" + std::to_string(1'000'000 + i) + ".txt", {});
        }
        builder.Sync();
    }

    int All() const { return count; }
    int Directories() const { return count / 100; }
    int Files() const { return count - Directories(); }

    int count;
    std::string host;
    Path vok;
    boost::filesystem::path boost;
    QString qt;
};

Listing const& ListingOf(int count)
{
    static std::map<int, Listing> listings;
    return listings.try_emplace(count, count).first->second;
}

// Each walks a directory and counts the entries that it is told to.

template <class IsCounted>
int CountVok(Listing const& listing, FileSystemIterateType type, IsCounted isCounted)
{
    int counted = 0;
    for (FileSystemIterator entry(Service(), listing.vok, type); entry != std::default_sentinel; ++entry)
        counted += isCounted(*entry);
    return counted;
}

template <class IsCounted>
int CountStd(Listing const& listing, IsCounted isCounted)
{
    int counted = 0;
    for (std::filesystem::directory_entry const& entry : std::filesystem::directory_iterator(listing.host))
        counted += isCounted(entry);
    return counted;
}

template <class IsCounted>
int CountBoost(Listing const& listing, IsCounted isCounted)
{
    int counted = 0;
    for (boost::filesystem::directory_entry const& entry : boost::filesystem::directory_iterator(listing.boost))
        counted += isCounted(entry);
    return counted;
}

template <class IsCounted>
int CountQt(Listing const& listing, QDir::Filters kinds, IsCounted isCounted)
{
    int counted = 0;
    for (QDirIterator entries(listing.qt, kinds | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
         entries.hasNext();)
    {
        entries.next();
        counted += isCounted(entries);
    }
    return counted;
}

template <class Path>
bool TakeName(Path const& path)
{
    benchmark::DoNotOptimize(path.native().data());
    return true;
}

bool TakeName(Brindle::Vok::Path const& path)
{
    benchmark::DoNotOptimize(path.ToString().data());
    return true;
}

template <class Status, class Permissions>
bool TakeAttributes(Status const& status, Permissions permissions)
{
    benchmark::DoNotOptimize(is_directory(status));
    benchmark::DoNotOptimize(permissions);
    return exists(status);
}

bool TakeVokName(PathInfo& entry)
{
    benchmark::DoNotOptimize(entry.ToString().data());
    return true;
}

bool TakeVokAttributes(PathInfo& entry)
{
    benchmark::DoNotOptimize(entry.IsDirectory());
    benchmark::DoNotOptimize(entry.Attributes());
    return entry.Exists();
}

bool TakeQtName(QDirIterator const& entries)
{
    benchmark::DoNotOptimize(entries.filePath().constData());
    return true;
}

bool TakeQtAttributes(QDirIterator const& entries)
{
    QFileInfo const info = entries.fileInfo();
    benchmark::DoNotOptimize(info.isDir());
    benchmark::DoNotOptimize(info.permission(QFile::WriteOwner | QFile::WriteGroup | QFile::WriteOther));
    return info.exists();
}

struct Walker
{
    char const* name;
    int (*walk)(Listing const&);
    int (Listing::*expected)() const;
};

using StdEntry = std::filesystem::directory_entry;
using BoostEntry = boost::filesystem::directory_entry;

// Sizes and times. The second generation lists objects that know their sizes; the record that each is made of has the
// times too, which the plain search takes. The peers ask the disk by each entry's path.

int CountV2(Listing const& listing)
{
    static std::shared_ptr<V2::IFileSystem> const service = V2::MakeFileSystem();
    int counted = 0;
    for (std::shared_ptr<V2::IPathInfo> const& entry : service->MakeDirectory(listing.vok)->PathInfos(L"*"))
    {
        std::uint64_t const size = entry->IsFile() ? static_cast<V2::IFile&>(*entry).Size() : 0;
        benchmark::DoNotOptimize(size);
        counted += TakeName(entry->Path());
    }
    return counted;
}

int CountSearch(Listing const& listing)
{
    WIN32_FIND_DATAW record;
    HandleOwner<Detail::FindHandleTraits> const search(
        FindFirstFileW(Path::Join(listing.vok, L"*").ToString().c_str(), &record));
    Check(search.IsValid());
    int counted = 0;
    do
    {
        std::wstring_view const name = record.cFileName;
        benchmark::DoNotOptimize(record.nFileSizeLow);
        benchmark::DoNotOptimize(record.ftLastWriteTime);
        counted += name != L"." && name != L"..";
    } while (FindNextFileW(search.Get(), &record));
    return counted;
}

template <class Entry>
bool TakeStdSizeAndTime(Entry const& entry)
{
    benchmark::DoNotOptimize(entry.is_regular_file() ? entry.file_size() : 0);
    benchmark::DoNotOptimize(entry.last_write_time());
    return TakeName(entry.path());
}

template <class Entry>
bool TakeBoostSizeAndTime(Entry const& entry)
{
    benchmark::DoNotOptimize(is_regular_file(entry.status()) ? file_size(entry.path()) : 0);
    benchmark::DoNotOptimize(last_write_time(entry.path()));
    return TakeName(entry.path());
}

bool TakeQtSizeAndTime(QDirIterator const& entries)
{
    QFileInfo const info = entries.fileInfo();
    benchmark::DoNotOptimize(info.size());
    benchmark::DoNotOptimize(info.lastModified());
    return TakeQtName(entries);
}

constexpr Walker walkers[] = {
    {"SizeAndTime/VokV2", CountV2, &Listing::All},
    {"SizeAndTime/VokSearch", CountSearch, &Listing::All},
    {"SizeAndTime/Std", [](Listing const& listing) { return CountStd(listing, TakeStdSizeAndTime<StdEntry>); },
     &Listing::All},
    {"SizeAndTime/Boost", [](Listing const& listing) { return CountBoost(listing, TakeBoostSizeAndTime<BoostEntry>); },
     &Listing::All},
    {"SizeAndTime/Qt", [](Listing const& listing) { return CountQt(listing, QDir::AllEntries, TakeQtSizeAndTime); },
     &Listing::All},

    {"Names/Vok", [](Listing const& listing) { return CountVok(listing, FileSystemIterateType::All, TakeVokName); },
     &Listing::All},
    {"Names/Std",
     [](Listing const& listing)
     { return CountStd(listing, [](StdEntry const& entry) { return TakeName(entry.path()); }); },
     &Listing::All},
    {"Names/Boost",
     [](Listing const& listing)
     { return CountBoost(listing, [](BoostEntry const& entry) { return TakeName(entry.path()); }); },
     &Listing::All},
    {"Names/Qt", [](Listing const& listing) { return CountQt(listing, QDir::AllEntries, TakeQtName); }, &Listing::All},

    {"Attributes/Vok",
     [](Listing const& listing) { return CountVok(listing, FileSystemIterateType::All, TakeVokAttributes); },
     &Listing::All},
    {"Attributes/Std",
     [](Listing const& listing)
     {
         return CountStd(listing,
                         [](StdEntry const& entry)
                         {
                             auto const status = std::filesystem::status(entry.path());
                             return TakeAttributes(status, status.permissions());
                         });
     },
     &Listing::All},
    {"Attributes/Boost",
     [](Listing const& listing)
     {
         return CountBoost(listing,
                           [](BoostEntry const& entry)
                           {
                               auto const status = boost::filesystem::status(entry.path());
                               return TakeAttributes(status, status.permissions());
                           });
     },
     &Listing::All},
    {"Attributes/Qt", [](Listing const& listing) { return CountQt(listing, QDir::AllEntries, TakeQtAttributes); },
     &Listing::All},

    {"Files/Vok", [](Listing const& listing) { return CountVok(listing, FileSystemIterateType::Files, TakeVokName); },
     &Listing::Files},
    {"Files/Std",
     [](Listing const& listing) {
         return CountStd(listing,
                         [](StdEntry const& entry) { return entry.is_regular_file() && TakeName(entry.path()); });
     },
     &Listing::Files},
    {"Files/StdStatusByPath",
     [](Listing const& listing)
     {
         return CountStd(listing, [](StdEntry const& entry)
                         { return !std::filesystem::is_directory(entry.path()) && TakeName(entry.path()); });
     },
     &Listing::Files},
    {"Files/Boost",
     [](Listing const& listing)
     {
         return CountBoost(listing, [](BoostEntry const& entry)
                           { return is_regular_file(entry.status()) && TakeName(entry.path()); });
     },
     &Listing::Files},
    {"Files/Qt", [](Listing const& listing) { return CountQt(listing, QDir::Files, TakeQtName); }, &Listing::Files},

    {"Directories/Vok",
     [](Listing const& listing) { return CountVok(listing, FileSystemIterateType::Directories, TakeVokName); },
     &Listing::Directories},
    {"Directories/Std",
     [](Listing const& listing) {
         return CountStd(listing, [](StdEntry const& entry) { return entry.is_directory() && TakeName(entry.path()); });
     },
     &Listing::Directories},
    {"Directories/StdStatusByPath",
     [](Listing const& listing)
     {
         return CountStd(listing, [](StdEntry const& entry)
                         { return std::filesystem::is_directory(entry.path()) && TakeName(entry.path()); });
     },
     &Listing::Directories},
    {"Directories/Boost",
     [](Listing const& listing)
     {
         return CountBoost(listing, [](BoostEntry const& entry)
                           { return is_directory(entry.status()) && TakeName(entry.path()); });
     },
     &Listing::Directories},
    {"Directories/Qt", [](Listing const& listing) { return CountQt(listing, QDir::Dirs, TakeQtName); },
     &Listing::Directories},
};

void Walk(benchmark::State& state, Walker const& walker)
{
    Listing const& listing = ListingOf(static_cast<int>(state.range(0)));
    for (auto _ : state)
        Check(walker.walk(listing) == (listing.*walker.expected)());
    state.SetItemsProcessed(state.iterations() * listing.count);
    state.counters["each"] =
        benchmark::Counter(listing.count, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// One question

/// Places to ask about: a file, a directory, and a name that isn't there.
std::string const& Asked(std::string const& name)
{
    static std::string const directory = HostPath("asked");
    static bool const made = []
    {
        Builder const builder(directory);
        builder.AddFile("file.txt", {});
        (void)builder.AddDirectory("directory");
        return true;
    }();
    static std::map<std::string, std::string> paths;
    Check(made);
    return paths.try_emplace(name, directory + '/' + name).first->second;
}

void VokQuestion(benchmark::State& state, std::string const& name)
{
    PathInfo info = Service()->MakePathInfo(VokPath(Asked(name)));
    for (auto _ : state)
    {
        info.Refresh();
        benchmark::DoNotOptimize(info.Exists());
    }
}

void VokQuestionOnMappedDrive(benchmark::State& state, std::string const& name)
{
    Asked(name);
    PathInfo info = Service()->MakePathInfo(L"T:\\asked\\" + Utf8ToWide(name));
    for (auto _ : state)
    {
        info.Refresh();
        benchmark::DoNotOptimize(info.Exists());
    }
}

void StdQuestion(benchmark::State& state, std::string const& name)
{
    std::filesystem::path const path = Asked(name);
    for (auto _ : state)
        benchmark::DoNotOptimize(exists(std::filesystem::status(path)));
}

void PlainQuestion(benchmark::State& state, std::string const& name)
{
    std::string const& path = Asked(name);
    for (auto _ : state)
    {
        struct stat status;
        benchmark::DoNotOptimize(::stat(path.c_str(), &status));
    }
}

// Deleting

constexpr int pairs = 9;
constexpr int filesOfTree = 20'000;

struct Shape
{
    char const* name;
    int breadth; ///< directories beside each other
    int depth;   ///< directories within each other, in each of those
    int size;    ///< of a file, in bytes
};

constexpr Shape shapes[] = {
    {"100Directories", 100, 1, 0},
    {"OneDirectory", 1, 1, 0},
    {"20Deep", 1, 20, 0},
    {"100DirectoriesOf1000Bytes", 100, 1, 1000},
};

void Build(Builder const& parent, Shape const& shape, int depth)
{
    parent.AddFiles(filesOfTree / shape.breadth / shape.depth, shape.size);
    if (depth < shape.depth)
        Build(parent.AddDirectory("deeper"), shape, depth + 1);
}

std::string TreeName(Shape const& shape, int tree)
{
    return shape.name + std::to_string(tree);
}

/// All trees of all shapes, two for each pair, and on the disk.
void BuildForest()
{
    for (Shape const& shape : shapes)
    {
        for (int tree = 0; tree < 2 * pairs; ++tree)
        {
            Builder const root(HostPath(TreeName(shape, tree)));
            if (shape.breadth == 1)
                Build(root, shape, 1);
            else
                for (int i = 0; i < shape.breadth; ++i)
                    Build(root.AddDirectory("directory" + std::to_string(100 + i)), shape, 1);
            root.Sync();
        }
    }
}

double Milliseconds(auto const& action)
{
    auto const begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
}

double DeleteByVok(std::string const& name)
{
    auto const directory = V2::MakeFileSystem()->MakeDirectory(L"T:\\" + Utf8ToWide(name));
    return Milliseconds([&] { Check(directory->Delete()); });
}

double DeleteByStd(std::string const& name)
{
    std::filesystem::path const path = HostPath(name);
    return Milliseconds([&] { Check(std::filesystem::remove_all(path) > filesOfTree); });
}

double Quartile(std::vector<double> values, std::size_t quarters)
{
    std::sort(values.begin(), values.end());
    return values[values.size() * quarters / 4];
}

void Delete(benchmark::State& state, Shape const& shape)
{
    static bool const isBuilt = (BuildForest(), true);
    Check(isBuilt);
    std::vector<double> ours;
    std::vector<double> theirs;
    std::vector<double> ratios;
    for (auto _ : state)
    {
        for (int pair = 0; pair < pairs; ++pair)
        {
            bool const oursFirst = pair % 2 == 0;
            if (oursFirst)
                ours.push_back(DeleteByVok(TreeName(shape, 2 * pair)));
            theirs.push_back(DeleteByStd(TreeName(shape, 2 * pair + oursFirst)));
            if (!oursFirst)
                ours.push_back(DeleteByVok(TreeName(shape, 2 * pair + 1)));
            ratios.push_back(ours.back() / theirs.back());
        }
        state.SetIterationTime(Quartile(ours, 2) / 1000);
    }
    state.counters["vok_ms"] = Quartile(ours, 2);
    state.counters["std_ms"] = Quartile(theirs, 2);
    state.counters["ratio"] = Quartile(ratios, 2);
    state.counters["ratio_low"] = Quartile(ratios, 1);
    state.counters["ratio_high"] = Quartile(ratios, 3);
}

[[maybe_unused]] bool const isRegistered = []
{
    for (int const count : {100, 10'000, 100'000, 1'000'000})
        for (Walker const& walker : walkers)
            benchmark::RegisterBenchmark((std::string("List/") + walker.name).c_str(), Walk, walker)
                ->Arg(count)
                ->UseRealTime()
                ->Unit(benchmark::kMicrosecond);
    for (std::string const name : {"file.txt", "directory", "missing"})
    {
        benchmark::RegisterBenchmark(("Question/Vok/" + name).c_str(), VokQuestion, name);
        benchmark::RegisterBenchmark(("Question/VokOnMappedDrive/" + name).c_str(), VokQuestionOnMappedDrive, name);
        benchmark::RegisterBenchmark(("Question/Std/" + name).c_str(), StdQuestion, name);
        benchmark::RegisterBenchmark(("Question/Stat/" + name).c_str(), PlainQuestion, name);
    }
    for (Shape const& shape : shapes)
        benchmark::RegisterBenchmark((std::string("Delete/") + shape.name).c_str(), Delete, shape)
            ->Iterations(1)
            ->Repetitions(1) // its trees are gone then
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    return true;
}();

} // namespace
