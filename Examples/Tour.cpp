// The tour of the library's main job: it writes one text in every encoding, reads it back, walks a directory, deletes
// what it made, makes a temporary directory that goes with its owner, does the like with the second generation's
// objects, watches a directory for a second, tells who runs it and where, is another user for a step if it may, takes a
// path apart, shows a failure the way a caller sees it, and runs timers.
//
//     Tour DIRECTORY [PATH]     the directory stands behind the drive T: for the time of the tour; the path, in Windows
//                               syntax, is the one that is taken apart and need not exist
#include "Arguments.h"
#include "ChangePrinter.h"

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/FileSystem.h>
#include <Brindle/Vok/FileSystemV2.h>
#include <Brindle/Vok/HandleOwner.h>
#include <Brindle/Vok/Log.h>
#include <Brindle/Vok/PlatformHost.h>
#include <Brindle/Vok/Synchronization.h>
#include <Brindle/Vok/UnImpersonator.h>
#include <Brindle/Vok/VokShlobj.h>
#include <Brindle/Vok/VokWindows.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

using namespace Brindle::Vok;

namespace
{

void ShowBytes(std::string const& bytes)
{
    for (char const byte : bytes)
        std::printf(" %02X", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    std::printf("\n");
}

void ShowStatement(LogStatement const& statement)
{
    std::printf("  log %-8s %s(%d): %s: %s\n", ToStringA(statement.severity).c_str(), statement.file, statement.line,
                statement.function, statement.message.c_str());
}

/// Writes the text in one form and shows what the file then holds.
void WriteAndReadBack(FileSystem& fileSystem, Path const& path, std::wstring const& text, TextEncoding encoding,
                      ByteOrderMarkPolicy mark)
{
    VOK_LOG_SCOPE("path[{}]", path.ToString());
    std::unique_ptr<File> const file = fileSystem.MakeFile(path);
    file->WriteAllText(text, encoding, mark, LineEndingPolicy::Windows);
    std::string const bytes = file->ReadAllTextA();
    std::printf("%s, %zu bytes:", path.ToStringA().c_str(), bytes.size());
    ShowBytes(bytes);
}

void WriteEveryForm(FileSystem& fileSystem, Path const& directory)
{
    std::wstring const text = L"Gr\u00FC\u00DFe\n\u20AC 5\n";
    struct
    {
        wchar_t const* name;
        TextEncoding encoding;
        ByteOrderMarkPolicy mark;
    } const forms[] = {
        {L"utf8.txt", TextEncoding::Utf8, ByteOrderMarkPolicy::Omit},
        {L"utf8-with-mark.txt", TextEncoding::Utf8, ByteOrderMarkPolicy::Write},
        {L"utf16.txt", TextEncoding::Utf16, ByteOrderMarkPolicy::Omit},
        {L"utf16-with-mark.txt", TextEncoding::Utf16, ByteOrderMarkPolicy::Write},
    };
    for (auto const& form : forms)
        WriteAndReadBack(fileSystem, Path::Join(directory, form.name), text, form.encoding, form.mark);
}

/// A search for a plain name gives the record of that one entry: of a link itself, where PathInfo tells of what it
/// leads to, and with the size. False if the entry is there no more.
bool FindRecord(Path const& path, WIN32_FIND_DATAW& record)
{
    HandleOwner<Detail::FindHandleTraits> const search(FindFirstFileW(path.ToString().c_str(), &record));
    return search.IsValid();
}

std::string KindOf(PathInfo& entry)
{
    bool const isReadOnly = (static_cast<unsigned>(entry.Attributes()) & FILE_ATTRIBUTE_READONLY) != 0;
    return std::string(entry.IsDirectory() ? "directory" : "file") + (isReadOnly ? ", read-only" : "");
}

/// Kind, size and name of each entry, and so on in its directories, as many levels as are wanted.
void ShowEntries(DirectoryInfo directory, std::shared_ptr<FileSystem> const& fileSystem, int levels,
                 int indentation = 0)
{
    for (PathInfo& entry : directory)
    {
        WIN32_FIND_DATAW record;
        if (!FindRecord(entry.Path(), record))
            continue;
        bool const isLink = (record.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
        bool const isDirectory = (record.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        std::uint64_t const size = static_cast<std::uint64_t>(record.nFileSizeHigh) << 32 | record.nFileSizeLow;
        std::string const bytes = isLink || isDirectory ? "" : std::to_string(size);
        std::printf("  %-20s %12s  %*s%s\n", isLink ? "link" : KindOf(entry).c_str(), bytes.c_str(), indentation, "",
                    WideToUtf8(entry.Path().NameWithExtension()).c_str());
        if (isDirectory && levels > 1)
            ShowEntries(fileSystem->MakeDirectoryInfo(entry.Path()), fileSystem, levels - 1, indentation + 2);
    }
}

void ShowWhetherItExists(PathInfo& info)
{
    info.Refresh(); // otherwise it would keep its first answer
    std::printf("%s exists: %s\n", info.Path().ToStringA().c_str(), info.Exists() ? "yes" : "no");
}

/// A tree that is there for as long as its owner, with all that has been put into it, read-only files too.
void MakeATemporaryTree(std::shared_ptr<FileSystem> const& fileSystem)
{
    auto temporary = std::make_unique<TempDirectory>(fileSystem->MakeTempDirectory());
    DirectoryInfo directory = fileSystem->MakeDirectoryInfo(temporary->Path());
    Path const file = Path::Join(directory.CreateSubdirectory(L"one\\two").Path(), L"three.txt");
    fileSystem->MakeFile(file)->WriteAllText("3\n", TextEncoding::Utf8, ByteOrderMarkPolicy::Omit,
                                             LineEndingPolicy::Unchanged);
    SetFileAttributesW(file.ToString().c_str(), FILE_ATTRIBUTE_READONLY);
    ShowWhetherItExists(directory);
    ShowEntries(directory, fileSystem, 3);
    temporary.reset();
    ShowWhetherItExists(directory);
}

// The second generation

/// The same text behind each mark, and what its reader makes of it.
void ReadEachMark(V2::IFileSystem& fileSystem, V2::IDirectory& directory)
{
    std::wstring const text = L"Gr\u00FC\u00DFe";
    struct
    {
        wchar_t const* name;
        TextEncoding encoding;
        ByteOrderMarkPolicy mark;
    } const forms[] = {
        {L"utf8-with-mark.txt", TextEncoding::Utf8, ByteOrderMarkPolicy::Write},
        {L"utf16-with-mark.txt", TextEncoding::Utf16, ByteOrderMarkPolicy::Write},
        {L"utf16.txt", TextEncoding::Utf16, ByteOrderMarkPolicy::Omit},
    };
    for (auto const& form : forms)
    {
        auto const file = fileSystem.MakeFile(Path::Join(directory.Path(), form.name));
        file->WriteAllText(text, form.encoding, form.mark, LineEndingPolicy::Unchanged);
        std::printf("%s: %zu bytes, %s\n", WideToUtf8(form.name).c_str(), file->ReadAllBytes().size(),
                    WideToUtf8(file->ReadAllText()).c_str());
    }
}

/// One search answers all questions about all entries.
void ShowList(V2::IDirectory& directory, wchar_t const* pattern)
{
    for (std::shared_ptr<V2::IPathInfo> const& entry : directory.PathInfos(pattern))
    {
        auto const file = std::dynamic_pointer_cast<V2::IFile>(entry);
        std::printf("  %-20s %12s  %s\n",
                    (std::string(file ? "file" : "directory") + (entry->Attributes().IsReadOnly() ? ", read-only" : ""))
                        .c_str(),
                    file ? std::to_string(file->Size()).c_str() : "",
                    WideToUtf8(entry->Path().NameWithExtension()).c_str());
    }
}

void ShowSecondGeneration()
{
    std::shared_ptr<V2::IFileSystem> const fileSystem = V2::MakeFileSystem();
    std::unique_ptr<V2::IDirectory> temporary = fileSystem->MakeTempDirectory();
    std::unique_ptr<V2::IPathInfo> const info = fileSystem->MakePathInfo(temporary->Path());
    ReadEachMark(*fileSystem, *temporary);
    temporary->CreateSubdirectory(L"sub");

    std::unique_ptr<V2::IFile> const file = fileSystem->MakeFile(Path::Join(temporary->Path(), L"utf16.txt"));
    file->SetReadOnly(true);
    ShowList(*temporary, L"*");
    bool const wasDeleted = file->Delete();
    std::printf("read-only utf16.txt deleted: %s; left of utf16*:\n", wasDeleted ? "yes" : "no");
    ShowList(*temporary, L"utf16*");

    std::printf("%s exists: %s\n", info->Path().ToStringA().c_str(), info->Exists() ? "yes" : "no");
    temporary.reset();
    info->Refresh();
    std::printf("%s exists: %s\n", info->Path().ToStringA().c_str(), info->Exists() ? "yes" : "no");
}

void WatchForASecond()
{
    std::shared_ptr<V2::IFileSystem> const fileSystem = V2::MakeFileSystem();
    std::unique_ptr<V2::IDirectory> const watched = fileSystem->MakeTempDirectory();
    ChangePrinter const printer({watched->Path()});
    std::unique_ptr<V2::IFile> const file = fileSystem->MakeFile(Path::Join(watched->Path(), L"seen.txt"));
    file->WriteAllText(L"seen", TextEncoding::Utf8, ByteOrderMarkPolicy::Omit, LineEndingPolicy::Windows);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    file->Delete();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
}

/// Five in a row, each due a tenth of a second after it is set.
void ShowHowLateTimersAre()
{
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds interval{100};
    FILETIME due;
    auto const ticks = static_cast<std::uint64_t>(-10'000 * interval.count()); // negative: from now on
    due.dwLowDateTime = static_cast<DWORD>(ticks);
    due.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    for (int i = 0; i < 5; ++i)
    {
        std::promise<Clock::time_point> run;
        ThreadPoolTimer timer([&](ThreadPoolTimer&) { run.set_value(Clock::now()); });
        auto const begin = Clock::now();
        timer.Start(due);
        std::chrono::duration<double, std::micro> const late = run.get_future().get() - begin - interval;
        std::printf("due in 0.1 s, late by %.0f microseconds\n", late.count());
    }
}

void ShowPiece(char const* name, std::wstring const& piece)
{
    std::printf("  %-24s [%s]\n", name, WideToUtf8(piece).c_str());
}

// Who runs this, and where

void ShowWhoAndWhere()
{
    ShowPiece("user", VokGetUserName());
    ShowPiece("computer", VokGetComputerNameEx(ComputerNameDnsHostname));
    ShowPiece("session", std::to_wstring(GetSessionId(nullptr)));
    ShowPiece("program", VokGetModuleFileName(nullptr));
    ShowPiece("system directory", VokGetSystemDirectory());
    struct
    {
        char const* name;
        GUID const& id;
    } const folders[] = {
        {"profile", FOLDERID_Profile},
        {"documents", FOLDERID_Documents},
        {"application data", FOLDERID_LocalAppData},
        {"machine's settings", FOLDERID_ProgramData},
    };
    for (auto const& folder : folders)
        ShowPiece(folder.name, VokSHGetKnownFolderPath(folder.id, KF_FLAG_DONT_VERIFY, nullptr));
}

void TryToWrite(Path const& path)
{
    Error error;
    VokCreateFile(path.ToString(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr, error);
    std::printf("%s writes: %s\n", WideToUtf8(VokGetUserName()).c_str(),
                error.Failed() ? WindowsErrorToStringA(static_cast<unsigned long>(error.code().value())).c_str()
                               : "yes");
}

/// One thread takes on another identity for a step, and in the middle its own again. The caller's is back at the end.
void BeAnotherUser(std::string const& user)
{
    std::unique_ptr<V2::IDirectory> const temporary = V2::MakeFileSystem()->MakeTempDirectory();
    Path const file = Path::Join(temporary->Path(), L"file.txt");
    HandleOwner<Detail::NullHandleTraits> const token(Platform::OpenUserToken(user));
    ImpersonationSaver saver;
    bool const isOther = ImpersonateLoggedOnUser(token.Get()) != FALSE;
    if (!isOther)
        std::printf("not as %s: %s\n", user.c_str(), WindowsErrorToStringA(GetLastError()).c_str());
    saver.SetImpersonationOccurred(isOther ? 1 : 0);
    TryToWrite(file);
    if (isOther)
    {
        UnImpersonator const asProcess;
        TryToWrite(file);
    }
}

void ShowPieces(Path const& path)
{
    ShowPiece("path", path.ToString());
    ShowPiece("prefix", ToString(path.Prefix()));
    ShowPiece("relative", path.IsRelative() ? L"yes" : L"no");
    ShowPiece("drive", path.DriveWithColon());
    ShowPiece("server", path.Server());
    ShowPiece("share", path.Share());
    ShowPiece("directory", path.Directory());
    ShowPiece("directory, normalised", path.DirectoryNormalized());
    ShowPiece("name", path.NameWithExtension());
    ShowPiece("name without extension", path.NameWithoutExtension());
    ShowPiece("extension", path.ExtensionWithDot());
    ShowPiece("parent", path.Parent().ToString());
    ShowPiece("normalised", path.Normalized().ToString());
    ShowPiece("with extension bak", path.WithChangedExtension(L"bak").ToString());
    ShowPiece("joined with sub\\name", Path::Join(path, L"sub\\name").ToString());
}

void OpenWhatIsMissing(FileSystem& fileSystem, Path const& directory)
{
    try
    {
        fileSystem.MakeFile(Path::Join(directory, L"no-such-directory", L"file.txt"))->ReadAllTextA();
    }
    catch (Error const& error)
    {
        std::printf("caught: %s\n", error.what());
        std::printf("code:   %d\n", error.code().value());
    }
}

/// At a boundary any exception becomes one Error, and a statement tells which it was.
void FailAtABoundary()
{
    try
    {
        VOK_THROW(ComError, E_ACCESSDENIED, L"opening [{}]", L"C:\\locked");
    }
    catch (...)
    {
        Error error; // assigned and not initialised, so that it keeps the Win32 category
        error = Detail::CurrentExceptionToError(__FILE__, __LINE__, VOK_FUNCTION_NAME);
        std::printf("boundary: code %d: %s\n", error.code().value(), error.what());
    }
}

/// Where the tour's own files are, while it runs.
DirectoryInfo MakeOwnDirectory(FileSystem& fileSystem)
{
    DirectoryInfo own = fileSystem.MakeDirectoryInfo(L"T:\\vok2-tour");
    if (own.Exists())
        throw std::runtime_error(own.Path().ToStringA() + " is there already");
    own.Create();
    return own;
}

int Run(std::string const& directory, Path const& path)
{
    SubscriptionForLogCallbacks const subscription(ShowStatement, VokLogSeverity::trace);
    if (!Platform::MapDrive(L'T', directory))
    {
        std::fprintf(stderr, "%s: %s\n", directory.c_str(), WindowsErrorToStringA(GetLastError()).c_str());
        return 1;
    }
    std::shared_ptr<FileSystem> const fileSystem = MakeFileSystem();

    DirectoryInfo own = MakeOwnDirectory(*fileSystem);

    std::printf("== One text in every encoding (T: is %s)\n", directory.c_str());
    WriteEveryForm(*fileSystem, own.Path());
    std::printf("== What is in the directory\n");
    ShowEntries(fileSystem->MakeDirectoryInfo(L"T:\\"), fileSystem, 1);
    std::printf("== What is in the tour's own one, until it is deleted\n");
    ShowEntries(own, fileSystem, 1);
    own.Delete();
    ShowWhetherItExists(own);
    std::printf("== A temporary directory, until its owner goes\n");
    MakeATemporaryTree(fileSystem);
    std::printf("== Second generation: each mark read, a list, a read-only deletion, a temporary directory\n");
    ShowSecondGeneration();
    std::printf("== A directory that is watched for a second\n");
    WatchForASecond();
    std::printf("== Who runs this, and where\n");
    ShowWhoAndWhere();
    std::printf("== One step as another user\n");
    BeAnotherUser("nobody");
    std::printf("== A path and its pieces\n");
    ShowPieces(path);
    std::printf("== A path that does not exist\n");
    OpenWhatIsMissing(*fileSystem, L"T:\\");
    std::printf("== An HRESULT, 80070005 as a signed number, at a boundary\n");
    FailAtABoundary();
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (auto const code = EndWithUsage(argv[0], {argv + 1, argv + argc}, 1, 2, "DIRECTORY [PATH]"))
        return *code;
    try
    {
        int const code =
            Run(argv[1], argc == 3 ? argv[2] : R"(\\server\share\Reports\.\drafts\..\2024/summary.final.txt)");
        if (code != 0)
            return code;
        std::printf("== Timers, while nobody listens to the log\n");
        ShowHowLateTimersAre();
        return 0;
    }
    catch (std::exception const& exception)
    {
        std::fflush(stdout);
        std::fprintf(stderr, "failed: %s\n", exception.what());
        return 1;
    }
}
