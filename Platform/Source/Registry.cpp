#include <Brindle/Platform/Registry.h>

#include "Ascii.h"
#include "Descriptor.h"
#include "DirectoryStream.h"
#include "HandleTable.h"
#include "HostErrors.h"
#include "Mappings.h"
#include "Strings.h"
#include "Utf.h"

#include <Brindle/Platform/Files.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace Brindle::Vok::Platform
{
namespace
{

// The directory behind the handle of a key. Only subkeys are opened by way of it.
class KeyObject final : public Object
{
public:
    static constexpr Kinds kinds = KindsOf(Kind::registryKey);

    explicit KeyObject(Descriptor&& opened) noexcept : Object(Kind::registryKey), directory(std::move(opened)) {}

    Descriptor const directory;
};

constexpr int keyFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW;
constexpr REGSAM bothViews = KEY_WOW64_32KEY | KEY_WOW64_64KEY;
constexpr REGSAM rightsToRead = KEY_READ | SYNCHRONIZE | GENERIC_READ | GENERIC_EXECUTE;

// A file or a link where a key is looked for is no key.
bool FailOnKey(int error) noexcept
{
    bool const isMissing = error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG;
    return FailWith(isMissing ? ERROR_FILE_NOT_FOUND : CodeFromHost(error));
}

// All names that differ from the given one in case only, in a fixed order.
bool FindAlike(int directory, std::string_view name, std::vector<std::string>& alike)
{
    Descriptor readable = OpenHost(directory, ".", O_RDONLY | O_DIRECTORY);
    if (!readable)
        return FailOnKey(errno);
    DirectoryStream stream(readable.Release(), true);
    DirectoryStream::Entry entry;
    while (stream.Next(entry))
        if (EqualWithoutCase(std::string_view(entry.name, entry.length), name))
            alike.emplace_back(entry.name, entry.length);
    std::ranges::sort(alike);
    return GetLastError() == ERROR_NO_MORE_FILES;
}

// The way through the keys, one name after the other.
class Walk
{
public:
    // Where the way begins must stay open until it ends.
    explicit Walk(int start) noexcept : start(start) {}

    int Get() const noexcept { return current ? current.Get() : start; }

    bool Enter(std::wstring_view wideName)
    {
        // No directory on the host has these as its name.
        bool const isPossible = wideName != L"." && wideName != L".." && wideName.find(L'/') == wideName.npos &&
                                Utf::IsValidWide(wideName.data(), wideName.size());
        if (!isPossible)
            return FailWith(ERROR_FILE_NOT_FOUND);
        std::string const name = ToUtf8(wideName);
        if (Open(name))
            return true;
        DWORD const code = GetLastError();
        std::vector<std::string> alike;
        if (code != ERROR_FILE_NOT_FOUND || !FindAlike(Get(), name, alike))
            return false;
        for (std::string const& each : alike)
        {
            if (Open(each))
                return true;
            if (GetLastError() != code) // it may be there
                return false;
        }
        return FailWith(code);
    }

private:
    bool Open(std::string const& name) noexcept
    {
        Descriptor opened = OpenHost(Get(), name.c_str(), keyFlags);
        if (!opened)
            return FailOnKey(errno);
        current = std::move(opened);
        return true;
    }

    int const start;
    Descriptor current;
};

bool IsAllowed(int directory, REGSAM access) noexcept
{
    if ((access & ~(rightsToRead | bothViews | MAXIMUM_ALLOWED)) != 0)
        return FailWith(ERROR_ACCESS_DENIED);
    return OpenHost(directory, ".", O_RDONLY | O_DIRECTORY) || FailOnKey(errno);
}

// Makes the key at the end of the names below a directory.
bool OpenBelow(int directory, std::wstring_view names, REGSAM access, HKEY& result)
{
    Walk walk(directory);
    for (std::size_t begin = 0; (begin = names.find_first_not_of(L'\\', begin)) != names.npos;)
    {
        std::size_t const end = std::min(names.find(L'\\', begin), names.size());
        if (!walk.Enter(names.substr(begin, end - begin)))
            return false;
        begin = end;
    }
    if (!IsAllowed(walk.Get(), access))
        return false;
    // One of its own, also for the key itself.
    Descriptor opened = OpenHost(walk.Get(), ".", keyFlags);
    if (!opened)
        return FailOnKey(errno);
    auto key = HandleTable::Make<KeyObject>(std::move(opened));
    if (!key)
        return false;
    result = reinterpret_cast<HKEY>(key.Open());
    return true;
}

bool OpenBelowRoot(HKEY root, std::wstring_view names, REGSAM access, HKEY& result)
{
    std::string_view mapped;
    if (!FindRegistryRoot(root, mapped))
        return false;
    Descriptor const directory = OpenHost(AT_FDCWD, mapped.empty() ? "/" : mapped.data(), O_PATH | O_DIRECTORY);
    if (!directory)
        return FailOnKey(errno);
    if (!names.empty())
        return OpenBelow(directory.Get(), names, access, result);
    if (!IsAllowed(directory.Get(), access))
        return false;
    result = root;
    return true;
}

bool OpenKey(HKEY key, std::wstring_view names, DWORD options, REGSAM access, HKEY& result)
{
    if ((options & ~REG_OPTION_OPEN_LINK) != 0 || (access & bothViews) == bothViews)
        return FailWith(ERROR_INVALID_PARAMETER);
    bool const isPredefined = IsRegistryRoot(key);
    HandleTable::Reference<KeyObject> object;
    if (!isPredefined && !(object = HandleTable::Find<KeyObject>(reinterpret_cast<HANDLE>(key))))
        return false;
    if (names.starts_with(L'\\'))
        return FailWith(ERROR_BAD_PATHNAME);
    return isPredefined ? OpenBelowRoot(key, names, access, result)
                        : OpenBelow(object->directory.Get(), names, access, result);
}

} // namespace
} // namespace Brindle::Vok::Platform

LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subkey, DWORD options, REGSAM access, PHKEY result) noexcept
{
    using namespace Brindle::Vok::Platform;
    if (!result)
        return ERROR_INVALID_PARAMETER;
    std::wstring_view const names = subkey ? std::wstring_view(subkey) : std::wstring_view();
    HKEY opened = nullptr;
    DWORD const code = CodeOfWork([&] { return OpenKey(key, names, options, access, opened); });
    *result = opened;
    return static_cast<LSTATUS>(code);
}

LSTATUS RegCloseKey(HKEY key) noexcept
{
    using namespace Brindle::Vok::Platform;
    if (IsRegistryRoot(key))
        return ERROR_SUCCESS;
    return static_cast<LSTATUS>(
        CodeOfWork([&] { return HandleTable::Close(reinterpret_cast<HANDLE>(key), KindsOf(Kind::registryKey)); }));
}
