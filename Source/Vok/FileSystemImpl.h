// The first generation's service and file on the real platform.
#pragma once

#include <Brindle/Vok/FileSystem.h>

#include <memory>
#include <string>

namespace Brindle::Vok
{

class FileImpl : public File
{
public:
    explicit FileImpl(Path path);

    void WriteAllText(std::string const& text, TextEncoding encoding, ByteOrderMarkPolicy byteOrderMark,
                      LineEndingPolicy lineEndings) override;
    void WriteAllText(std::wstring const& text, TextEncoding encoding, ByteOrderMarkPolicy byteOrderMark,
                      LineEndingPolicy lineEndings) override;
    std::string ReadAllTextA() override;

private:
    Path path;
};

class FileSystemImpl : public FileSystem, public std::enable_shared_from_this<FileSystemImpl>
{
public:
    TempDirectory MakeTempDirectory() override;
    PathInfo MakePathInfo(Path path) override;
    DirectoryInfo MakeDirectoryInfo(Path path) override;
    std::unique_ptr<File> MakeFile(Path path) override;
    void VokCreateDirectory(Path path) override;
    bool DeleteDirectory(Path path, Error& error) override;
    bool DeleteDirectory(Path path) override;

    /// The one worker behind all deletions of this generation. It needs no object, so that whoever holds another
    /// service gets it too. `existed` tells whether the directory was there; `error` is assigned on failure only.
    static void DeleteDirectoryInternal(Path path, bool contentsOnly, bool& existed, Error& error);
};

} // namespace Brindle::Vok
