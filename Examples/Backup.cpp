// A small backup tool: copies what is new or changed below FROM into TO, which must both be there, and deletes nothing
// there. What can't be copied is told on standard error, the rest goes on, and the exit code is 1 at the end.
//
//     Backup FROM TO        directories of the host
//
// Files are compared by size and contents, not by times, since the interface can't give a copy the time of its
// original. It can't rename either: see Replace. Nobody else may change TO meanwhile, another Backup neither. Links are
// left out. The copies keep names, contents and whether they are read-only; otherwise they are for their owner alone.
// In messages F: is FROM and T: is TO.
#include "Arguments.h"
#include "FilePieces.h"
#include "OneLine.h"

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/FileSystem.h>
#include <Brindle/Vok/FileSystemV2.h>
#include <Brindle/Vok/Guid.h>
#include <Brindle/Vok/PlatformHost.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <sys/stat.h>

using namespace Brindle::Vok;

namespace
{

using Entry = std::shared_ptr<V2::IPathInfo>;

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
            std::fprintf(stderr, "failed: %s: %s\n", OneLine(path.ToStringA()).c_str(),
                         OneLine(exception.what()).c_str());
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
        if (copy && AreEqual(OpenForReading(entry.Path()), OpenForReading(target)))
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

    void Create(Path const& from, Path const& to)
    {
        FileHandle const source = OpenForReading(from);
        NewFile copy(to, 0);
        Transfer(source, copy.handle);
        copy.isKept = true;
    }

    /// The new contents are first in a file of their own, so that at every moment one whole copy is on the disk. If the
    /// program is killed meanwhile, that file stays.
    void Replace(Path const& from, V2::IPathInfo& copy)
    {
        NewFile fresh(Path::Join(L"T:\\", L"Backup-" + Guid::NewGuid() + L".tmp"), FILE_FLAG_WRITE_THROUGH);
        Transfer(OpenForReading(from), fresh.handle);
        fresh.handle.Reset();
        FileHandle const source = OpenForReading(fresh.path);
        if (copy.Attributes().IsReadOnly())
            copy.SetReadOnly(false);
        FileHandle const target = OpenForWriting(copy.Path(), TRUNCATE_EXISTING, FILE_FLAG_WRITE_THROUGH);
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

    std::shared_ptr<FileSystem> const first = MakeFileSystem();
    std::shared_ptr<V2::IFileSystem> const second = V2::MakeFileSystem();
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
