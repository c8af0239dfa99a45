// The second generation of the file-system service: a factory of objects behind interfaces, which do the work.
//
//     std::shared_ptr<V2::IFileSystem> const fileSystem = V2::MakeFileSystem();
//     std::unique_ptr<V2::IDirectory> const logs = fileSystem->MakeDirectory(L"C:\\tmp\\logs");
//     logs->CreateSubdirectory(L"2024\\old");                                // with the parents that are missing
//     for (std::shared_ptr<V2::IPathInfo> const& entry : logs->PathInfos(L"*"))
//         if (auto const file = std::dynamic_pointer_cast<V2::IFile>(entry))  // what is no directory
//             std::cout << file->Size() << '\n';                              // without asking the disk
//     std::unique_ptr<V2::IFile> const file = fileSystem->MakeFile(L"C:\\tmp\\logs\\day.txt");
//     file->WriteAllText(L"one\n", TextEncoding::Utf8, ByteOrderMarkPolicy::Write, LineEndingPolicy::Windows);
//     std::wstring const text = file->ReadAllText();                          // L"one\r\n": by its mark it is UTF-8
//     file->SetReadOnly(true);
//     file->Delete();                                                         // read-only or not
//     std::unique_ptr<V2::IDirectory> const scratch = fileSystem->MakeTempDirectory();    // gone with its object
//
// Not guaranteed: that Exists() answers for what can't be opened (IPathInfo); that what is returned tells of a failure,
// which the Error& does; that a file is written whole or not at all, and what FileSystem.h doesn't guarantee of
// deletions. Wide text is UTF-16, one code unit a wchar_t.
//
// Threads: a service is used from any thread. An object belongs to one thread at a time; objects of one list are
// independent of each other and of the directory that listed them. Each keeps the service alive. What a log subscriber
// throws passes through to the caller, except from destructors.
#pragma once

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/FileSystem.h>
#include <Brindle/Vok/Path.h>
#include <Brindle/Vok/Platform.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Brindle::Vok::V2
{

/// The platform's mask of file attributes (FILE_ATTRIBUTE_*); 0xFFFFFFFF (INVALID_FILE_ATTRIBUTES) for what doesn't
/// exist.
class FileAttributeFlags
{
public:
    /// The mask as it is.
    constexpr explicit FileAttributeFlags(DWORD attributes) noexcept : mask(attributes) {}

    /// All of it.
    constexpr DWORD Mask() const noexcept { return mask; }
    /// Whether it exists and has all of these attributes.
    constexpr bool Has(DWORD attributes) const noexcept
    {
        return mask != INVALID_FILE_ATTRIBUTES && (mask & attributes) == attributes;
    }
    /// Whether it exists and is read-only.
    constexpr bool IsReadOnly() const noexcept { return Has(FILE_ATTRIBUTE_READONLY); }
    /// Whether it exists and is a directory.
    constexpr bool IsDirectory() const noexcept { return Has(FILE_ATTRIBUTE_DIRECTORY); }
    /// Whether it is a symbolic link itself, which only PathInfos tells; other questions follow links.
    constexpr bool IsLink() const noexcept { return Has(FILE_ATTRIBUTE_REPARSE_POINT); }

    /// Whether all attributes are the same.
    friend constexpr bool operator==(FileAttributeFlags, FileAttributeFlags) noexcept = default;

private:
    DWORD mask;
};

/// A path on disk. Objects are made by an IFileSystem; the constructors are for implementations, and do nothing.
///
/// An object asks the disk at the first question (Exists, IsDirectory, IsFile, Attributes, and Size of a file), once,
/// and keeps the answer until Refresh. What PathInfos lists has its answers from the listing; what Files and
/// Directories list has none yet, and asks when it is asked.
///
/// Asking opens the path, for reading, and shares everything (PathInfo of FileSystem.h doesn't open). The questions
/// throw WindowsError when the platform can't tell or the path is there and can't be opened, Exists included: 5 without
/// the right to read, 32 while somebody, in this process or another one, has the file open without FILE_SHARE_READ (as
/// reading and writing a whole file does), 1 for a FIFO or a device, which have no size, 55 for a socket, 123 for a
/// text that no path can be, 206 for one that is too long, 53 for an unknown server, 4 without descriptors. The next
/// question then asks again. A path that is missing is no error, but one that vanishes in the middle of a question
/// throws 6 ("GetFileTime"), or 3 if its directory vanishes too, and is missing for the next one. A symbolic link that
/// leads nowhere throws 6 every time.
///
///                               assigns `error`   gives after a failure                      logs
///     Refresh                   always                                                       "Caught ..."
///     ReadAllText               always            an empty text                              "Caught ..."
///     Delete of MakePathInfo    always            true; false where the questions failed     "Caught ...", for those
///     Delete of an IFile        on failure        false                                      nothing
///     Delete of an IDirectory   on failure        true                                       nothing
///     SetReadOnly               on failure                                                   nothing
///
/// So ask `error`, not what is returned. Those that assign on failure need an Error that records none yet: with one
/// from before, a deletion of a directory stops after the first directory in it (18), and the others seem to have
/// failed. Deletions and SetReadOnly without Error& throw that error, and so does DeleteContent, which has no other
/// form; they log as above. Refresh() asks nothing and never fails. Whatever else fails with an Error logs a statement
/// at error before it throws, "Throwing ..." or "Throwing last error ...", also where "Caught ...", at error too,
/// follows. One failure logs nothing: a path that can't be opened, be it for a question or to be read or written.
class VOK_EXPORT IPathInfo
{
public:
    IPathInfo();                                  ///< nothing to hold
    IPathInfo(IPathInfo const& other);            ///< nothing to copy
    IPathInfo& operator=(IPathInfo const& other); ///< nothing to copy
    virtual ~IPathInfo();

    /// The path as it was given; of a listed entry the directory's path joined with its name. The disk isn't asked.
    virtual Brindle::Vok::Path const& Path() const = 0;
    /// The same as a text.
    virtual std::wstring const& ToString() const = 0;

    /// Forgets the answers and asks the disk at once. A question's failure is assigned to `error`, otherwise success
    /// is, whatever was in it.
    virtual void Refresh(Error& error) = 0;
    /// Forgets the answers. The disk isn't asked.
    virtual void Refresh() = 0;

    /// Whether anything is there, a file, a directory or something else.
    virtual bool Exists() = 0;
    /// Whether it exists and is a directory. A link to one is one, unless PathInfos listed it.
    virtual bool IsDirectory() = 0;
    /// Whether it exists and is no directory. A link that PathInfos listed is a file, wherever it leads; one that Files
    /// listed follows it when it is asked, as any object that asks the disk.
    virtual bool IsFile() = 0;
    /// 0xFFFFFFFF for what doesn't exist.
    virtual FileAttributeFlags Attributes() = 0;

    /// Makes it read-only or writable: takes all write permissions, or gives the owner's. Assigned to `error` is 2 or 3
    /// for what is missing, 5, 123. After a success the attributes that a loaded object answers have changed too.
    virtual void SetReadOnly(bool readOnly, Error& error) = 0;
    /// The same; throws Error.
    virtual void SetReadOnly(bool readOnly) = 0;

    /// Deletes what is there: a directory with everything in it, or a file, read-only or not. False if nothing was
    /// there. When the deletion fails, `error` is assigned, and an IFile gives false, an IDirectory and an object of
    /// MakePathInfo true. The latter asks the disk anew first, gives false if that fails, and keeps these answers; the
    /// others don't ask. An object of MakePathInfo can't delete what can't be opened or is a link to a directory:
    /// MakeFile's can.
    virtual bool Delete(Error& error) = 0;
    /// The same; throws Error.
    virtual bool Delete() = 0;
};

/// A file. It is opened for each call, and no handle is kept. Reading and writing share nothing, so while they last
/// every other opening of the file fails with 32, and they fail so while somebody else has it open. Both work in
/// memory, on the whole file. Writing is not atomic: a failure part-way leaves a partial file.
///
/// A file's answers don't change by what is written through it; Refresh makes them new.
class VOK_EXPORT_TYPE IFile : public IPathInfo
{
public:
    using IPathInfo::Delete;
    /// False if nothing was there, and when it fails: with 3 for a missing directory, 5 for a directory or a missing
    /// right, 32 for a file that is open and not shared for deletion, 123. The text is "DeleteFile failed" without the
    /// path, which is required. Whatever fails with another code than 2 is tried twice; what fails with 5 is made
    /// writable in between, a directory too, and stays so if that doesn't help. A link goes itself, not what it leads
    /// to, but what it leads to may be made writable.
    bool Delete(Error& error) override = 0;

    /// Writes a text, replacing the file if there is one. Narrow text is UTF-8 whatever `encoding` says, wide text is
    /// UTF-16; an ill-formed part becomes U+FFFD where the encoding changes. Any other encoding writes nothing. Throws
    /// Error (itself, not a WindowsError) if the file can't be opened (3, 5, 32, 123 ...) and WindowsError if writing
    /// fails, with the platform's code (112 for a full disk). A text of more than 0xFFFFFFFF bytes in the file fails
    /// with 223, one too long to be converted with 87 (2^31 units) or 534 (as many bytes of UTF-8); all touch nothing.
    virtual void WriteAllText(std::string const& text, TextEncoding encoding, ByteOrderMarkPolicy byteOrderMark,
                              LineEndingPolicy lineEndings) = 0;
    /// The same for wide text.
    virtual void WriteAllText(std::wstring const& text, TextEncoding encoding, ByteOrderMarkPolicy byteOrderMark,
                              LineEndingPolicy lineEndings) = 0;

    /// Assigns to `error` in every case, success or why the text couldn't be read, a lack of memory too (14); the text
    /// is empty then.
    virtual std::wstring ReadAllText(Error& error) = 0;
    /// The text of the file by its mark. Behind EF BB BF it is UTF-8, up to the first zero byte. Everything else is
    /// UTF-16, low byte first, with zero units in it if there are any: behind FF FE, and from the first byte on in a
    /// file without a mark, however it looks. An odd byte at the end is dropped then. So a file of plain ASCII comes
    /// out as pairs of its bytes; ReadAllTextA reads that. Line endings stay. Throws as ReadAllBytes does, and
    /// WindowsError 87 for UTF-8 of 2 GiB or more.
    virtual std::wstring ReadAllText() = 0;
    /// Behind FF FE the UTF-8 form of the text up to the first zero unit, where an odd byte at the end counts as a unit
    /// of its own. Everything else is the bytes as they are, without a mark EF BB BF. Line endings stay. Throws as
    /// ReadAllText does.
    virtual std::string ReadAllTextA() = 0;

    /// Writes the bytes, replacing the file if there is one. Throws as WriteAllText does.
    virtual void WriteAllBytes(std::vector<unsigned char> const& bytes) = 0;
    /// The bytes of the file. Throws Error if it can't be opened (2, 3, 5, 32 ...) and WindowsError if reading fails: 1
    /// for a device, which has no size, and 1627 for a file of 4 GiB or more and for one that became shorter meanwhile.
    /// What has no size until it is read, such as the files of Linux's /proc, comes out empty.
    virtual std::vector<unsigned char> ReadAllBytes() = 0;

    /// In bytes, as the questions of IPathInfo are answered: from the listing, or from when the disk was first asked. 0
    /// for what was never there and for a link that PathInfos listed; what has gone keeps the size that it had.
    virtual std::uint64_t Size() = 0;
};

/// A directory. Deletion and creation don't change its answers, but for Create and DeleteContent, which forget them.
///
/// PathInfos, Directories and Files list the entries that fit a pattern of the platform, in the platform's order, no
/// deeper: `*` for all, `*.txt`, a plain name. `*` stands for any characters and `?` for one, or for none at the end or
/// in front of a dot; `*.` finds names without a dot, and `*.*` all; the platform's own wildcards, which no name can
/// hold, are known too; A to Z fit a to z. A plain name is found as the host has it, in its case. No match is an empty
/// list. They throw WindowsError: 3 for a missing directory, 267 for what is none, 206 for a path that is too long, 5,
/// 53, 123, 4 without descriptors. "." and ".." are left out. An entry that comes or goes meanwhile is met or not.
///
/// Each entry's path is that of the directory joined with the entry's bare name. So a pattern with a directory part
/// (`sub\*`) gives paths without it, and an empty one, which finds the directory itself, gives its path joined with its
/// own name. Of an empty path it is the working directory that is searched. On Linux these three may take a second
/// thread for help while they list a large directory; it runs no code of the host, has all signals blocked and is gone
/// when they return.
class VOK_EXPORT_TYPE IDirectory : public IPathInfo
{
public:
    /// Deletes it with everything in it. False if it wasn't there, which a statement at info tells; true otherwise,
    /// also when it fails: 32 for a file that is open, 5 for a root, a read-only directory or a missing right, 87 for
    /// an empty path, 123, 267 for what is no directory or a link. What was deleted before a failure is gone. It is the
    /// deletion of the first generation: FileSystem::DeleteDirectory of FileSystem.h tells all that it refuses, what
    /// stops it, and which lengths of paths end the process.
    bool Delete(Error& error) override = 0;
    /// The same; throws WindowsError.
    bool Delete() override = 0;

    /// Makes it and its missing parents, and forgets its answers after a success. A path at which something is already,
    /// be it a file, is a success and stays as it is. Throws WindowsError: 5, 3 for a drive that isn't there and for an
    /// empty path, 123; and 183 when it had to make the parents and the directory is there after that, because somebody
    /// else made it or because the text ends in a separator. Behind a share, missing parents are made on the current
    /// drive, and then it fails with 3.
    virtual void Create() = 0;
    /// Makes a directory in this one in the same way. The name may have several parts; it is joined to the path as it
    /// stands, so `..` leads out, and an empty one is this directory.
    virtual std::unique_ptr<IDirectory> CreateSubdirectory(std::wstring const& name) = 0;
    /// Deletes everything in it, keeps it, and forgets its answers in any case. One that is missing is no error. Throws
    /// WindowsError, with the codes of Delete.
    virtual void DeleteContent() = 0;

    /// An IDirectory for each directory, and an IFile for everything else, links too. All have their answers.
    virtual std::vector<std::shared_ptr<IPathInfo>> PathInfos(std::wstring filter) = 0;
    /// The directories alone, without answers: each asks the disk when it is first asked.
    virtual std::vector<std::shared_ptr<IDirectory>> Directories(std::wstring filter) = 0;
    /// The others, in the same way.
    virtual std::vector<std::shared_ptr<IFile>> Files(std::wstring filter) = 0;
};

/// The service: a factory that touches nothing on disk, but for MakeTempDirectory, and may be used from any thread. A
/// replacement supplies its own objects behind all three interfaces.
class VOK_EXPORT IFileSystem
{
public:
    IFileSystem();                                    ///< nothing to hold
    IFileSystem(IFileSystem const& other);            ///< nothing to copy
    IFileSystem& operator=(IFileSystem const& other); ///< nothing to copy
    virtual ~IFileSystem();

    /// A directory below `%TEMP%` that exists, is unique to this call, and is deleted with the object, with all that is
    /// in it. When that fails, a statement at error tells so and nothing is thrown; when it is gone already, one at
    /// info. Throws as IDirectory::Create does, and ComError without a source of random numbers.
    virtual std::unique_ptr<IDirectory> MakeTempDirectory() = 0;
    /// A path below `%TEMP%`, which ends in ".tmp" and at which nothing is; `%TEMP%` itself is taken as it is. Nothing
    /// is made. Throws ComError without a source of random numbers.
    virtual Path MakeTempFilePath() = 0;
    /// An object for a path, whatever is there or isn't.
    virtual std::unique_ptr<IPathInfo> MakePathInfo(Path path) = 0;
    /// The same, to be made, listed or deleted as a directory.
    virtual std::unique_ptr<IDirectory> MakeDirectory(Path path) = 0;
    /// The same, to be read, written or deleted as a file.
    virtual std::unique_ptr<IFile> MakeFile(Path path) = 0;
};

/// The service on the real platform. It has no state; the objects that it makes keep it alive.
VOK_EXPORT std::shared_ptr<IFileSystem> MakeFileSystem();

} // namespace Brindle::Vok::V2
