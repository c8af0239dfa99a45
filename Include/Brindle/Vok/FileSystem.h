// The first generation of the file-system service: one replaceable object that makes everything else.
//
//     std::shared_ptr<FileSystem> fileSystem = MakeFileSystem();
//     std::unique_ptr<File> file = fileSystem->MakeFile(L"C:\\tmp\\a.txt");
//     file->WriteAllText(L"one\ntwo\n", TextEncoding::Utf8, ByteOrderMarkPolicy::Write, LineEndingPolicy::Windows);
//     std::string bytes = file->ReadAllTextA();
//     DirectoryInfo logs = fileSystem->MakeDirectoryInfo(L"C:\\tmp\\logs");
//     logs.CreateSubdirectory(L"2024\\old");                      // with the parents that are missing
//     for (PathInfo& entry : logs)                                // no deeper; the entry lives until the next one
//         if (entry.IsFile())
//             DeleteFileW(entry.ToString().c_str());              // PathInfo::Delete deletes nothing
//     logs.Delete();                                              // with everything in it
//     TempDirectory scratch = fileSystem->MakeTempDirectory();    // gone with its owner
//
// Not guaranteed: that a file is written whole or not at all; that a deletion which fails leaves everything as it was;
// that a walk meets what comes or goes meanwhile. A deletion that meets a path too long for it ends the process;
// FileSystem::DeleteDirectory tells the rest. There is no recursive walk.
//
// Wide text is UTF-16, one code unit a wchar_t, also where wchar_t has 32 bits: a character above U+FFFF is a surrogate
// pair there too, as Utf8ToWide makes it. A wider unit becomes U+FFFD.
//
// Threads: a service is used from any thread. A PathInfo, DirectoryInfo, FileSystemIterator or TempDirectory belongs to
// one thread at a time; copies are independent. Every object needs a service: a null one is undefined. What a log
// subscriber throws, or a service of the caller's own, passes through to the caller, except from destructors.
#pragma once

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/HandleOwner.h>
#include <Brindle/Vok/Path.h>
#include <Brindle/Vok/Platform.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <string>

namespace Brindle::Vok
{

class FileSystem;

/// What the bytes of a text file mean. Any other value writes nothing.
enum class TextEncoding : std::int32_t
{
    Utf16 = 0, ///< UTF-16, little-endian, 2 bytes a code unit
    Utf8 = 1   ///< as narrow text is
};

/// Whether a text file begins with the mark of its encoding, FF FE or EF BB BF. Any other value means Omit.
enum class ByteOrderMarkPolicy : std::int32_t
{
    Write = 0,
    Omit = 1
};

/// What happens to line endings. Any other value drops the text: the file then holds the mark, if any, and no more.
enum class LineEndingPolicy : std::int32_t
{
    Unchanged = 0, ///< the text is written as it is
    Windows = 1    ///< CR LF, lone CR and lone LF all become CR LF
};

/// One file on disk, for texts as a whole, which are read and written in memory. Writing is not atomic: a failure
/// part-way leaves a partial file. An object holds its path and no handle. The file is opened sharing nothing, so of
/// several callers at one time, in threads or processes, all but one fail at the open (ERROR_SHARING_VIOLATION, 32).
class VOK_EXPORT_TYPE File
{
public:
    virtual ~File() = default;

    /// Writes a text, replacing the file if there is one. Narrow text is UTF-8 whatever `encoding` says, wide text is
    /// UTF-16; an ill-formed part becomes U+FFFD where the encoding changes. A path with a NUL in it fails with 123 and
    /// touches nothing. Throws Error (itself, not a WindowsError) if the file can't be opened (5, 32, 3 ...) and
    /// WindowsError if writing fails, with the platform's code (112 for a full disk); what had been written then stays.
    /// A text of more than 0xFFFFFFFF bytes in the file, or too long to be converted (2^31 units, or
    /// as many bytes of UTF-8), fails with 223 and
    /// touches nothing.
    virtual void WriteAllText(std::string const& text, TextEncoding encoding, ByteOrderMarkPolicy byteOrderMark,
                              LineEndingPolicy lineEndings) = 0;
    /// The same for wide text.
    virtual void WriteAllText(std::wstring const& text, TextEncoding encoding, ByteOrderMarkPolicy byteOrderMark,
                              LineEndingPolicy lineEndings) = 0;

    /// The bytes of the file, unchanged: marks, line endings and zero bytes stay. A file that was written as UTF-16 has
    /// two bytes a code unit, the lower one first, from the third byte on if there is a mark. Throws Error if the file
    /// can't be opened (2, 3, 5, 32 ...) and WindowsError if reading fails: 1 for a device, which has no size, and 1627
    /// for a file of 4 GiB or more. What has no size until it is read, such as the files of Linux's /proc, comes out
    /// empty.
    ///
    /// Nothing here reads wide text. From UTF-8 make it with Utf8ToWide, behind the 3 bytes of a mark (which would
    /// otherwise be U+FEFF in the text). Of UTF-16 a mark is a unit like any other, and no code page of String.h takes
    /// it:
    ///
    ///     std::wstring wide;
    ///     auto const byteAt = [&bytes](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    ///     for (std::size_t i = bytes.starts_with("\xFF\xFE") ? 2 : 0; i + 1 < bytes.size(); i += 2)
    ///         wide.push_back(static_cast<wchar_t>(byteAt(i) | byteAt(i + 1) << 8));
    virtual std::string ReadAllTextA() = 0;
};

/// The platform's mask of file attributes (FILE_ATTRIBUTE_*), several at a time: a plain file has 0x20, a read-only one
/// 0x21. So ask for one by (static_cast<DWORD>(attributes) & FILE_ATTRIBUTE_READONLY) != 0.
enum class FileAttributes : std::uint32_t
{
    none = 0,        ///< nothing is there
    readOnly = 0x1,  ///< FILE_ATTRIBUTE_READONLY
    directory = 0x10 ///< FILE_ATTRIBUTE_DIRECTORY
};

/// What a PathInfo answers, as an interface; PathInfo tells what each does, fails with and leaves.
class VOK_EXPORT_TYPE IPathInfo
{
public:
    virtual ~IPathInfo() = default;
    virtual Brindle::Vok::Path const& Path() const = 0; ///< PathInfo::Path
    virtual std::wstring const& ToString() const = 0;   ///< PathInfo::ToString
    virtual void Refresh() = 0;                         ///< PathInfo::Refresh
    virtual bool Exists() = 0;                          ///< PathInfo::Exists
    virtual bool IsDirectory() = 0;                     ///< PathInfo::IsDirectory
    virtual bool IsFile() = 0;                          ///< PathInfo::IsFile
    virtual FileAttributes Attributes() = 0;            ///< PathInfo::Attributes
    virtual bool Delete() = 0;                          ///< PathInfo::Delete
};

/// A path on disk as a copyable value that answers what it is. It asks the disk at the first question, once, and keeps
/// the answer until Refresh; a copy keeps it too and goes its own way. Links are followed; one that leads nowhere is a
/// file. Questions throw WindowsError when the platform can't tell (5 for a directory on the way that may not be
/// searched, 123 for a text that no path can be, 206 for one that is too long, 53 for an unknown server), and the next
/// one then asks again; a path that is missing is no error. An object belongs to one thread at a time.
class VOK_EXPORT PathInfo
{
public:
    /// Nothing is read. The service is kept alive.
    PathInfo(Brindle::Vok::Path path, std::shared_ptr<FileSystem> fileSystem);
    /// With the other's answer, if it has one.
    PathInfo(PathInfo const& other);
    /// With the other's answer; the other may only be assigned to or destroyed then.
    PathInfo(PathInfo&& other) noexcept;
    /// With the other's path, answer and service in the place of this one's.
    PathInfo& operator=(PathInfo const& other);
    /// The same; the other may only be assigned to or destroyed then.
    PathInfo& operator=(PathInfo&& other) noexcept;
    ~PathInfo();

    /// The path as it was given; of an iterator's entry the directory's path joined with its name.
    Brindle::Vok::Path const& Path() const;
    /// The same as a text.
    std::wstring const& ToString() const;
    /// Forgets the answer. The disk isn't asked.
    void Refresh();
    /// Whether anything is there.
    bool Exists();
    /// Whether a directory is there, or a link to one.
    bool IsDirectory();
    /// Whether it exists and is no directory; a device is a file too.
    bool IsFile();
    /// 0 for what doesn't exist.
    FileAttributes Attributes();
    /// Deletes nothing and answers false, which is required. DirectoryInfo::Delete deletes a directory, DeleteFileW of
    /// Platform.h a file.
    bool Delete();

protected:
    class Impl;
    /// For DirectoryInfo.
    explicit PathInfo(std::unique_ptr<Impl> impl);

    /// Null in an object that was moved from.
    std::unique_ptr<Impl> impl;
};

/// Which entries a FileSystemIterator stands at. Any other value means All.
enum class FileSystemIterateType : std::int32_t
{
    All = 0,        ///< whatever is there
    Files = 1,      ///< what is a file to PathInfo::IsFile
    Directories = 2 ///< what is a directory to PathInfo::IsDirectory
};

/// Walks the entries of one directory, "." and ".." left out, in the platform's order. It owns the search, and memory
/// and descriptors don't grow with the directory. Entries that come or go meanwhile may be met or not. It belongs to
/// one thread at a time.
///
/// It moves and isn't copied: a single-pass input range for the algorithms, whose end is std::default_sentinel.
///
///     std::ranges::count_if(logs.begin(), std::default_sentinel, &PathInfo::IsFile);
///     std::ranges::copy(logs.begin(), std::default_sentinel, std::back_inserter(entries));    // with their answers
///     for (FileSystemIterator i(fileSystem, logs.Path(), FileSystemIterateType::Files); i != logs.end(); ++i)
///         ...
///
/// To PathInfo a link to a directory is a directory, so a recursive walk of one's own may run in a circle.
/// FindFirstFileW tells links apart, and sizes: of the entry's own path it gives a record with
/// FILE_ATTRIBUTE_REPARSE_POINT for a link.
///
/// While an iterator is open, deletions and walks of its thread below its directory take place in the directory that
/// was opened, also when it has been moved meanwhile and another one stands at its path. So end a walk before that.
class VOK_EXPORT FileSystemIterator
{
public:
    using iterator_category = std::input_iterator_tag; ///< one pass
    using iterator_concept = std::input_iterator_tag;  ///< one pass
    using value_type = PathInfo;                       ///< an entry, to be copied by whoever keeps it
    using difference_type = std::ptrdiff_t;            ///< no distance is ever taken
    using pointer = PathInfo*;                         ///< what operator-> gives
    using reference = PathInfo&;                       ///< what operator* gives

    /// The end.
    FileSystemIterator();
    /// Stands at the first entry of the selected kind, or at the end. Throws WindowsError for a directory that can't be
    /// searched (3 for a missing one, 267 for a file, 206 for a path that is too long, 5, 53, 123, 4 without
    /// descriptors), and what asking an entry for its kind throws. An empty path is the root of the current drive; its
    /// entries' paths are names alone.
    FileSystemIterator(std::shared_ptr<FileSystem> service, Path path, FileSystemIterateType selected);
    /// The source is at the end then.
    FileSystemIterator(FileSystemIterator&& other) noexcept;
    /// Ends the search that it had; the source is at the end then.
    FileSystemIterator& operator=(FileSystemIterator&& other) noexcept;
    ~FileSystemIterator();

    /// The entry, which lives until the iterator moves on. Undefined at the end.
    PathInfo& operator*() const { return dereference(); }
    /// The entry's members, under the same conditions.
    PathInfo* operator->() const { return &dereference(); }
    /// Throws WindowsError when the search fails, also at the end (6); the iterator is at the end then. When an entry
    /// can't be asked for its kind it throws too, but stays at the entry where it was, and goes on behind the other
    /// one.
    FileSystemIterator& operator++()
    {
        increment();
        return *this;
    }
    /// The same, and gives nothing: there is one pass.
    void operator++(int) { increment(); }
    /// Whether both are at the end: an iterator that stands at an entry is unequal to every one, itself included.
    friend bool operator==(FileSystemIterator const& lhs, FileSystemIterator const& rhs) { return lhs.equal(rhs); }
    /// Whether it is at the end.
    friend bool operator==(FileSystemIterator const& iterator, std::default_sentinel_t) { return !iterator.current; }

private:
    void increment();
    PathInfo& dereference() const { return *current; }
    bool equal(FileSystemIterator const& other) const { return !current && !other.current; }
    /// Whether the entry that was found is not to be delivered; if it is, it becomes the current one.
    bool Skip();

    std::unique_ptr<PathInfo> current;
    FileSystemIterateType type = FileSystemIterateType::All;
    HandleOwner<Detail::FindHandleTraits> findHandle;
    WIN32_FIND_DATAW findData{};
    std::shared_ptr<FileSystem> fileSystem;
    Path directory;
};

/// A directory on disk, and what can be done to it. It is copied, moved and asked as a PathInfo is.
class VOK_EXPORT DirectoryInfo : public PathInfo
{
public:
    /// Nothing is read or made. The service is kept alive.
    DirectoryInfo(Brindle::Vok::Path path, std::shared_ptr<FileSystem> fileSystem);
    /// With the other's answer, if it has one.
    DirectoryInfo(DirectoryInfo const& other);
    /// With the other's answer; the other may only be assigned to or destroyed then.
    DirectoryInfo(DirectoryInfo&& other) noexcept;
    /// With the other's path, answer and service in the place of this one's.
    DirectoryInfo& operator=(DirectoryInfo const& other);
    /// The same; the other may only be assigned to or destroyed then.
    DirectoryInfo& operator=(DirectoryInfo&& other) noexcept;

    /// Starts a walk over all entries; throws as the constructor of FileSystemIterator does.
    FileSystemIterator begin();
    /// The end of every walk.
    FileSystemIterator end();
    /// Makes it and its missing parents by the service, and refreshes. Throws as FileSystem::VokCreateDirectory does.
    void Create();
    /// Makes it in this directory by the service; the name may have several parts, and an empty one is this directory.
    /// This object isn't refreshed. Throws as FileSystem::VokCreateDirectory does.
    DirectoryInfo CreateSubdirectory(std::wstring const& name);
    /// Forgets the answer and deletes it with everything in it by the service. False if it wasn't there. Throws as
    /// FileSystem::DeleteDirectory does.
    bool Delete();
    /// Forgets the answer, deletes everything in it and keeps it. The service has no part in this. One that is missing
    /// is no error. Throws WindowsError, with the codes of FileSystem::DeleteDirectory.
    void DeleteContent();
    /// Refreshes and drops the destination; nothing moves. This is the interface as it stands.
    void MoveTo(Brindle::Vok::Path destination);

private:
    class Impl;
};

/// A move-only owner of a directory, which is deleted with all that is in it when its owner goes, whoever made it. When
/// that fails, a statement at error tells so and nothing is thrown (if the service or a subscriber throws, there is no
/// statement). It belongs to one thread at a time.
class VOK_EXPORT TempDirectory
{
public:
    /// Takes over a directory, which need not exist. Nothing is made or read.
    TempDirectory(std::shared_ptr<FileSystem> fileSystem, Brindle::Vok::Path path);
    /// The other one owns nothing then, and may only be assigned to or destroyed.
    TempDirectory(TempDirectory&& other) noexcept;
    /// Deletes the directory that it had. The other one owns nothing then, and may only be assigned to or destroyed.
    TempDirectory& operator=(TempDirectory&& other) noexcept;
    ~TempDirectory();

    /// The path as it was given.
    Brindle::Vok::Path const& Path() const;
    /// Deletes it now, as FileSystem::DeleteDirectory does, which assigns `error` on failure. It is looked for once
    /// more at the end, where a statement at info tells that it is missing.
    void Delete(Error& error);
    /// The same; throws WindowsError.
    void Delete();

private:
    struct Impl;
    std::unique_ptr<Impl> impl;
};

/// The service. A caller may pass an implementation of its own wherever one is asked for; what each operation promises
/// is said here. An implementation is used from any thread.
///
/// Tests may put a service of their own in its place. It is asked for what is made and deleted here; what a PathInfo or
/// a walk finds, and DirectoryInfo::DeleteContent, are always the disk's.
class VOK_EXPORT_TYPE FileSystem
{
public:
    virtual ~FileSystem() = default;

    /// A directory below `%TEMP%` that exists, is unique to this call, and is deleted by the object that is returned.
    /// Throws as VokCreateDirectory does, and ComError without a source of random numbers.
    virtual TempDirectory MakeTempDirectory() = 0;
    /// A value that holds the path, which need not exist, and keeps this service alive. Nothing is touched on disk.
    virtual PathInfo MakePathInfo(Path path) = 0;
    /// The same for a directory.
    virtual DirectoryInfo MakeDirectoryInfo(Path path) = 0;
    /// A new File for the path. Nothing is touched on disk, and no reference to the service is kept.
    virtual std::unique_ptr<File> MakeFile(Path path) = 0;
    /// Makes the directory and its missing parents. A path at which something is already, be it a file, is a success
    /// and stays as it is. Throws WindowsError: 5, 3 for a drive that isn't there and for an empty path, 123; and 183
    /// when it had to make the parents and the directory is there after that, because somebody else made it or because
    /// the text ends in a separator. Behind a share, missing parents are made on the current drive, and then it fails
    /// with 3.
    virtual void VokCreateDirectory(Path path) = 0;
    /// Deletes the directory and everything under it, read-only files too. False if it was not there, which a statement
    /// at info tells; true otherwise, a failure included, which is assigned to `error`: 32 for a file that is open, 5
    /// for a root, a read-only directory or a missing right, 87 for an empty path, 123, 267 for what is no directory or
    /// a link. What a deletion does, and what it doesn't:
    /// - It refuses a path that names no directory below a root, however it is written, and touches nothing then: a
    ///   root (`C:\`, `\`, `.`, `a\..`) with 5, an empty text with 87, one with a NUL in it with 123.
    /// - A directory whose path has 258 code units and a file with 260 end the process (abort, with a line on stderr):
    ///   no cut path is ever taken for another one. Such trees can be made and walked, but not deleted, by a
    ///   TempDirectory neither. Of the directory that is too deep nothing is deleted, what came before it is. `\\?\`
    ///   doesn't lift the limit.
    /// - A symbolic link that it meets is removed as a link, and nothing behind one is touched, not even when somebody
    ///   puts it in a directory's place meanwhile, that of the path itself included. Links on the way to the path are
    ///   followed; a path that is a link itself is refused with 267, or missing if the link's target is.
    /// - Read-only files go. A read-only directory stays and fails with 5; the superuser's loses what is in it before.
    /// - A file that is open anywhere through this library, in this process or another, without FILE_SHARE_DELETE stops
    ///   the deletion with 32. Files that other programs have open hold nothing up.
    /// - A plain file is refused with 267. An error that is passed in must not record a failure yet: the deletion would
    ///   stop after the first directory in it.
    /// - It stops at the first failure. What was deleted before is gone, nothing is restored, and a second deletion
    ///   goes on with the rest. The message names the file only if it lay in the top directory; from further down the
    ///   code is left. There is no log statement of a failure.
    /// - A file that another process opens as its very first one, while a deletion stands still for more than a fifth
    ///   of a second in the act of taking that file's name (a stopped process, a stalled disk), may lose its name.
    virtual bool DeleteDirectory(Path path, Error& error) = 0;
    /// The same; a failure is thrown, as a WindowsError.
    virtual bool DeleteDirectory(Path path) = 0;
};

/// The service on the real platform. Making it touches nothing on disk; it has no state and may be used from any
/// thread.
VOK_EXPORT std::shared_ptr<FileSystem> MakeFileSystem();

} // namespace Brindle::Vok
