#include <Brindle/Platform/Modules.h>

#include "Descriptor.h"
#include "HandleTable.h"
#include "HostErrors.h"
#include "HostFile.h"
#include "LibraryFile.h"
#include "Names.h"
#include "Strings.h"
#include "SystemCalls.h"

#include <algorithm>
#include <cerrno>
#include <link.h>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Brindle::Vok::Platform
{
namespace
{

struct Unload
{
    void operator()(void* library) const noexcept { ::dlclose(library); }
};

using Loaded = std::unique_ptr<void, Unload>;

class ModuleObject final : public Object
{
public:
    static constexpr Kinds kinds = KindsOf(Kind::module);

    ModuleObject(Loaded loaded, std::string path) noexcept
        : Object(Kind::module), path(std::move(path)), loaded(std::move(loaded))
    {
    }

    /// Absolute, as the host has it.
    std::string const path;

private:
    Loaded loaded;
};

constexpr char const* executableLink = "/proc/self/exe";

bool IsExecutable(char const* path) noexcept
{
    struct stat own;
    struct stat other;
    return SystemCalls::StatusAt(AT_FDCWD, executableLink, &own, 0) == 0 &&
           SystemCalls::StatusAt(AT_FDCWD, path, &other, 0) == 0 && own.st_dev == other.st_dev &&
           own.st_ino == other.st_ino;
}

bool ReadExecutable(std::string& path)
{
    ssize_t count = 512;
    do
    {
        path.resize(2 * static_cast<std::size_t>(count));
        count = SystemCalls::ReadLink(executableLink, path.data(), path.size());
        if (count < 0)
            return FailWithHost(errno);
    } while (static_cast<std::size_t>(count) == path.size()); // it may have been cut
    path.resize(static_cast<std::size_t>(count));
    // The host says so behind the path of a file that is gone. A file may also really be called like that.
    constexpr std::string_view mark = " (deleted)";
    if (path.ends_with(mark) && !IsExecutable(path.c_str()))
        path.resize(path.size() - mark.size());
    return true;
}

// The host path, absolute, without `.` and `..`. False with the last error set.
bool FindPath(std::wstring_view text, HostPath& path)
{
    if (!path.Assign(text))
        return GetLastError() == ERROR_PATH_NOT_FOUND ? FailWith(ERROR_MOD_NOT_FOUND) : false;
    if (path.NamesDirectory())
        return FailWith(ERROR_MOD_NOT_FOUND);
    if (path.View().starts_with('/'))
        return true;
    std::string directory;
    if (!ReadWorkingDirectory(directory))
        return false;
    if (std::size_t const colon = text.find(L':'); colon != text.npos)
        text.remove_prefix(colon + 1);
    return path.Assign(WindowsPathFromHost(directory).append(L"\\").append(text));
}

// The directories in which the loader looks for a bare name.
std::vector<std::string> SearchedDirectories()
{
    Loaded const program(SystemCalls::OpenLibrary(nullptr, RTLD_LAZY));
    Dl_serinfo sizes;
    if (!program || ::dlinfo(program.get(), RTLD_DI_SERINFOSIZE, &sizes) != 0)
        return {};
    std::vector<std::max_align_t> memory(sizes.dls_size / sizeof(std::max_align_t) + 1);
    auto* const found = new (memory.data()) Dl_serinfo(sizes);
    std::vector<std::string> directories;
    if (::dlinfo(program.get(), RTLD_DI_SERINFO, found) == 0)
        for (unsigned at = 0; at < found->dls_cnt; ++at)
            directories.emplace_back(found->dls_serpath[at].dls_name);
    return directories;
}

// What the loader may have found in the first directory that has the name.
LibraryFile ExamineBareName(std::string_view name)
{
    for (std::string const& directory : SearchedDirectories())
        if (LibraryFile const file = ExamineLibrary((directory + '/').append(name).c_str());
            file.code != ERROR_MOD_NOT_FOUND)
            return file;
    return {ERROR_MOD_NOT_FOUND};
}

// Whether memory is what the loader lacked; it says so in errno only where the C library ran out of it.
bool IsMemoryShort(int error, std::size_t extent) noexcept
{
    if (error == ENOMEM)
        return true;
    if (extent == 0)
        return false;
    void* const memory = SystemCalls::ReserveMemory(extent);
    if (memory == MAP_FAILED)
        return true;
    SystemCalls::ReleaseMemory(memory, extent);
    return false;
}

// Why the loader refused a file.
DWORD CodeOfRefusal(LibraryFile const& file, int error) noexcept
{
    if (file.code != ERROR_SUCCESS && error != ENOMEM)
        return file.code;
    if (IsMemoryShort(error, file.extent))
        return ERROR_NOT_ENOUGH_MEMORY;
    return file.isProgram ? ERROR_BAD_EXE_FORMAT : ERROR_MOD_NOT_FOUND;
}

Loaded OpenLibrary(char const* name) noexcept
{
    errno = 0;
    return Loaded(SystemCalls::OpenLibrary(name, RTLD_NOW | RTLD_LOCAL));
}

Loaded LoadPath(std::wstring_view text, std::string& name)
{
    HostPath path;
    if (!FindPath(text, path))
        return nullptr;
    LibraryFile const file = ExamineLibrary(path.Text());
    if (file.code != ERROR_SUCCESS)
        return FailWith<Loaded>(file.code);
    // The loader would replace $LIB and the like by what they stand for, and load another file.
    bool const hasVariable = path.View().find('$') != path.View().npos;
    Descriptor const opened = hasVariable ? OpenHost(AT_FDCWD, path.Text(), O_RDONLY) : Descriptor();
    if (hasVariable && !opened)
        return FailWith<Loaded>(CodeFromHost(errno));
    if (hasVariable)
        name = path.View();
    Loaded loaded = OpenLibrary(hasVariable ? ("/proc/self/fd/" + std::to_string(opened.Get())).c_str() : path.Text());
    return loaded ? std::move(loaded) : FailWith<Loaded>(CodeOfRefusal(file, errno));
}

Loaded LoadBareName(std::wstring_view text)
{
    HostPath name;
    if (!name.Assign(text))
        return nullptr;
    Loaded loaded = OpenLibrary(name.Text());
    if (loaded)
        return loaded;
    int const error = errno;
    return FailWith<Loaded>(CodeOfRefusal(ExamineBareName(name.View()), error));
}

HANDLE LoadModule(std::wstring_view name)
{
    if (name.empty())
        return FailWith<HANDLE>(ERROR_INVALID_PARAMETER);
    std::string path; // that of a file which the loader knows by another name
    Loaded loaded = name.find_first_of(L"\\/:") == name.npos ? LoadBareName(name) : LoadPath(name, path);
    if (!loaded)
        return nullptr;
    link_map const* map = nullptr;
    if (::dlinfo(loaded.get(), RTLD_DI_LINKMAP, &map) != 0)
        return FailWith<HANDLE>(ERROR_MOD_NOT_FOUND);
    if (path.empty())
        path = map->l_name;
    if (path.find('/') == path.npos) // the kernel's own, which is no file
        return FailWith<HANDLE>(ERROR_MOD_NOT_FOUND);
    if (!MakeAbsolute(path))
        return nullptr;
    auto object = HandleTable::Make<ModuleObject>(std::move(loaded), std::move(path));
    return object ? object.Open() : nullptr;
}

// False with the last error set.
bool FindModulePath(HMODULE module, std::wstring& path)
{
    if (!module)
    {
        std::string executable;
        if (!ReadExecutable(executable))
            return false;
        path = WindowsPathFromHost(executable);
        return true;
    }
    auto const object = HandleTable::Find<ModuleObject>(reinterpret_cast<HANDLE>(module));
    if (object)
        path = WindowsPathFromHost(object->path);
    return static_cast<bool>(object);
}

template <class Character>
DWORD GiveCut(std::basic_string<Character> const& text, Character* buffer, DWORD size) noexcept
{
    if (CopyIfItFits(text, buffer, size))
        return static_cast<DWORD>(text.size());
    if (size != 0)
    {
        std::copy_n(text.data(), size - 1, buffer);
        buffer[size - 1] = Character();
    }
    FailWith(ERROR_INSUFFICIENT_BUFFER);
    return size;
}

DWORD GiveModulePath(HMODULE module, DWORD size, auto* buffer, auto convert)
{
    if (!buffer && size != 0)
        return FailWith<DWORD>(ERROR_INVALID_PARAMETER);
    std::wstring path;
    return FindModulePath(module, path) ? GiveCut(convert(path), buffer, size) : 0;
}

} // namespace
} // namespace Brindle::Vok::Platform

using namespace Brindle::Vok::Platform;

HMODULE LoadLibraryW(LPCWSTR name) noexcept
{
    return reinterpret_cast<HMODULE>(
        WithoutThrowing([=] { return LoadModule(name ? std::wstring_view(name) : std::wstring_view()); }));
}

BOOL FreeLibrary(HMODULE module) noexcept
{
    return HandleTable::Close(reinterpret_cast<HANDLE>(module), KindsOf(Kind::module));
}

DWORD GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size) noexcept
{
    return WithoutThrowing([=] { return GiveModulePath(module, size, buffer, std::identity()); });
}

DWORD GetModuleFileNameA(HMODULE module, LPSTR buffer, DWORD size) noexcept
{
    return WithoutThrowing([=] { return GiveModulePath(module, size, buffer, ToUtf8); });
}
