// The second generation's service and objects on the real platform.
#pragma once

#include <Brindle/Vok/FileSystemV2.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Brindle::Vok::V2
{

class FileSystem : public IFileSystem, public std::enable_shared_from_this<FileSystem>
{
public:
    std::unique_ptr<IDirectory> MakeTempDirectory() override;
    Path MakeTempFilePath() override;
    std::unique_ptr<IPathInfo> MakePathInfo(Path path) override;
    std::unique_ptr<IDirectory> MakeDirectory(Path path) override;
    std::unique_ptr<IFile> MakeFile(Path path) override;

    // What the objects do to directories. It needs no object of this class, but their functions' names do.

    /// Makes the directory and its missing parents. Throws WindowsError.
    void VokCreateDirectory(Path path);
    /// False if the directory wasn't there; `error` is assigned on failure only.
    bool DeleteDirectory(Path path, Error& error);
    /// The one worker behind all deletions of directories. `existed` tells whether the directory was there; `error` is
    /// assigned on failure only.
    void DeleteDirectoryInternal(Path path, bool contentsOnly, bool& existed, Error& error);
};

/// What the objects of all three interfaces have in common. It works with the service above only.
template <class T>
class PathInfoImpl : public T
{
public:
    /// Nothing is read.
    PathInfoImpl(Brindle::Vok::Path path, std::shared_ptr<FileSystem> fileSystem);
    /// Of an entry that a search has found in the directory. Its record answers all questions.
    PathInfoImpl(Brindle::Vok::Path const& directory, WIN32_FIND_DATAW const& data,
                 std::shared_ptr<FileSystem> fileSystem);

    Brindle::Vok::Path const& Path() const override { return path; }
    std::wstring const& ToString() const override { return path.ToString(); }
    void Refresh(Error& error) override;
    void Refresh() override;
    bool Exists() override;
    bool IsDirectory() override;
    bool IsFile() override;
    FileAttributeFlags Attributes() override;
    void SetReadOnly(bool readOnly, Error& error) override;
    void SetReadOnly(bool readOnly) override;
    bool Delete(Error& error) override;
    bool Delete() override;

protected:
    /// Asks the disk, unless it has been asked. Throws WindowsError; the next question asks again then.
    void Load();
    std::shared_ptr<FileSystem> const& Service() const { return fileSystem; }
    std::uint64_t LoadedSize() const { return size; }

private:
    void SetAttributes(unsigned long newAttributes, Error& error);

    Brindle::Vok::Path path;
    std::shared_ptr<FileSystem> fileSystem;
    bool loaded = false;
    DWORD attributes = INVALID_FILE_ATTRIBUTES;
    bool exists = false;
    std::uint64_t size = 0;
};

class PathInfo : public PathInfoImpl<IPathInfo>
{
public:
    using PathInfoImpl::PathInfoImpl;
};

class File : public PathInfoImpl<IFile>
{
public:
    using PathInfoImpl::PathInfoImpl;

    using PathInfoImpl::Delete;
    /// Deletes a read-only file too.
    bool Delete(Error& error) override;
    void WriteAllText(std::string const& text, TextEncoding encoding, ByteOrderMarkPolicy byteOrderMark,
                      LineEndingPolicy lineEndings) override;
    void WriteAllText(std::wstring const& text, TextEncoding encoding, ByteOrderMarkPolicy byteOrderMark,
                      LineEndingPolicy lineEndings) override;
    std::wstring ReadAllText(Error& error) override;
    std::wstring ReadAllText() override;
    std::string ReadAllTextA() override;
    void WriteAllBytes(std::vector<unsigned char> const& bytes) override;
    std::vector<unsigned char> ReadAllBytes() override;
    std::uint64_t Size() override;
};

class Directory : public PathInfoImpl<IDirectory>
{
public:
    using PathInfoImpl::PathInfoImpl;

    bool Delete(Error& error) override;
    bool Delete() override;
    void Create() override;
    std::unique_ptr<IDirectory> CreateSubdirectory(std::wstring const& name) override;
    void DeleteContent() override;
    std::vector<std::shared_ptr<IPathInfo>> PathInfos(std::wstring filter) override;
    std::vector<std::shared_ptr<IDirectory>> Directories(std::wstring filter) override;
    std::vector<std::shared_ptr<IFile>> Files(std::wstring filter) override;

private:
    template <class Object, class Interface>
    std::vector<std::shared_ptr<Interface>> Select(std::wstring const& filter, bool (IPathInfo::*isWanted)());
};

/// A directory that is deleted with its object.
class TempDirectory : public Directory
{
public:
    using Directory::Directory;
    TempDirectory(TempDirectory const&) = delete;
    TempDirectory& operator=(TempDirectory const&) = delete;
    ~TempDirectory() override;
};

} // namespace Brindle::Vok::V2
