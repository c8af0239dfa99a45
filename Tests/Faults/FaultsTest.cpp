// The table of Docs/Reliability.md: each row's fault is brought about at the first call of its kind, then at the second
// one and so on until it isn't met any more, and what comes of that must be what the page says. Whatever isn't as
// before afterwards, on disk, of descriptors, handles, memory or the thread's identity, is in the last column.
//
//     VOK_WRITE_FAULTS=1 Build/release/Tests/FaultTests    # writes the page's table anew
#include "HandleTable.h"

#include "Support/Heap.h"
#include "Support/PortableExecutableBuilder.h"
#include "Support/StandIn.h"
#include "Support/TestDesktop.h"

#include <Brindle/Vok/DirectoryMonitor.h>
#include <Brindle/Vok/FileSystemV2.h>
#include <Brindle/Vok/Guid.h>
#include <Brindle/Vok/Log.h>
#include <Brindle/Vok/Synchronization.h>

#include <map>
#include <sys/mount.h>
#include <sys/resource.h>

using namespace Brindle::Vok;
using namespace Brindle::Vok::Testing;
using Platform::HandleTable;
using Platform::MapRegistry;
using Platform::OpenUserToken;

namespace
{

/// The fault that there is now. It ends when the call has returned that it is for.
std::shared_ptr<void> present;

struct Fault
{
    std::string text;
    /// Brings it about at that call, counted from 0, and says so when it is met.
    std::function<std::shared_ptr<void>(int at, bool& isMet)> begin;
    bool isMetWhereTold = false;
    bool isLimit = false;
};

enum class Runs
{
    here,
    inChild,
    asSuperuser,
    withOwnMounts
};

struct Row
{
    char const* call;
    std::function<std::string()> act;
    std::vector<std::vector<Fault>> faults;
    Runs runs = Runs::here;
    std::function<void()> before = [] {};
};

/// What a call gives a code for, 0 being none, or throws: its type, code, function, and what stands behind the code's
/// text.
std::string Told(auto const& call)
{
    auto const told = [](std::string const& text) { return "`" + text + "`"; };
    try
    {
        DWORD const code = call();
        present.reset();
        return code == 0 ? "carried on" : std::to_string(code) + " " + WindowsErrorToStringA(code);
    }
    catch (Error const& error)
    {
        present.reset();
        char const* const type = dynamic_cast<WindowsError const*>(&error) ? "WindowsError "
                                 : dynamic_cast<ComError const*>(&error)   ? "ComError "
                                                                           : "Error ";
        std::string const text = error.Message().substr(error.Message().find("Brindle::Vok::") + 14);
        std::size_t const behind = text.find("). ");
        return told(type + std::to_string(error.code().value() & 0xFFFF)) + " of " +
               told(text.substr(0, text.find(' '))) + (behind == text.npos ? "" : ": " + text.substr(behind + 3));
    }
    catch (std::bad_alloc const&)
    {
        present.reset();
        return told("std::bad_alloc");
    }
}

template <class Call, class Fail>
std::shared_ptr<void> Redirect(Call& call, int at, int count, bool& isMet, Fail fail)
{
    auto const replacement = [&call, &isMet, fail, at, count, calls = 0](auto... arguments) mutable
    {
        int const number = calls++;
        bool const fails = number >= at && number - at < count;
        isMet = isMet || fails;
        return fails ? fail(call, arguments...) : call.host(arguments...);
    };
    return std::make_shared<decltype(SystemCalls::Redirection(call, replacement))>(call, replacement);
}

/// From one call on, but for interruptions, or once. `gives` is for calls that return the error.
template <class Result, class... Arguments>
std::vector<Fault> At(std::string const& name, SystemCalls::Call<Result(Arguments...)>& call,
                      std::initializer_list<int> errors, bool isOnce = false, bool gives = false)
{
    std::vector<Fault> faults;
    for (int const error : errors)
    {
        auto const fail = [error, gives](auto&, auto...)
        {
            errno = error;
            if constexpr (std::is_pointer_v<Result>)
                return reinterpret_cast<Result>(-1);
            else
                return static_cast<Result>(gives ? error : -1);
        };
        int const count = error == EINTR || isOnce ? 1 : always;
        faults.push_back({"`" + name + "`: `" + ::strerrorname_np(error) + (isOnce ? "` once" : "`"),
                          [&call, fail, count](int at, bool& isMet)
                          { return Redirect(call, at, count, isMet, fail); }});
    }
    return faults;
}

/// At most so many bytes at a time.
template <class Call>
std::vector<Fault> Short(std::string const& name, Call& call, std::size_t most)
{
    auto const cut = [most](auto& call, auto first, auto buffer, auto count, auto... offset) -> ssize_t
    {
        if (most == 0)
            return 0;
        if constexpr (std::is_pointer_v<decltype(first)>) // a buffer without a descriptor
            return call.host(first, std::min(buffer, most), count, offset...);
        else
            return call.host(first, buffer, std::min(count, most), offset...);
    };
    return {{"`" + name + "`: " + std::to_string(most) + " bytes at most",
             [&call, cut](int at, bool& isMet) { return Redirect(call, at, always, isMet, cut); }}};
}

std::shared_ptr<void> LimitMemory(int at, bool& isMet)
{
    Heap::hasRefused = false;
    std::shared_ptr<void> lasts(&present, [&isMet](void*) { Heap::allowed = -1, isMet = Heap::hasRefused; });
    Heap::allowed = at;
    return lasts;
}

#ifdef __SANITIZE_ADDRESS__
constexpr bool isSanitized = true; // and opens pipes to look at memory
#else
constexpr bool isSanitized = false;
#endif

/// The real limit of the process, so many above what is open.
std::shared_ptr<void> LimitDescriptors(int at, bool&)
{
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    int const next = ::dup(0);
    ::close(next);
    rlimit const small{static_cast<rlim_t>(next + at), before.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &small), 0);
    return {&present, [before](void*) { ::setrlimit(RLIMIT_NOFILE, &before); }};
}

bool Mount(std::string const& directory)
{
    return ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount("tmpfs", directory.c_str(), "tmpfs", 0, "size=8k") == 0;
}

class Table
{
public:
    Table()
    {
        drive.Write("local/mime/globs2", "50:text/plain:*.txt\n");
        drive.Write("home/.config/user-dirs.dirs", "XDG_MUSIC_DIR=\"/m\"");
        drive.Write("x.dll", BuildImage({.resources = {{16, {{1, {{0, VersionInfo(1, 2)}}}}}}}));
        for (char const* const name : {"registry/key", "disk"})
            std::filesystem::create_directories(drive.Host(name));
        HMODULE const library = LoadLibraryW(L"libanl.so.1");
        char path[1000] = "";
        EXPECT_NE(GetModuleFileNameA(library, path, sizeof path), 0U);
        FreeLibrary(library);
        std::string host = path + 2;
        std::ranges::replace(host, '\\', '/');
        std::filesystem::copy_file(host, drive.Host("library"));
        reading.hEvent = event.Get();
        EXPECT_TRUE(MapRegistry(HKEY_LOCAL_MACHINE, drive.Host("registry")));
    }

    /// As the page has it. Rows that can't be run here are taken from there.
    std::string Markdown(std::string const& page)
    {
        std::string table = "| call | fault | the caller gets | afterwards |\n|---|---|---|---|\n";
        for (Row const& row : Rows())
            for (auto const& faults : row.faults)
                for (Fault const& fault : faults)
                {
                    std::string const begin = "| " + std::string(row.call) + " | " + fault.text + " | ";
                    bool const canRun = CanRun(row.runs) && !(isSanitized && fault.isLimit);
                    std::size_t const there = canRun ? page.npos : page.find(begin);
                    table += there != page.npos ? page.substr(there, page.find('\n', there) + 1 - there)
                                                : begin + AllOutcomes(row, fault) + " |\n";
                }
        return table;
    }

private:
    std::vector<Row> Rows();

    bool CanRun(Runs runs) const
    {
        if (runs == Runs::withOwnMounts)
            return ChildProcess([&](auto const&) { return Mount(drive.Host("disk")) ? 0 : 1; }).Join() == 0;
        return runs != Runs::asSuperuser || ::geteuid() == 0;
    }

    /// At first; then there is room.
    void FillDisk(int at) const
    {
        EXPECT_TRUE(at > 0 || Mount(drive.Host("disk")));
        while (at > 0 && ::umount(drive.Host("disk").c_str()) == 0)
            ;
    }

    /// Content and permissions of each.
    using Files = std::map<std::string, std::pair<std::string, unsigned>>;
    struct Outcome
    {
        bool isMet = false;
        std::string told;
        std::string left;
        bool operator==(Outcome const&) const = default;
    };

    Files FilesNow() const
    {
        Files files;
        for (auto const& entry : std::filesystem::recursive_directory_iterator(drive.Host()))
        {
            std::string const name = entry.path().string().substr(drive.Host().size() + 1);
            files[name] = {entry.is_directory() ? "/" : drive.Read(name), drive.Mode(name)};
        }
        return files;
    }

    void MakeFiles()
    {
        for (char const* const name : {"file", "new", "tree", "disk/new", "home/.cache"})
            std::filesystem::remove_all(drive.Host(name));
        drive.Write("file", "0123456789");
        drive.Write("tree/a/b/file");
        files = FilesNow();
    }

    /// What isn't as it was.
    static std::string Differences(Files const& before, Files const& after)
    {
        std::string differences;
        for (auto const& [name, now] : after)
            if (auto const old = before.find(name); old == before.end() || old->second != now)
                differences += ", `" + name + "`" +
                               (now.first == "/" ? " is there" : " of " + std::to_string(now.first.size()) + " bytes");
        for (auto const& [name, content] : before)
            if (!after.contains(name))
                differences += ", no `" + name + "`";
        return differences;
    }

    Outcome Attempt(Row const& row, Fault const& fault, int at, bool isMeasured)
    {
        if (FilesNow() != files)
            MakeFiles();
        row.before();
        KernelIdentity const identity;
        std::size_t const descriptors = OpenDescriptors();
        std::size_t const handles = HandleTable::OpenCount();
        long const blocks = Heap::blocks;
        Outcome outcome;
        char told[500] = "";
        present = fault.begin(at, outcome.isMet);
        row.act().copy(told, sizeof told - 1);
        outcome.isMet = outcome.isMet || (fault.isMetWhereTold && std::string_view(told) != "carried on");
        auto const isBalanced = [&]
        { return OpenDescriptors() == descriptors && HandleTable::OpenCount() == handles && Heap::blocks == blocks; };
        // Threads may still be on their way out.
        for (int pauses = 0; isMeasured && outcome.isMet && pauses < 1000 && !isBalanced(); ++pauses)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        outcome.left = Heap::blocks == blocks ? "" : ", " + std::to_string(Heap::blocks - blocks) + " blocks";
        outcome.left += isBalanced() ? "" : ", not balanced";
        outcome.left += identity == KernelIdentity() ? "" : ", another identity";
        RevertToSelf();
        held.Close();
        outcome.left += Differences(files, FilesNow());
        outcome.left = outcome.left.empty() ? "as before" : outcome.left.substr(2);
        outcome.told = told;
        return outcome;
    }

    std::string AllOutcomes(Row const& row, Fault const& fault)
    {
        if (row.runs == Runs::here || row.runs == Runs::asSuperuser)
            return OutcomesHere(row, fault);
        EXPECT_EQ(InChild([&] { drive.Write("told", OutcomesHere(row, fault)); }), 0);
        std::string const told = drive.Read("told");
        std::filesystem::remove(drive.Host("told"));
        return told;
    }

    /// One after the other where they differ.
    std::string OutcomesHere(Row const& row, Fault const& fault)
    {
        std::vector<Outcome> outcomes;
        for (int at = 0;; ++at)
        {
            Attempt(row, fault, at, false); // makes what is made once
            Outcome const outcome = Attempt(row, fault, at, true);
            if (!outcome.isMet || at == 10000)
            {
                EXPECT_EQ(outcome.told, "carried on") << row.call << ' ' << fault.text << " without the fault";
                break;
            }
            if (std::ranges::find(outcomes, outcome) == outcomes.end())
                outcomes.push_back(outcome);
        }
        auto const join = [&](std::string Outcome::*text)
        {
            std::string joined;
            for (Outcome const& outcome : outcomes)
                joined += "<br>" + outcome.*text;
            bool const areSame =
                std::ranges::all_of(outcomes, [&](Outcome const& each) { return each.*text == outcomes[0].*text; });
            return outcomes.empty() ? "never met" : areSame ? outcomes[0].*text : joined.substr(4);
        };
        return join(&Outcome::told) + " | " + join(&Outcome::left);
    }

    TestDesktop const desktop;
    TestDrive const& drive = desktop.drive;
    Files files;
    std::wstring const file = drive.Path(L"file");
    std::wstring const fresh = drive.Path(L"new");
    std::wstring const tree = drive.Path(L"tree");
    OpenHandle const event{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    OpenHandle const daemon{OpenUserToken("daemon")};
    OpenHandle const nobody{OpenUserToken("nobody")};
    OpenHandle held;
    OVERLAPPED reading{};
    alignas(8) char bytes[512];
    DWORD size = 0;
    GUID guid{};
    std::shared_ptr<V2::IFileSystem> const second = V2::MakeFileSystem();
    decltype(MakeFileSystem()) const first = MakeFileSystem();
};

/// What a listing ends with.
DWORD CodeOfListing(std::wstring const& pattern)
{
    WIN32_FIND_DATAW data;
    HANDLE const search = FindFirstFileW(pattern.c_str(), &data);
    if (search == INVALID_HANDLE_VALUE)
        return GetLastError();
    while (FindNextFileW(search, &data) != FALSE)
        ;
    DWORD const code = GetLastError();
    FindClose(search);
    return code == ERROR_NO_MORE_FILES ? ERROR_SUCCESS : code;
}

std::vector<Row> Table::Rows()
{
    using namespace SystemCalls;
    using Faults = std::vector<Fault>;
    auto const result = [](auto call) { return [=] { return Told([&] { return DWORD(call()) & 0xFFFF; }); }; };
    auto const succeeds = [](auto call)
    { return [=] { return Told([&] { return CodeOf([&] { return call() != 0; }); }); }; };
    auto const library = [](auto call) { return [=] { return Told([&] { return call(), DWORD{0}; }); }; };
    auto const opens = [=](std::wstring const& path, DWORD disposition)
    { return succeeds([=, &path] { return bool(Testing::Open(path, GENERIC_WRITE, 0, disposition)); }); };
    auto const writes = [this, library](auto const& service, TextEncoding encoding)
    {
        return library(
            [this, &service, encoding, text = std::wstring(30'000, L'x')] {
                service->MakeFile(fresh)->WriteAllText(text, encoding, ByteOrderMarkPolicy::Write,
                                                       LineEndingPolicy::Unchanged);
            });
    };
    auto const readsFile = [this]
    {
        DWORD count = 0;
        return ReadFile(held.Get(), bytes, 10, &count, nullptr) && std::string_view(bytes, count) == "0123456789";
    };
    auto const writesFile = [this]
    {
        DWORD count = 1;
        bool const isWritten = WriteFile(held.Get(), "abcdefghijklm", 13, &count, nullptr) != FALSE;
        EXPECT_EQ(count, isWritten ? 13U : 0U);
        return isWritten;
    };
    auto const opensFile = [this] { held = Testing::Open(file, GENERIC_READ | GENERIC_WRITE); };
    auto const reads = [this]
    {
        held = Testing::Open(tree, FILE_LIST_DIRECTORY, allShares, OPEN_EXISTING,
                             FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OVERLAPPED);
        return held && ReadDirectoryChangesW(held.Get(), bytes, sizeof bytes, FALSE, FILE_NOTIFY_CHANGE_FILE_NAME,
                                             nullptr, &reading, nullptr);
    };
    auto const readsAndCloses = [this, reads]
    {
        bool const isReading = reads();
        return held.Close(), isReading;
    };
    auto const waits = succeeds([this] { return WaitForSingleObject(event.Get(), 2) != WAIT_FAILED; });
    auto const waitsAtFirst = [=]
    {
        std::string told;
        std::thread([&] { told = waits(); }).join();
        return told;
    };
    auto const makesTimer = []
    {
        PTP_TIMER const timer = CreateThreadpoolTimer([](auto...) {}, nullptr, nullptr);
        return timer && (CloseThreadpoolTimer(timer), true);
    };
    auto const makesBlock = []
    {
        void* block = nullptr;
        return CreateEnvironmentBlock(&block, nullptr, TRUE) && DestroyEnvironmentBlock(block);
    };
    auto const loads = [path = drive.Path(L"library")]
    {
        HMODULE const module = LoadLibraryW(path.c_str());
        return module && FreeLibrary(module);
    };
    auto const knownFolder = [](GUID const& id, DWORD flags)
    {
        wchar_t* path = nullptr;
        HRESULT const code = SHGetKnownFolderPath(id, flags, nullptr, &path);
        return CoTaskMemFree(path), code;
    };
    auto const opensKey = []
    {
        HKEY key = nullptr;
        LSTATUS const status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"KEY", 0, KEY_READ, &key);
        return RegCloseKey(key), status;
    };
    DWORD* const count = &size;
    auto* const text = reinterpret_cast<wchar_t*>(bytes);
    auto const impersonates = [this] { ImpersonateLoggedOnUser(daemon.Get()); };
    Faults const none = At("openat", SystemCalls::Open, {EMFILE});
    Faults const noMemory = {{"`operator new` throws", LimitMemory}};
    Faults const noDescriptors = {{"`RLIMIT_NOFILE`", LimitDescriptors, true, true}};
    Faults const badReads = At("pread", ReadAt, {EIO, EINTR});
    Faults const shortReads = Short("pread", ReadAt, 3);
    Faults const fullDisk = {{"a full tmpfs", [this](int at, bool&) { return FillDisk(at), nullptr; }, true}};
    std::vector<Faults> const refusals = {At("setgroups", SetOtherGroups, {EPERM, ENOMEM}, true),
                                          At("setresgid", SetGroups, {EPERM, ENOMEM}, true),
                                          At("setresuid", SetUsers, {EPERM, EAGAIN}, true),
                                          At("capset", SetCapabilities, {EPERM, ENOMEM}, true),
                                          At("setgroups", SetOtherGroups, {ENOMEM}),
                                          At("setresgid", SetGroups, {ENOMEM})};
    // clang-format off
    return {
        {"`CreateFileW`, open", opens(file, OPEN_EXISTING),
         {At("openat", SystemCalls::Open, {EMFILE, ENFILE, ENOMEM, EINTR}), At("fstat", Status, {EIO}), At("flock", LockWhole, {ENOLCK, EINTR}), noDescriptors}},
        {"`CreateFileW`, make", opens(fresh, CREATE_NEW),
         {At("openat", SystemCalls::Open, {EMFILE, ENOSPC, EDQUOT, EINTR}), At("flock", LockWhole, {ENOLCK})}},
        {"`CreateFileW`, empty", opens(file, CREATE_ALWAYS), {none, At("ftruncate", Truncate, {EROFS, EIO, EINTR})}},
        {"`ReadFile`", succeeds(readsFile), {At("read", Read, {EIO, EINTR}), Short("read", Read, 3)}, Runs::here, opensFile},
        {"`WriteFile`", succeeds(writesFile),
         {At("write", Write, {ENOSPC, EDQUOT, EIO, EINTR}), Short("write", Write, 3), Short("write", Write, 0)}, Runs::here, opensFile},
        {"`DeleteFileW`", succeeds([this] { return DeleteFileW(file.c_str()); }), {none, At("unlinkat", UnlinkAt, {EIO, EROFS, EINTR})}},
        {"`SetFileAttributesW`", succeeds([this] { return SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY); }),
         {At("fchmodat", ChangeModeAt, {EPERM, EIO})}},
        {"`CreateDirectoryW`", succeeds([this] { return CreateDirectoryW(fresh.c_str(), nullptr); }),
         {At("mkdir", MakeDirectory, {ENOSPC, EMLINK, EINTR})}},
        {"`FindFirstFileW` and on", result([pattern = tree + L"\\*"] { return CodeOfListing(pattern); }),
         {none, At("getdents64", ReadDirectory, {EIO}), At("statx", ExtendedStatusAt, {EIO}), noMemory, noDescriptors}},
        {"`ReadDirectoryChangesW`", succeeds(readsAndCloses),
         {At("inotify_init1", MakeWatcher, {EMFILE}), At("inotify_add_watch", AddWatch, {ENOSPC, ENOMEM, EACCES}), noMemory, noDescriptors}},
        {"`WaitForSingleObject`, a reading", waits, {At("ppoll", Poll, {ENOMEM, EINTR})}, Runs::here, reads},
        {"`WaitForSingleObject`, a thread's first", waitsAtFirst, {At("eventfd", MakeEventDescriptor, {EMFILE, ENFILE})}, Runs::here, reads},
        {"`CreateEventW`", succeeds([] { return bool(OpenHandle(CreateEventW(nullptr, FALSE, FALSE, nullptr))); }), {noMemory}},
        {"`CreateThreadpoolTimer`, the first", succeeds(makesTimer),
         {At("epoll_create1", MakePoll, {EMFILE}), At("timerfd_create", MakeTimer, {EMFILE}), At("epoll_ctl", ChangePoll, {ENOSPC}),
          At("pthread_create", StartThread, {EAGAIN}, false, true), noDescriptors}, Runs::inChild},
        {"`CreateThreadpoolTimer`, the second", succeeds(makesTimer), {noMemory}, Runs::inChild, makesTimer},
        {"`MultiByteToWideChar`, page 1251", succeeds([] { return MultiByteToWideChar(1251, 0, "x", 1, nullptr, 0); }), {none, noDescriptors}},
        {"`OpenUserToken`", succeeds([] { return bool(OpenHandle(OpenUserToken("root"))); }),
         {none, At("getpwnam_r", FindUserNamed, {EMFILE, EINTR}, false, true), At("getgrouplist", FindGroupsOf, {ENOMEM}), noMemory}},
        {"`ImpersonateLoggedOnUser`", succeeds([this] { return ImpersonateLoggedOnUser(daemon.Get()); }), refusals, Runs::asSuperuser},
        {"`ImpersonateLoggedOnUser`, marking", succeeds([this] { return ImpersonateLoggedOnUser(daemon.Get()); }),
         {At("prctl", SetSecureBits, {EPERM})}, Runs::asSuperuser},
        {"`ImpersonateLoggedOnUser`, from another", succeeds([this] { return ImpersonateLoggedOnUser(nobody.Get()); }),
         refusals, Runs::asSuperuser, impersonates},
        {"`RevertToSelf`", succeeds([] { return RevertToSelf(); }), refusals, Runs::asSuperuser, impersonates},
        {"`GetUserNameW`", succeeds([=] { return *count = 100, GetUserNameW(text, count); }),
         {At("getpwuid_r", FindUser, {EMFILE, EIO, EINTR}, false, true)}},
        {"`CreateEnvironmentBlock`", succeeds(makesBlock), {none, noMemory}},
        {"`LoadLibraryW`", succeeds(loads), {none, badReads, shortReads}},
        {"`SHGetKnownFolderPath`, music", result([=] { return knownFolder(FOLDERID_Music, KF_FLAG_DONT_VERIFY); }),
         {none, badReads, shortReads, noMemory}},
        {"`SHGetKnownFolderPath`, make", result([=] { return knownFolder(FOLDERID_InternetCache, KF_FLAG_CREATE); }),
         {At("mkdir", MakeDirectory, {ENOSPC, EINTR})}},
        {"`RegOpenKeyExW`", result(opensKey), {none, At("getdents64", ReadDirectory, {EIO}), noMemory}},
        {"`AssocQueryStringW`", result([=] { return *count = 100, AssocQueryStringW(0, ASSOCSTR_CONTENTTYPE, L".txt", nullptr, text, count); }),
         {none, badReads, shortReads, noMemory}},
        {"`GetFileVersionInfoSizeW`", succeeds([path = drive.Path(L"x.dll")] { return GetFileVersionInfoSizeW(path.c_str(), nullptr); }),
         {none, badReads, shortReads, Short("pread", ReadAt, 0)}},
        {"`CoCreateGuid`", result([this] { return CoCreateGuid(&guid); }),
         {At("getrandom", GetRandom, {ENOMEM, ENOSYS, EINTR}), Short("getrandom", GetRandom, 5), Short("getrandom", GetRandom, 0)}},
        {"`Guid::NewGuid`", library([] { Guid::NewGuid(); }), {At("getrandom", GetRandom, {ENOSYS})}},
        {"`File::WriteAllText`, UTF-8", writes(first, TextEncoding::Utf8), {none, At("write", Write, {ENOSPC}), noMemory}},
        {"`File::WriteAllText`, UTF-16", writes(first, TextEncoding::Utf16), {At("write", Write, {ENOSPC})}},
        {"`V2::IFile::WriteAllText`, UTF-8", writes(second, TextEncoding::Utf8), {At("write", Write, {ENOSPC})}},
        {"`V2::IFile::WriteAllText`, UTF-16", writes(second, TextEncoding::Utf16),
         {none, At("write", Write, {ENOSPC, EINTR}), Short("write", Write, 3000), noMemory}},
        {"`V2::IFile::WriteAllBytes`", library([this, path = drive.Path(L"disk\\new"), content = std::vector<unsigned char>(20'000)]
                                               { second->MakeFile(path)->WriteAllBytes(content); }), {fullDisk}, Runs::withOwnMounts},
        {"`V2::IFile::ReadAllText`", library([this] { second->MakeFile(file)->ReadAllText(); }),
         {At("read", Read, {EIO, EINTR}), Short("read", Read, 3), Short("read", Read, 0), noMemory}},
        {"`File::ReadAllTextA`", library([this] { first->MakeFile(file)->ReadAllTextA(); }), {At("read", Read, {EIO}), Short("read", Read, 0)}},
        {"`V2::IDirectory::Files`", library([this] { second->MakeDirectory(tree)->Files(L"*"); }),
         {none, At("getdents64", ReadDirectory, {EIO}), noMemory}},
        {"`V2::IDirectory::Create`", library([this] { second->MakeDirectory(fresh)->Create(); }), {At("mkdir", MakeDirectory, {ENOSPC, EDQUOT})}},
        {"`V2::IDirectory::Delete`", library([this] { second->MakeDirectory(tree)->Delete(); }),
         {none, At("getdents64", ReadDirectory, {EIO}), At("unlinkat", UnlinkAt, {EIO, EINTR}), noMemory, noDescriptors}},
        {"`MakeDirectoryMonitor`", library([this] { MakeDirectoryMonitorFactory()->MakeDirectoryMonitor(tree, [](auto const&) {}); }),
         {At("inotify_init1", MakeWatcher, {EMFILE}), At("inotify_add_watch", AddWatch, {ENOSPC}), noMemory, noDescriptors}},
        {"`ThreadPoolTimer`, the first", library([] { ThreadPoolTimer const timer([](auto&) {}); }),
         {At("timerfd_create", MakeTimer, {EMFILE}), At("pthread_create", StartThread, {EAGAIN}, false, true)}, Runs::inChild},
        {"`FormatString`, of a long text", library([] { FormatString("{}", std::string_view("what is made is a text of some length, longer than its format")); }), {noMemory}},
        {"`VOK_LOG`, to a subscriber", library([] { VOK_LOG(VokLogSeverity::error, "{}", "what is told is a text of some length"); }), {noMemory},
         Runs::here, [] { static SubscriptionForLogCallbacks const hears([](auto const&) {}, VokLogSeverity::trace); }},
    };
    // clang-format on
}

} // namespace

TEST(Faults, AreAsThePageSays)
{
    char const* const page = VOK_SOURCES "/Docs/Reliability.md";
    std::ifstream input(page);
    std::string const whole{std::istreambuf_iterator<char>(input), {}};
    std::size_t const begin = whole.find("| call |");
    ASSERT_NE(begin, whole.npos) << page;
    std::size_t const end = std::min(whole.find("\n\n", begin), whole.size() - 1) + 1;
    std::string const table = Table().Markdown(whole);
    if (::getenv("VOK_WRITE_FAULTS"))
        std::ofstream(page) << whole.substr(0, begin) << table << whole.substr(end);
    else
        EXPECT_EQ(whole.substr(begin, end - begin), table);
}
