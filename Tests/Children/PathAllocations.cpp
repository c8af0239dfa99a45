// Counts what each operation of paths allocates: the string that it returns, and nothing if it returns none.
// Prints what allocated more, and gives 1 then.
#include <Brindle/Vok/Path.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <utility>

using namespace Brindle::Vok;

namespace
{

std::size_t allocations = 0;
int failures = 0;

} // namespace

void* operator new(std::size_t size)
{
    ++allocations;
    if (void* const memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace
{

std::size_t StringsIn(std::wstring const& text)
{
    return text.capacity() > std::wstring().capacity() ? 1 : 0;
}

std::size_t StringsIn(Path const& path)
{
    return StringsIn(path.ToString());
}

std::size_t StringsIn(std::size_t)
{
    return 0;
}

template <class Run>
void Expect(char const* what, Path const& path, Run const& run)
{
    allocations = 0;
    auto const result = run();
    if (allocations == StringsIn(result))
        return;
    std::printf("%s: %zu allocations, %zu units\n", what, allocations, path.ToString().size());
    ++failures;
}

void CheckAll(Path const& path)
{
    Path const name(L"a-name-of-some-length.txt");
    std::wstring const extension = L"another";
    Expect("DriveWithColon", path, [&] { return path.DriveWithColon(); });
    Expect("Server", path, [&] { return path.Server(); });
    Expect("Share", path, [&] { return path.Share(); });
    Expect("Directory", path, [&] { return path.Directory(); });
    Expect("DirectoryNormalized", path, [&] { return path.DirectoryNormalized(); });
    Expect("DriveAndDirectory", path, [&] { return path.DriveAndDirectory(); });
    Expect("DriveAndDirectoryNormalized", path, [&] { return path.DriveAndDirectoryNormalized(); });
    Expect("Parent", path, [&] { return path.Parent(); });
    Expect("NameWithExtension", path, [&] { return path.NameWithExtension(); });
    Expect("NameWithoutExtension", path, [&] { return path.NameWithoutExtension(); });
    Expect("ExtensionWithDot", path, [&] { return path.ExtensionWithDot(); });
    Expect("WithChangedExtension", path, [&] { return path.WithChangedExtension(extension); });
    Expect("Normalized", path, [&] { return path.Normalized(); });
    Expect("Join of two", path, [&] { return Path::Join(path, name); });
    Expect("Join of four", path, [&] { return Path::Join(path, name, path, name); });
    Path a = path;
    Path b = name;
    Expect("Merge of two", path, [&] { return Path::Merge(std::move(a), std::move(b)); });
    Path first = path;
    Path second = name;
    Path third(L"\\x\\y\\z");
    Path fourth = name;
    Expect("Merge of four", path,
           [&] { return Path::Merge(std::move(first), std::move(second), std::move(third), std::move(fourth)); });
    Path const other = path;
    Expect("operator==", path, [&] { return path == other ? 1U : 0U; });
    Expect("operator<", path, [&] { return path < other ? 1U : 0U; });
    Expect("hash", path, [&] { return std::hash<Path>()(path); });
    Expect("IsUnc", path, [&] { return path.IsUnc() ? 1U : 0U; });
    Expect("HasExtension", path, [&] { return path.HasExtension() ? 1U : 0U; });
}

} // namespace

int main()
{
    for (std::wstring const beginning : {L"C:\\", L"\\\\server\\share\\", L"\\\\?\\C:\\", L""})
    {
        Path(beginning).PrefixText(); // made once, at its first use
        for (std::size_t const length : {60U, 900U})
        {
            std::wstring text = beginning;
            while (text.size() < length)
                text += L"directory\\.\\other/..\\\\third\\";
            CheckAll(text);
            CheckAll(text + L"file.extension");
        }
        CheckAll(beginning + L"a\\b");
    }
    return failures == 0 ? 0 : 1;
}
