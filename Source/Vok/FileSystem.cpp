#include <Brindle/Vok/FileSystem.h>

#include <Brindle/Vok/Log.h>

#include "DirectoryWork.h"
#include "FileSystemImpl.h"
#include "Missing.h"
#include "PathText.h"
#include "TextFormat.h"
#include "ThrowIfFailed.h"
#include "UninitializedStorage.h"
#include "WholeFile.h"

#include <string_view>
#include <utility>

namespace Brindle::Vok
{

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
    Path const path = Detail::UnusedTemporaryPath();
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
    Detail::MakeDirectory(VOK_DETAIL_LOCATION, path, [this](Path parent) { VokCreateDirectory(std::move(parent)); });
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
    Detail::ThrowIfFailed(error);
    return existed;
}

void FileSystemImpl::DeleteDirectoryInternal(Path path, bool contentsOnly, bool& existed, Error& error)
{
    Detail::DeleteDirectory(VOK_DETAIL_LOCATION, path, contentsOnly, existed, error);
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
        attributes = Detail::AttributesOf(path.ToString());
        if (attributes == INVALID_FILE_ATTRIBUTES)
        {
            if (!Detail::IsMissing(GetLastError()))
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
    Detail::ThrowIfFailed(error);
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
    if (!Detail::RefuseNul(pattern))
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
    Detail::ThrowIfFailed(error);
}

// Whole files

namespace
{

// The assertions' texts are fixed; a file gets 2 bytes a code unit whatever the width of wchar_t.
constexpr Detail::TextFileForm utf16Form{Detail::utf16ByteOrderMark, "bytesWritten == sizeof(utf16ByteOrderMark)",
                                         "bytesWritten == toWrite.size() * sizeof(wchar_t)"};
constexpr Detail::TextFileForm utf8Form{Detail::utf8ByteOrderMark, "bytesWritten == sizeof(utf8ByteOrderMark)",
                                        "bytesWritten == toWrite.size()"};

} // namespace

FileImpl::FileImpl(Path path) : path(std::move(path)) {}

// Line endings are normalised once, in the overload that was called and on its form of the text; where the encoding
// wants the other form, the other overload then gets Unchanged. A text that is too long for the platform's conversion
// comes out of it empty. It is refused before the file is opened, so that the file keeps what it has. With any other
// encoding nothing is written and nothing reported, which is required.

void FileImpl::WriteAllText(std::wstring const& text, TextEncoding encoding, ByteOrderMarkPolicy byteOrderMark,
                            LineEndingPolicy lineEndings)
{
    Detail::NormalizedText const normalized(text, lineEndings);
    std::wstring const& toWrite = normalized.Text();
    if (encoding == TextEncoding::Utf16)
    {
        Detail::Utf16Units const units(toWrite);
        Detail::WriteTextFile(VOK_DETAIL_LOCATION, path, utf16Form, byteOrderMark, units.Data(), units.ByteCount());
    }
    else if (encoding == TextEncoding::Utf8)
    {
        std::string const narrow = WideToUtf8(toWrite);
        if (narrow.empty() && !toWrite.empty())
            Detail::RefuseLongContent(VOK_DETAIL_LOCATION, path);
        WriteAllText(narrow, TextEncoding::Utf8, byteOrderMark, LineEndingPolicy::Unchanged);
    }
}

void FileImpl::WriteAllText(std::string const& text, TextEncoding encoding, ByteOrderMarkPolicy byteOrderMark,
                            LineEndingPolicy lineEndings)
{
    Detail::NormalizedText const normalized(text, lineEndings);
    std::string const& toWrite = normalized.Text();
    if (encoding == TextEncoding::Utf16)
    {
        std::wstring const wide = Utf8ToWide(toWrite);
        if (wide.empty() && !toWrite.empty())
            Detail::RefuseLongContent(VOK_DETAIL_LOCATION, path);
        WriteAllText(wide, TextEncoding::Utf16, byteOrderMark, LineEndingPolicy::Unchanged);
    }
    else if (encoding == TextEncoding::Utf8)
        Detail::WriteTextFile(VOK_DETAIL_LOCATION, path, utf8Form, byteOrderMark, toWrite.data(), toWrite.size());
}

std::string FileImpl::ReadAllTextA()
{
    Detail::WholeFileReader const file(VOK_DETAIL_LOCATION, path);
    std::string text;
    Detail::ResizeUninitialized(text, file.Size());
    file.Read(text.data());
    return text;
}

} // namespace Brindle::Vok
