#include <Brindle/Vok/FileSystem.h>

#include <Brindle/Vok/Guid.h>
#include <Brindle/Vok/Log.h>
#include <Brindle/Vok/VokWindows.h>

#include "DeletionGuard.h"
#include "FileSystemImpl.h"
#include "StringStorage.h"
#include "TextFormat.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace Brindle::Vok
{

// Named without their namespace, since the texts of the assertions below are fixed.
using Detail::utf16ByteOrderMark;
using Detail::utf8ByteOrderMark;

namespace
{

/// One write carries its count in 32 bits.
constexpr std::size_t maximumByteCount = 0xFFFFFFFFU;

using FileOwner = HandleOwner<Detail::InvalidHandleTraits>;

FileOwner OpenForWriting(Path const& path)
{
    return VokCreateFile(path.ToString(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

FileOwner OpenForReading(Path const& path)
{
    return VokCreateFile(path.ToString(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
}

} // namespace

std::shared_ptr<FileSystem> MakeFileSystem()
{
    return std::make_shared<FileSystemImpl>();
}

std::unique_ptr<File> FileSystemImpl::MakeFile(Path path)
{
    return std::make_unique<FileImpl>(std::move(path));
}

TempDirectory FileSystemImpl::MakeTempDirectory()
{
    std::wstring const name = Guid::NewGuid();
    Path const path = Path::Join(VokExpandEnvironmentStrings(L"%TEMP%"), name);
    VokCreateDirectory(path);
    return TempDirectory(shared_from_this(), path);
}

PathInfo FileSystemImpl::MakePathInfo(Path path)
{
    std::shared_ptr<FileSystem> self = shared_from_this();
    return PathInfo(std::move(path), std::move(self));
}

DirectoryInfo FileSystemImpl::MakeDirectoryInfo(Path path)
{
    std::shared_ptr<FileSystem> self = shared_from_this();
    return DirectoryInfo(std::move(path), std::move(self));
}

void FileSystemImpl::VokCreateDirectory(Path path)
{
    if (CreateDirectoryW(path.ToString().c_str(), nullptr))
        return;
    if (GetLastError() == ERROR_ALREADY_EXISTS)
        return;
    bool const lacksParent = GetLastError() == ERROR_PATH_NOT_FOUND && !path.DirectoryNormalized().empty();
    if (lacksParent)
        VokCreateDirectory(path.DriveAndDirectoryNormalized());
    // Required: a directory that somebody else made in between is reported.
    if (!lacksParent || !CreateDirectoryW(path.ToString().c_str(), nullptr))
        VOK_THROW_LAST_ERROR("CreateDirectory [{}]", path.ToString());
}

bool FileSystemImpl::DeleteDirectory(Path path, Error& error)
{
    bool existed = true;
    DeleteDirectoryInternal(std::move(path), false, existed, error);
    return existed;
}

bool FileSystemImpl::DeleteDirectory(Path path)
{
    WindowsError error;
    bool const existed = DeleteDirectory(std::move(path), error);
    if (error.Failed())
        throw WindowsError(error);
    return existed;
}

// Deleting directories

namespace
{

[[noreturn]] void EndTheProcess()
{
    std::fputs("Vok2: the process ends, because a path to be deleted doesn't fit into 260 code units\n", stderr);
    std::abort();
}

/// A text in a buffer as large as the platform's paths. One that doesn't fit ends the process, so that no cut path is
/// ever taken for another one.
class PathBuffer
{
public:
    /// For a directory, whose entries' names need at least a separator and a unit more.
    static void EndUnlessItFits(std::wstring_view directory)
    {
        if (directory.size() + 2 >= MAX_PATH)
            EndTheProcess();
    }

    void Assign(std::wstring_view text)
    {
        length = 0;
        Append(text);
    }
    void Append(std::wstring_view text)
    {
        if (text.size() >= MAX_PATH - length)
            EndTheProcess();
        text.copy(units + length, text.size());
        length += text.size();
        units[length] = 0;
    }
    void CutTo(std::size_t shorter)
    {
        length = shorter;
        units[length] = 0;
    }
    wchar_t const* Text() const { return units; }
    std::wstring_view View() const { return {units, length}; }

private:
    wchar_t units[MAX_PATH];
    std::size_t length = 0;
};

/// Without the separators at the end, with which a text means no entry of its directory.
std::wstring WithoutEnd(std::wstring const& text)
{
    return text.substr(0, text.find_last_not_of(L"\\/") + 1);
}

} // namespace

void FileSystemImpl::DeleteDirectoryInternal(Path path, bool contentsOnly, bool& existed, Error& error)
{
    existed = true;
    if (DWORD const refusal = Detail::CodeAgainstDeleting(path.ToString()); refusal != ERROR_SUCCESS)
    {
        VOK_SET_ERROR(error, WindowsError, refusal, L"Path [{}]", path.ToString());
        return;
    }
    PathBuffer::EndUnlessItFits(path.ToString()); // before a search, which may refuse such a text
    // A search for the directory's own name remembers the directory that it lies in, and that it is no link. So the
    // walk starts there, and refuses a link that is put in its place.
    WIN32_FIND_DATAW data;
    HandleOwner<Detail::FindHandleTraits> const own(FindFirstFileW(WithoutEnd(path.ToString()).c_str(), &data));
    if (!own.IsValid() && (GetLastError() == ERROR_FILE_NOT_FOUND || GetLastError() == ERROR_PATH_NOT_FOUND))
        DeleteDirectoryInternal(Missing{path}, existed);
    else if (!own.IsValid())
        VOK_SET_LAST_ERROR(error, L"");
    else if ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
        VOK_SET_ERROR(error, WindowsError, ERROR_DIRECTORY, L"Path [{}]", path.ToString());
    else
        DeleteDirectoryInternal(Found{path}, contentsOnly, existed, error);
}

void FileSystemImpl::DeleteDirectoryInternal(Found directory, bool contentsOnly, bool& existed, Error& error)
{
    Path const& path = directory.path;
    existed = true;
    PathBuffer prefix;
    PathBuffer entry;
    prefix.Assign(path.ToString());
    prefix.Append(L"\\*");
    entry.Assign(path.ToString());
    entry.Append(L"\\");
    WIN32_FIND_DATAW data;
    HandleOwner<Detail::FindHandleTraits> search(FindFirstFileW(prefix.Text(), &data));
    if (!search.IsValid() && GetLastError() == ERROR_PATH_NOT_FOUND)
        return DeleteDirectoryInternal(Missing{path}, existed);
    if (!search.IsValid())
    {
        VOK_SET_LAST_ERROR(error, L"");
        return;
    }
    // The entry that came with the handle is "." and isn't looked at.
    while (FindNextFileW(search.Get(), &data))
    {
        std::wstring_view const name = data.cFileName;
        if (name == L"." || name == L"..")
            continue;
        std::size_t const end = entry.View().size();
        entry.Append(name);
        if (!DeleteDirectoryInternal(data, entry.Text(), error))
            return;
        entry.CutTo(end);
    }
    if (GetLastError() != ERROR_NO_MORE_FILES)
    {
        VOK_SET_LAST_ERROR(error, L"Path [{}]", path.ToString());
        return;
    }
    search.Reset();
    if (!contentsOnly && !RemoveDirectoryW(path.ToString().c_str()))
        VOK_SET_LAST_ERROR(error, L"Path [{}]", path.ToString());
}

void FileSystemImpl::DeleteDirectoryInternal(Missing directory, bool& existed)
{
    VOK_LOG(info, L"Deleting directory that doesn't exist [{}]", directory.path.ToString());
    existed = false;
}

bool FileSystemImpl::DeleteDirectoryInternal(WIN32_FIND_DATAW const& entry, wchar_t const* path, Error& error)
{
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
    {
        bool ignored = false;
        Path const directory(path);
        DeleteDirectoryInternal(Found{directory}, false, ignored, error);
        if (!error.Failed())
            return true;
        VOK_SET_LAST_ERROR(error, L""); // required: of what happened further down the code alone is left
        return false;
    }
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0)
        SetFileAttributesW(path, entry.dwFileAttributes & ~FILE_ATTRIBUTE_READONLY);
    if (DeleteFileW(path))
        return true;
    VOK_SET_LAST_ERROR(error, L"DeleteFileW [{}]", path);
    return false;
}

// What is on disk

class PathInfo::Impl : public IPathInfo
{
public:
    Impl(Brindle::Vok::Path path, std::shared_ptr<FileSystem> fileSystem)
        : path(std::move(path)), fileSystem(std::move(fileSystem))
    {
    }

    Brindle::Vok::Path const& Path() const override { return path; }
    std::wstring const& ToString() const override { return path.ToString(); }
    void Refresh() override { loaded = false; }
    bool Exists() override
    {
        Load();
        return exists;
    }
    bool IsDirectory() override
    {
        Load();
        return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    }
    bool IsFile() override
    {
        Load();
        return exists && !IsDirectory();
    }
    FileAttributes Attributes() override
    {
        Load();
        return static_cast<FileAttributes>(attributes);
    }
    bool Delete() override { return false; } // required as it stands

    std::shared_ptr<FileSystem> const& Service() const { return fileSystem; }

private:
    void Load()
    {
        if (loaded)
            return;
        exists = true;
        attributes = GetFileAttributesW(path.ToString().c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES)
        {
            DWORD const code = GetLastError();
            if (code != ERROR_FILE_NOT_FOUND && code != ERROR_PATH_NOT_FOUND)
                VOK_THROW_LAST_ERROR(L"GetFileAttributes [{}]", path.ToString());
            attributes = 0;
            exists = false;
        }
        loaded = true;
    }

    Brindle::Vok::Path path;
    std::shared_ptr<FileSystem> fileSystem;
    bool loaded = false;
    DWORD attributes = 0;
    bool exists = false;
};

class DirectoryInfo::Impl : public PathInfo::Impl
{
public:
    using PathInfo::Impl::Impl;
    explicit Impl(PathInfo::Impl const& other) : PathInfo::Impl(other) {}
};

PathInfo::PathInfo(Brindle::Vok::Path path, std::shared_ptr<FileSystem> fileSystem)
    : impl(std::make_unique<Impl>(std::move(path), std::move(fileSystem)))
{
}

PathInfo::PathInfo(std::unique_ptr<Impl> impl) : impl(std::move(impl)) {}
PathInfo::PathInfo(PathInfo const& other) : impl(std::make_unique<Impl>(*other.impl)) {}
PathInfo::PathInfo(PathInfo&&) noexcept = default;
PathInfo& PathInfo::operator=(PathInfo&&) noexcept = default;
PathInfo::~PathInfo() = default;

PathInfo& PathInfo::operator=(PathInfo const& other)
{
    if (this != &other)
        impl = std::make_unique<Impl>(*other.impl);
    return *this;
}

Brindle::Vok::Path const& PathInfo::Path() const
{
    return impl->Path();
}

std::wstring const& PathInfo::ToString() const
{
    return impl->ToString();
}

void PathInfo::Refresh()
{
    impl->Refresh();
}

bool PathInfo::Exists()
{
    return impl->Exists();
}

bool PathInfo::IsDirectory()
{
    return impl->IsDirectory();
}

bool PathInfo::IsFile()
{
    return impl->IsFile();
}

FileAttributes PathInfo::Attributes()
{
    return impl->Attributes();
}

bool PathInfo::Delete()
{
    return impl->Delete();
}

DirectoryInfo::DirectoryInfo(Brindle::Vok::Path path, std::shared_ptr<FileSystem> fileSystem)
    : PathInfo(std::make_unique<Impl>(std::move(path), std::move(fileSystem)))
{
}

DirectoryInfo::DirectoryInfo(DirectoryInfo const& other) : PathInfo(std::make_unique<Impl>(*other.impl)) {}
DirectoryInfo::DirectoryInfo(DirectoryInfo&&) noexcept = default;
DirectoryInfo& DirectoryInfo::operator=(DirectoryInfo&&) noexcept = default;

DirectoryInfo& DirectoryInfo::operator=(DirectoryInfo const& other)
{
    if (this != &other)
        impl = std::make_unique<Impl>(*other.impl);
    return *this;
}

FileSystemIterator DirectoryInfo::begin()
{
    return FileSystemIterator(impl->Service(), Path(), FileSystemIterateType::All);
}

FileSystemIterator DirectoryInfo::end()
{
    return FileSystemIterator();
}

void DirectoryInfo::Create()
{
    impl->Service()->VokCreateDirectory(Path());
    Refresh();
}

DirectoryInfo DirectoryInfo::CreateSubdirectory(std::wstring const& name)
{
    Brindle::Vok::Path const joined = Brindle::Vok::Path::Join(Path(), name);
    impl->Service()->VokCreateDirectory(joined);
    return DirectoryInfo(joined, impl->Service());
}

bool DirectoryInfo::Delete()
{
    Refresh();
    return impl->Service()->DeleteDirectory(Path());
}

void DirectoryInfo::DeleteContent()
{
    Refresh();
    bool existed = true;
    WindowsError error;
    FileSystemImpl::DeleteDirectoryInternal(Path(), true, existed, error);
    if (error.Failed())
        throw WindowsError(error);
}

void DirectoryInfo::MoveTo(Brindle::Vok::Path)
{
    Refresh();
}

// Walking a directory

FileSystemIterator::FileSystemIterator(std::shared_ptr<FileSystem> service, Path path, FileSystemIterateType selected)
    : type(selected), fileSystem(std::move(service)), directory(std::move(path))
{
    FINDEX_SEARCH_OPS const operation =
        type == FileSystemIterateType::Directories ? FindExSearchLimitToDirectories : FindExSearchNameMatch;
    std::wstring const pattern = directory.ToString() + L"\\*";
    findHandle.Reset(FindFirstFileExW(pattern.c_str(), FindExInfoBasic, &findData, operation, nullptr, 0));
    if (findHandle.IsValid())
    {
        if (Skip())
            increment();
    }
    else if (GetLastError() != ERROR_FILE_NOT_FOUND)
        VOK_THROW_LAST_ERROR("FindFirstFileW [{}]", directory.ToString());
}

FileSystemIterator::FileSystemIterator() = default;
FileSystemIterator::FileSystemIterator(FileSystemIterator&&) noexcept = default;
FileSystemIterator::~FileSystemIterator() = default;
FileSystemIterator& FileSystemIterator::operator=(FileSystemIterator&&) noexcept = default;

void FileSystemIterator::increment()
{
    while (FindNextFileW(findHandle.Get(), &findData))
        if (!Skip())
            return;
    bool const isEnd = GetLastError() == ERROR_NO_MORE_FILES;
    findHandle.Reset();
    current.reset();
    if (!isEnd)
        VOK_THROW_LAST_ERROR("FindNextFileW");
}

bool FileSystemIterator::Skip()
{
    std::wstring_view const name = findData.cFileName;
    auto entry = std::make_unique<PathInfo>(Path::Join(directory, findData.cFileName), fileSystem);
    if (name == L"." || name == L"..")
        return true;
    if (type == FileSystemIterateType::Files && !entry->IsFile())
        return true;
    if (type == FileSystemIterateType::Directories && !entry->IsDirectory())
        return true;
    current = std::move(entry);
    return false;
}

// Temporary directories

struct TempDirectory::Impl
{
    Impl(std::shared_ptr<FileSystem> fileSystem, Brindle::Vok::Path path)
        : fileSystem(std::move(fileSystem)), path(std::move(path))
    {
    }
    Impl(Impl const&) = delete;
    Impl& operator=(Impl const&) = delete;
    ~Impl();

    std::shared_ptr<FileSystem> fileSystem;
    Brindle::Vok::Path path;
};

TempDirectory::Impl::~Impl()
{
    try
    {
        Error error;
        fileSystem->DeleteDirectory(path, error);
        if (error.Failed())
            VOK_LOG(error, L"Failed to delete TempDirectory[{}] error[{}]", path.ToString(), error);
    }
    catch (...) // of a subscriber, or of another service; there is nobody left to tell
    {
    }
}

TempDirectory::TempDirectory(std::shared_ptr<FileSystem> fileSystem, Brindle::Vok::Path path)
    : impl(std::make_unique<Impl>(std::move(fileSystem), std::move(path)))
{
}

TempDirectory::TempDirectory(TempDirectory&&) noexcept = default;
TempDirectory& TempDirectory::operator=(TempDirectory&&) noexcept = default;
TempDirectory::~TempDirectory() = default;

Brindle::Vok::Path const& TempDirectory::Path() const
{
    return impl->path;
}

void TempDirectory::Delete(Error& error)
{
    impl->fileSystem->DeleteDirectory(impl->path, error);
}

void TempDirectory::Delete()
{
    WindowsError error;
    Delete(error);
    if (error.Failed())
        throw WindowsError(error);
}

// Whole files

FileImpl::FileImpl(Path path) : path(std::move(path)) {}

// Line endings are normalised once, in the overload that was called and on its form of the text; where the encoding
// wants the other form, the other overload then gets Unchanged.

void FileImpl::WriteAllText(std::wstring const& text, TextEncoding encoding, ByteOrderMarkPolicy byteOrderMark,
                            LineEndingPolicy lineEndings)
{
    Detail::NormalizedText const normalized(text, lineEndings);
    std::wstring const& toWrite = normalized.Text();
    if (encoding == TextEncoding::Utf8)
    {
        std::string const narrow = WideToUtf8(toWrite);
        if (narrow.empty() && !toWrite.empty()) // longer than the platform converts: the file keeps what it has
            VOK_THROW(WindowsError, ERROR_FILE_TOO_LARGE, L"WriteFile content failed [{}]", path.ToString());
        return WriteAllText(narrow, TextEncoding::Utf8, byteOrderMark, LineEndingPolicy::Unchanged);
    }
    if (encoding != TextEncoding::Utf16)
        return; // required: nothing is written and nothing reported

    Detail::Utf16Units const units(toWrite); // made first: when memory is short the file keeps what it has
    if (units.ByteCount() > maximumByteCount)
        VOK_THROW(WindowsError, ERROR_FILE_TOO_LARGE, L"WriteFile content failed [{}]", path.ToString());
    FileOwner const file = OpenForWriting(path);
    DWORD bytesWritten = 0;
    if (byteOrderMark == ByteOrderMarkPolicy::Write)
    {
        if (!WriteFile(file.Get(), utf16ByteOrderMark, sizeof(utf16ByteOrderMark), &bytesWritten, nullptr))
            VOK_THROW_LAST_ERROR(L"WriteFile bom [{}].", path.ToString());
        VOK_ASSERT(bytesWritten == sizeof(utf16ByteOrderMark));
    }
    if (!WriteFile(file.Get(), units.Data(), static_cast<DWORD>(units.ByteCount()), &bytesWritten, nullptr))
        VOK_THROW_LAST_ERROR(L"WriteFile content failed [{}]", path.ToString());
    // The text is fixed; the file gets 2 bytes a code unit whatever the width of wchar_t.
    VOK_DETAIL_ASSERT(bytesWritten == units.ByteCount(), "bytesWritten == toWrite.size() * sizeof(wchar_t)");
}

void FileImpl::WriteAllText(std::string const& text, TextEncoding encoding, ByteOrderMarkPolicy byteOrderMark,
                            LineEndingPolicy lineEndings)
{
    Detail::NormalizedText const normalized(text, lineEndings);
    std::string const& toWrite = normalized.Text();
    if (encoding == TextEncoding::Utf16)
    {
        std::wstring const wide = Utf8ToWide(toWrite);
        if (wide.empty() && !toWrite.empty()) // longer than the platform converts: the file keeps what it has
            VOK_THROW(WindowsError, ERROR_FILE_TOO_LARGE, L"WriteFile content failed [{}]", path.ToString());
        return WriteAllText(wide, TextEncoding::Utf16, byteOrderMark, LineEndingPolicy::Unchanged);
    }
    if (encoding != TextEncoding::Utf8)
        return; // required: nothing is written and nothing reported
    if (toWrite.size() > maximumByteCount)
        VOK_THROW(WindowsError, ERROR_FILE_TOO_LARGE, L"WriteFile content failed [{}]", path.ToString());

    FileOwner const file = OpenForWriting(path);
    DWORD bytesWritten = 0;
    if (byteOrderMark == ByteOrderMarkPolicy::Write)
    {
        if (!WriteFile(file.Get(), utf8ByteOrderMark, sizeof(utf8ByteOrderMark), &bytesWritten, nullptr))
            VOK_THROW_LAST_ERROR(L"WriteFile bom [{}].", path.ToString());
        VOK_ASSERT(bytesWritten == sizeof(utf8ByteOrderMark));
    }
    if (!WriteFile(file.Get(), toWrite.data(), static_cast<DWORD>(toWrite.size()), &bytesWritten, nullptr))
        VOK_THROW_LAST_ERROR(L"WriteFile content failed [{}]", path.ToString());
    VOK_ASSERT(bytesWritten == toWrite.size());
}

std::string FileImpl::ReadAllTextA()
{
    FileOwner const file = OpenForReading(path);
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file.Get(), &size))
        VOK_THROW_LAST_ERROR("GetFileSize failed [{}]", path.ToString());
    if (size.HighPart != 0)
        VOK_THROW(WindowsError, ERROR_FUNCTION_FAILED, "GetFileSize returned a big number. [{}]", size.QuadPart);

    std::string text;
    Detail::ResizeUninitialized(text, size.LowPart);
    DWORD bytesRead = 0;
    if (!ReadFile(file.Get(), text.data(), size.LowPart, &bytesRead, nullptr))
        VOK_THROW_LAST_ERROR("ReadFile failed");
    if (bytesRead != size.LowPart)
        VOK_THROW(WindowsError, ERROR_FUNCTION_FAILED, "Failed to read entire file");
    return text;
}

} // namespace Brindle::Vok
