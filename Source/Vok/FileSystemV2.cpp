#include <Brindle/Vok/FileSystemV2.h>

#include <Brindle/Vok/Log.h>
#include <Brindle/Vok/String.h>
#include <Brindle/Vok/VokWindows.h>

#include "DirectoryWork.h"
#include "FileSystemV2Impl.h"
#include "Missing.h"
#include "PathText.h"
#include "TextFormat.h"
#include "ThrowIfFailed.h"
#include "UninitializedStorage.h"
#include "WholeFile.h"

#include <algorithm>
#include <exception>
#include <span>
#include <string_view>
#include <utility>

namespace Brindle::Vok::V2
{

// The interfaces

IPathInfo::IPathInfo() = default;
IPathInfo::IPathInfo(IPathInfo const&) = default;
IPathInfo& IPathInfo::operator=(IPathInfo const&) = default;
IPathInfo::~IPathInfo() = default;

IFileSystem::IFileSystem() = default;
IFileSystem::IFileSystem(IFileSystem const&) = default;
IFileSystem& IFileSystem::operator=(IFileSystem const&) = default;
IFileSystem::~IFileSystem() = default;

// The service

std::shared_ptr<IFileSystem> MakeFileSystem()
{
    return std::make_shared<FileSystem>();
}

std::unique_ptr<IDirectory> FileSystem::MakeTempDirectory()
{
    Path path = Detail::UnusedTemporaryPath();
    VokCreateDirectory(path); // required: first, so it stays when no object can be made
    std::shared_ptr<FileSystem> self = shared_from_this();
    return std::make_unique<TempDirectory>(std::move(path), std::move(self));
}

Path FileSystem::MakeTempFilePath()
{
    return Detail::UnusedTemporaryPath(L".tmp");
}

std::unique_ptr<IPathInfo> FileSystem::MakePathInfo(Path path)
{
    std::shared_ptr<FileSystem> self = shared_from_this();
    return std::make_unique<PathInfo>(std::move(path), std::move(self));
}

std::unique_ptr<IDirectory> FileSystem::MakeDirectory(Path path)
{
    std::shared_ptr<FileSystem> self = shared_from_this();
    return std::make_unique<Directory>(std::move(path), std::move(self));
}

std::unique_ptr<IFile> FileSystem::MakeFile(Path path)
{
    std::shared_ptr<FileSystem> self = shared_from_this();
    return std::make_unique<File>(std::move(path), std::move(self));
}

void FileSystem::VokCreateDirectory(Path path)
{
    Detail::MakeDirectory(VOK_DETAIL_LOCATION, path, [this](Path parent) { VokCreateDirectory(std::move(parent)); });
}

bool FileSystem::DeleteDirectory(Path path, Error& error)
{
    bool existed = true;
    DeleteDirectoryInternal(std::move(path), false, existed, error);
    return existed;
}

void FileSystem::DeleteDirectoryInternal(Path path, bool contentsOnly, bool& existed, Error& error)
{
    Detail::DeleteDirectory(VOK_DETAIL_LOCATION, path, contentsOnly, existed, error);
}

// What is on disk

template <class T>
PathInfoImpl<T>::PathInfoImpl(Brindle::Vok::Path path, std::shared_ptr<FileSystem> fileSystem)
    : path(std::move(path)), fileSystem(std::move(fileSystem))
{
}

template <class T>
PathInfoImpl<T>::PathInfoImpl(Brindle::Vok::Path const& directory, WIN32_FIND_DATAW const& data,
                              std::shared_ptr<FileSystem> fileSystem)
    : path(Brindle::Vok::Path::Join(directory, data.cFileName)), fileSystem(std::move(fileSystem)), loaded(true),
      attributes(data.dwFileAttributes), exists(true), size(std::uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow)
{
}

template <class T>
void PathInfoImpl<T>::Load()
{
    if (loaded)
        return;
    exists = false;
    attributes = Detail::AttributesOf(ToString());
    if (attributes == INVALID_FILE_ATTRIBUTES)
    {
        if (!Detail::IsMissing(GetLastError()))
            VOK_THROW_LAST_ERROR(L"GetFileAttributes [{}]", ToString());
        loaded = true;
        return;
    }
    exists = true;
    DWORD const flags = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? FILE_FLAG_BACKUP_SEMANTICS : 0;
    WindowsError error;
    HandleOwner<Detail::InvalidHandleTraits> const file =
        VokCreateFile(ToString(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                      OPEN_EXISTING, flags, nullptr, error);
    if (error.Failed() && error.code().value() != ERROR_FILE_NOT_FOUND)
        throw WindowsError(error);
    if (error.Failed())
    {
        // Required: what vanished in between is missing only for the next question. This one goes on without a handle
        // and fails at the times, which nobody reads otherwise.
        attributes = INVALID_FILE_ATTRIBUTES;
        exists = false;
    }
    FILETIME creation;
    FILETIME lastAccess;
    FILETIME lastWrite;
    if (!GetFileTime(file.Get(), &creation, &lastAccess, &lastWrite))
        VOK_THROW_LAST_ERROR("GetFileTime");
    LARGE_INTEGER found;
    if (!GetFileSizeEx(file.Get(), &found))
        VOK_THROW_LAST_ERROR("GetFileSizeEx");
    size = static_cast<std::uint64_t>(found.QuadPart);
    loaded = true;
}

template <class T>
bool PathInfoImpl<T>::Exists()
{
    Load();
    return exists;
}

template <class T>
bool PathInfoImpl<T>::IsDirectory()
{
    Load();
    return exists && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

template <class T>
bool PathInfoImpl<T>::IsFile()
{
    Load();
    return exists && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

template <class T>
FileAttributeFlags PathInfoImpl<T>::Attributes()
{
    Load();
    return FileAttributeFlags(attributes);
}

template <class T>
void PathInfoImpl<T>::Refresh()
{
    loaded = false;
}

template <class T>
void PathInfoImpl<T>::Refresh(Error& error)
{
    loaded = false;
    error = [this]() -> Error // required: the statement names this lambda
    {
        try
        {
            Load();
            return {};
        }
        catch (std::exception const&)
        {
            return Detail::CurrentExceptionToError(__FILE__, __LINE__, VOK_FUNCTION_NAME);
        }
    }();
}

template <class T>
void PathInfoImpl<T>::SetReadOnly(bool readOnly, Error& error)
{
    DWORD const present = Detail::AttributesOf(ToString());
    if (present == INVALID_FILE_ATTRIBUTES)
        VOK_SET_LAST_ERROR(error, L"GetFileAttributes [{}]", ToString());
    else
        SetAttributes(readOnly ? present | FILE_ATTRIBUTE_READONLY : present & ~FILE_ATTRIBUTE_READONLY, error);
}

template <class T>
void PathInfoImpl<T>::SetReadOnly(bool readOnly)
{
    Error error;
    SetReadOnly(readOnly, error);
    Detail::ThrowIfFailed(error);
}

template <class T>
void PathInfoImpl<T>::SetAttributes(unsigned long newAttributes, Error& error)
{
    if (SetFileAttributesW(ToString().c_str(), static_cast<DWORD>(newAttributes)))
        attributes = static_cast<DWORD>(newAttributes);
    else
        VOK_SET_LAST_ERROR(error, "SetFileAttributes");
}

template <class T>
bool PathInfoImpl<T>::Delete(Error& error)
{
    Refresh(error);
    if (error.Failed())
        return false;
    if (IsDirectory())
        return fileSystem->DeleteDirectory(path, error);
    if (IsFile())
    {
        File(path, fileSystem).Delete(error);
        return true; // required, whether it went or not
    }
    VOK_ASSERT(!Exists());
    return false;
}

template <class T>
bool PathInfoImpl<T>::Delete()
{
    Error error;
    bool const existed = Delete(error);
    Detail::ThrowIfFailed(error);
    return existed;
}

template class PathInfoImpl<IPathInfo>;
template class PathInfoImpl<IDirectory>;
template class PathInfoImpl<IFile>;

// Directories

bool Directory::Delete(Error& error)
{
    return Service()->DeleteDirectory(Path(), error);
}

bool Directory::Delete()
{
    WindowsError error;
    bool const existed = Service()->DeleteDirectory(Path(), error);
    Detail::ThrowIfFailed(error);
    return existed;
}

void Directory::DeleteContent()
{
    Refresh();
    bool existed = true;
    WindowsError error;
    Service()->DeleteDirectoryInternal(Path(), true, existed, error);
    Detail::ThrowIfFailed(error);
}

void Directory::Create()
{
    Service()->VokCreateDirectory(Path());
    Refresh();
}

std::unique_ptr<IDirectory> Directory::CreateSubdirectory(std::wstring const& name)
{
    Brindle::Vok::Path joined = Brindle::Vok::Path::Join(Path(), name);
    Service()->VokCreateDirectory(joined);
    return std::make_unique<Directory>(std::move(joined), Service());
}

std::vector<std::shared_ptr<IPathInfo>> Directory::PathInfos(std::wstring filter)
{
    std::vector<std::shared_ptr<IPathInfo>> result;
    Brindle::Vok::Path const pattern = Brindle::Vok::Path::Join(Path(), std::move(filter));
    WIN32_FIND_DATAW data;
    HandleOwner<Detail::FindHandleTraits> search;
    if (!Detail::RefuseNul(pattern.ToString()))
        search.Reset(FindFirstFileW(pattern.ToString().c_str(), &data));
    if (!search.IsValid())
    {
        if (GetLastError() == ERROR_FILE_NOT_FOUND)
            return result;
        VOK_THROW_LAST_ERROR("FindFirstFileW [{}]", ToString());
    }
    do
    {
        std::wstring_view const name = data.cFileName;
        if (name == L"." || name == L"..")
            continue;
        // Each is made first and adopted then: lists are long, and the objects may be kept for long one by one.
        if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
            result.emplace_back(std::make_unique<Directory>(Path(), data, Service()));
        else
            result.emplace_back(std::make_unique<File>(Path(), data, Service()));
    } while (FindNextFileW(search.Get(), &data));
    if (GetLastError() != ERROR_NO_MORE_FILES)
        VOK_THROW_LAST_ERROR("FindNextFileW [{}]", ToString());
    return result;
}

template <class Object, class Interface>
std::vector<std::shared_ptr<Interface>> Directory::Select(std::wstring const& filter, bool (IPathInfo::*isWanted)())
{
    std::vector<std::shared_ptr<Interface>> result;
    for (std::shared_ptr<IPathInfo> const& entry : PathInfos(filter))
    {
        if ((*entry.*isWanted)())
            result.push_back(std::make_shared<Object>(entry->Path(), Service()));
    }
    return result;
}

std::vector<std::shared_ptr<IDirectory>> Directory::Directories(std::wstring filter)
{
    return Select<Directory, IDirectory>(filter, &IPathInfo::IsDirectory);
}

std::vector<std::shared_ptr<IFile>> Directory::Files(std::wstring filter)
{
    return Select<File, IFile>(filter, &IPathInfo::IsFile);
}

TempDirectory::~TempDirectory()
{
    try
    {
        bool existed = true;
        Error error;
        Service()->DeleteDirectoryInternal(Path(), false, existed, error);
        if (error.Failed())
            VOK_LOG(error, L"Failed to delete TempDirectory[{}] error[{}]", ToString(), error);
    }
    catch (...) // of a subscriber; there is nobody left to tell
    {
    }
}

// Files

namespace
{

// The assertions' texts are fixed; a file gets 2 bytes a code unit whatever the width of wchar_t.
constexpr Detail::TextFileForm utf16Form{Detail::utf16ByteOrderMark, "bytesWritten == std::size(utf16ByteOrderMark)",
                                         "bytesWritten == toWrite.size() * sizeof(wchar_t)"};
constexpr Detail::TextFileForm utf8Form{Detail::utf8ByteOrderMark, "bytesWritten == std::size(utf8ByteOrderMark)",
                                        "bytesWritten == toWrite.size()"};

bool StartsWith(std::vector<unsigned char> const& bytes, std::span<unsigned char const> mark)
{
    return bytes.size() >= mark.size() && std::equal(mark.begin(), mark.end(), bytes.begin());
}

std::span<unsigned char const> Behind(std::span<unsigned char const> mark, std::span<unsigned char const> bytes)
{
    return bytes.subspan(mark.size());
}

} // namespace

bool File::Delete(Error& error)
{
    auto const deleteIt = [this] { return !Detail::RefuseNul(ToString()) && DeleteFileW(ToString().c_str()); };
    if (deleteIt())
        return true;
    if (GetLastError() == ERROR_FILE_NOT_FOUND)
        return false;
    if (GetLastError() == ERROR_ACCESS_DENIED)
    {
        Error ignored;
        SetReadOnly(false, ignored);
    }
    if (deleteIt()) // required: a second attempt, whatever the first one failed with
        return true;
    if (GetLastError() != ERROR_FILE_NOT_FOUND)
        VOK_SET_LAST_ERROR(error, "DeleteFile failed");
    return false;
}

std::uint64_t File::Size()
{
    Load();
    return LoadedSize();
}

// Line endings are normalised once, in the overload that was called and on its form of the text; where the encoding
// wants the other form, the other overload then gets Unchanged. The conversions are those that throw, 87 for a text
// that is too long. With any other encoding nothing is written and nothing reported, which is required.

void File::WriteAllText(std::wstring const& text, TextEncoding encoding, ByteOrderMarkPolicy byteOrderMark,
                        LineEndingPolicy lineEndings)
{
    Detail::NormalizedText const normalized(text, lineEndings);
    std::wstring const& toWrite = normalized.Text();
    if (encoding == TextEncoding::Utf16)
    {
        Detail::Utf16Units const units(toWrite);
        Detail::WriteTextFile(VOK_DETAIL_LOCATION, Path(), utf16Form, byteOrderMark, units.Data(), units.ByteCount());
    }
    else if (encoding == TextEncoding::Utf8)
        WriteAllText(String::WstringToString(toWrite, CP_UTF8), TextEncoding::Utf8, byteOrderMark,
                     LineEndingPolicy::Unchanged);
}

void File::WriteAllText(std::string const& text, TextEncoding encoding, ByteOrderMarkPolicy byteOrderMark,
                        LineEndingPolicy lineEndings)
{
    Detail::NormalizedText const normalized(text, lineEndings);
    std::string const& toWrite = normalized.Text();
    if (encoding == TextEncoding::Utf16)
        WriteAllText(String::StringToWstring(toWrite, CP_UTF8), TextEncoding::Utf16, byteOrderMark,
                     LineEndingPolicy::Unchanged);
    else if (encoding == TextEncoding::Utf8)
        Detail::WriteTextFile(VOK_DETAIL_LOCATION, Path(), utf8Form, byteOrderMark, toWrite.data(), toWrite.size());
}

void File::WriteAllBytes(std::vector<unsigned char> const& bytes)
{
    Detail::WriteBinaryFile(VOK_DETAIL_LOCATION, Path(), bytes);
}

std::vector<unsigned char> File::ReadAllBytes()
{
    Detail::WholeFileReader const file(VOK_DETAIL_LOCATION, Path());
    std::vector<unsigned char> bytes;
    // Room for the terminators of the text readers. Of a size near 4 GiB the sum wraps, and the next line allocates.
    bytes.reserve(file.Size() + 2);
    Detail::ResizeUninitialized(bytes, file.Size());
    file.Read(bytes.data());
    return bytes;
}

std::wstring File::ReadAllText()
{
    std::vector<unsigned char> bytes = ReadAllBytes();
    if (StartsWith(bytes, Detail::utf8ByteOrderMark))
    {
        bytes.push_back(0);
        auto const* const text = reinterpret_cast<char const*>(bytes.data()) + std::size(Detail::utf8ByteOrderMark);
        return String::StringToWstring(text, CP_UTF8); // required: up to the first zero byte
    }
    if (StartsWith(bytes, Detail::utf16ByteOrderMark))
        return Detail::WideTextOf(Behind(Detail::utf16ByteOrderMark, bytes));
    return Detail::WideTextOf(bytes);
}

std::wstring File::ReadAllText(Error& error)
{
    std::wstring text;
    error = [this, &text]() -> Error // required: the statement names this lambda
    {
        try
        {
            text = ReadAllText();
            return {};
        }
        catch (std::exception const&)
        {
            return Detail::CurrentExceptionToError(__FILE__, __LINE__, VOK_FUNCTION_NAME);
        }
    }();
    return text;
}

std::string File::ReadAllTextA()
{
    std::vector<unsigned char> bytes = ReadAllBytes();
    if (StartsWith(bytes, Detail::utf16ByteOrderMark))
    {
        bytes.insert(bytes.end(), 2, 0); // the first one completes an odd byte at the end
        std::wstring const wide = Detail::WideTextOf(Behind(Detail::utf16ByteOrderMark, bytes));
        return String::WstringToString(wide.c_str(), CP_UTF8); // required: up to the first zero unit
    }
    std::span<unsigned char const> text = bytes;
    if (StartsWith(bytes, Detail::utf8ByteOrderMark))
        text = Behind(Detail::utf8ByteOrderMark, bytes);
    return {text.begin(), text.end()};
}

} // namespace Brindle::Vok::V2
