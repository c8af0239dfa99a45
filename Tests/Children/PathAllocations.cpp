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

/// One piece of each kind stands for the others: of the stored text, of the normal form, and of the name.
void CheckAll(Path const& path)
{
    Path const name(L"a-name-of-some-length.txt");
    std::wstring const extension = L"another";
    Expect("Directory", path, [&] { return path.Directory(); });
    Expect("DirectoryNormalized", path, [&] { return path.DirectoryNormalized(); });
    Expect("NameWithExtension", path, [&] { return path.NameWithExtension(); });
    Expect("WithChangedExtension", path, [&] { return path.WithChangedExtension(extension); });
    Expect("Normalized", path, [&] { return path.Normalized(); });
    Expect("Join", path, [&] { return Path::Join(path, name, path, name); });
    Path first = path;
    Path second = name;
    Path third(L"\\x\\y\\z");
    Path fourth = name;
    Expect("Merge", path,
           [&] { return Path::Merge(std::move(first), std::move(second), std::move(third), std::move(fourth)); });
    Path const other = path;
    Expect("operator==", path, [&] { return path == other ? 1U : 0U; });
    Expect("operator<", path, [&] { return path < other ? 1U : 0U; });
    Expect("hash", path, [&] { return std::hash<Path>()(path); });
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
