// A small backup tool: copies what is new or changed below FROM into TO, which must both be there, and deletes nothing
// there. What can't be copied is told on standard error, the rest goes on, and the exit code is 1 at the end.
//
//     Backup FROM TO        directories of the host
//
// Files are compared by size and contents, not by times, since the interface can't give a copy the time of its
// original. A changed file is written twice, since it can't rename either: see Replace. Links are left out. The copies
// keep names, contents and whether they are read-only; otherwise they are for their owner alone. Memory is needed for
// the lists of the directories on the way down, and 2 MiB for contents, however large a file is.
#include "Arguments.h"

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/FileSystem.h>
#include <Brindle/Vok/FileSystemV2.h>
#include <Brindle/Vok/Guid.h>
#include <Brindle/Vok/HandleOwner.h>
#include <Brindle/Vok/PlatformHost.h>
#include <Brindle/Vok/VokWindows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

using namespace Brindle::Vok;

namespace
{

using Handle = HandleOwner<Detail::InvalidHandleTraits>;
using Entry = std::shared_ptr<V2::IPathInfo>;
using Buffer = std::vector<char>;

// Contents go past both generations, which hold whole files in memory and read none of 4 GiB. A link that somebody puts
// in the place of a file isn't followed.

std::int64_t SizeOf(Handle const& file)
{
    LARGE_INTEGER size;
    if (!GetFileSizeEx(file.Get(), &size))
        VOK_THROW_LAST_ERROR("GetFileSizeEx failed");
    return size.QuadPart;
}

/// Throws for what has no size, such as a device or a FIFO, as its contents might never end. Whoever opens the file for
/// writing meanwhile, through this library, is refused.
Handle OpenForReading(Path const& path)
{
    Handle file = VokCreateFile(path.ToString(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    SizeOf(file);
    return file;
}

Handle OpenForWriting(Path const& path, DWORD disposition, DWORD flags)
{
    return VokCreateFile(path.ToString(), GENERIC_WRITE, 0, nullptr, disposition, FILE_FLAG_OPEN_REPARSE_POINT | flags,
                         nullptr);
}

/// The next bytes, none at the end.
DWORD Read(Handle const& file, Buffer& buffer)
{
    DWORD count = 0;
    if (!ReadFile(file.Get(), buffer.data(), static_cast<DWORD>(buffer.size()), &count, nullptr))
        VOK_THROW_LAST_ERROR("ReadFile failed");
    return count;
}

/// A file that this program makes, and that goes with this object unless it is to be kept.
struct NewFile
{
    NewFile(Path const& path, DWORD flags) : path(path), handle(OpenForWriting(path, CREATE_NEW, flags)) {}
    ~NewFile()
    {
        handle.Reset();
        if (!isKept)
            DeleteFileW(path.ToString().c_str());
    }
    NewFile(NewFile const&) = delete;
    NewFile& operator=(NewFile const&) = delete;

    Path const path;
    Handle handle;
    bool isKept = false;
};

/// F: is what is backed up, T: where it goes. So names that Windows syntax can't hold, or that aren't UTF-8, survive.
class Backup
{
public:
    /// Whether everything could be copied.
    bool Run()
    {
        CopyDirectory(L"F:\\", L"T:\\");
        std::printf("%d copied, %d unchanged, %d links left out, %d failed\n", copied, unchanged, links, failed);
        return failed == 0;
    }

private:
    /// What goes wrong with one entry is told, and the others go on.
    template <class Step>
    void Try(Path const& path, Step const& step)
    {
        try
        {
            step();
        }
        catch (std::exception const& exception)
        {
            ++failed;
            std::fprintf(stderr, "failed: %s: %s\n", path.ToStringA().c_str(), exception.what());
        }
    }

    void CopyDirectory(Path const& from, Path const& to)
    {
        Try(from,
            [&]
            {
                // The second generation lists: one search tells kind, size and links of all entries, without opening
                // or following one. Names are compared as texts, since a Path takes `a` and `A` for the same.
                std::map<std::wstring, Entry> there;
                for (Entry const& entry : second->MakeDirectory(to)->PathInfos(L"*"))
                    there.emplace(entry->Path().NameWithExtension(), entry);
                for (Entry const& entry : second->MakeDirectory(from)->PathInfos(L"*"))
                {
                    auto const found = there.find(entry->Path().NameWithExtension());
                    Try(entry->Path(),
                        [&] { CopyEntry(*entry, to, found == there.end() ? nullptr : found->second.get()); });
                }
            });
    }

    /// `copy` is what stands in the entry's place in the directory `to`, if there is anything.
    void CopyEntry(V2::IPathInfo& entry, Path const& to, V2::IPathInfo* copy)
    {
        if (entry.Attributes().IsLink())
        {
            ++links;
            return;
        }
        if (copy && (copy->Attributes().IsLink() || copy->IsDirectory() != entry.IsDirectory()))
            VOK_THROW(WindowsError, ERROR_ALREADY_EXISTS, "something else stands in the place of the copy");
        Path const target = Path::Join(to, entry.Path().NameWithExtension());
        if (!entry.IsDirectory())
        {
            CopyFile(entry, target, copy);
            return;
        }
        // The first generation makes directories: one call of the service, and no object for each.
        if (!copy)
            first->VokCreateDirectory(target);
        CopyDirectory(entry.Path(), target);
    }

    void CopyFile(V2::IPathInfo& entry, Path const& target, V2::IPathInfo* copy)
    {
        if (copy && AreEqual(entry.Path(), target))
            ++unchanged;
        else
        {
            if (copy)
                Replace(entry.Path(), *copy);
            else
                Create(entry.Path(), target);
            ++copied;
        }
        bool const isReadOnly = entry.Attributes().IsReadOnly();
        if (isReadOnly != (copy && copy->Attributes().IsReadOnly()))
            second->MakeFile(target)->SetReadOnly(isReadOnly);
    }

    bool AreEqual(Path const& a, Path const& b)
    {
        Handle const files[] = {OpenForReading(a), OpenForReading(b)};
        if (SizeOf(files[0]) != SizeOf(files[1]))
            return false;
        for (;;)
        {
            DWORD const count = Read(files[0], buffer);
            if (Read(files[1], otherBuffer) != count ||
                !std::equal(buffer.begin(), buffer.begin() + count, otherBuffer.begin()))
                return false;
            if (count == 0)
                return true;
        }
    }

    void Create(Path const& from, Path const& to)
    {
        Handle const source = OpenForReading(from);
        NewFile copy(to, 0);
        Transfer(source, copy.handle);
        copy.isKept = true;
    }

    /// The new contents are first in a file of their own, so that at every moment one whole copy is on the disk.
    void Replace(Path const& from, V2::IPathInfo& copy)
    {
        NewFile fresh(Path::Join(L"T:\\", L"Backup-" + Guid::NewGuid() + L".tmp"), FILE_FLAG_WRITE_THROUGH);
        Transfer(OpenForReading(from), fresh.handle);
        fresh.handle.Reset();
        Handle const source = OpenForReading(fresh.path);
        if (copy.Attributes().IsReadOnly())
            copy.SetReadOnly(false);
        Handle const target = OpenForWriting(copy.Path(), TRUNCATE_EXISTING, FILE_FLAG_WRITE_THROUGH);
        fresh.isKept = true; // the old one is gone
        try
        {
            Transfer(source, target);
        }
        catch (std::exception const&)
        {
            std::fprintf(stderr, "kept: the whole copy of the next one is %s\n", fresh.path.ToStringA().c_str());
            throw;
        }
        fresh.isKept = false;
    }

    void Transfer(Handle const& from, Handle const& to)
    {
        while (DWORD const count = Read(from, buffer))
        {
            DWORD written = 0;
            if (!WriteFile(to.Get(), buffer.data(), count, &written, nullptr))
                VOK_THROW_LAST_ERROR("WriteFile failed");
        }
    }

    std::shared_ptr<FileSystem> const first = MakeFileSystem();
    std::shared_ptr<V2::IFileSystem> const second = V2::MakeFileSystem();
    Buffer buffer = Buffer(1 << 20);
    Buffer otherBuffer = Buffer(1 << 20);
    int copied = 0;
    int unchanged = 0;
    int links = 0;
    int failed = 0;
};

/// Whether one directory is the other or below it, whatever they are called.
bool IsWithin(std::filesystem::path const& inner, std::filesystem::path const& outer)
{
    for (std::filesystem::path each = inner;; each = each.parent_path())
    {
        if (std::filesystem::equivalent(each, outer))
            return true;
        if (each == each.root_path())
            return false;
    }
}

void Map(wchar_t drive, std::filesystem::path const& directory)
{
    if (!Platform::MapDrive(drive, directory.string()))
        VOK_THROW_LAST_ERROR("MapDrive failed, directory[{}]", directory.string());
}

} // namespace

int main(int argc, char** argv)
{
    if (auto const code = EndWithUsage(argv[0], {argv + 1, argv + argc}, 2, 2, "FROM TO"))
        return *code;
    try
    {
        std::filesystem::path const from = std::filesystem::canonical(argv[1]);
        std::filesystem::path const to = std::filesystem::canonical(argv[2]);
        if (IsWithin(to, from) || IsWithin(from, to))
        {
            std::fprintf(stderr, "%s: FROM and TO must not be within each other\n", argv[0]);
            return 2;
        }
        umask(077);
        Map(L'F', from);
        Map(L'T', to);
        return Backup().Run() ? 0 : 1;
    }
    catch (std::exception const& exception)
    {
        std::fprintf(stderr, "failed: %s\n", exception.what());
        return 1;
    }
}
