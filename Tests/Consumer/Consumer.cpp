// A component outside the tree: it logs, throws and catches across the library's border, and reads and writes a file.
#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/FileSystem.h>
#include <Brindle/Vok/Log.h>
#include <Brindle/Vok/String.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>

using namespace Brindle::Vok;

namespace
{
int mistakes = 0;

void Expect(bool holds, char const* what)
{
    if (!holds)
    {
        std::cerr << "not as expected: " << what << '\n';
        ++mistakes;
    }
}
} // namespace

int main()
{
    int statements = 0;
    SubscriptionForLogCallbacks subscription([&](LogStatement const&) { ++statements; }, VokLogSeverity::trace);
    VOK_LOG(warning, "from outside, {}", 1);
    Expect(statements == 1, "a statement of this module reaches its subscriber");

    try
    {
        String::StringToWstring("a", 4321);
        Expect(false, "an unknown code page throws");
    }
    catch (WindowsError const& error)
    {
        Expect(error.code().value() == 87, "the library's error is caught by its type, with its code");
        Expect(error.Message().find("(Windows Error 87)") != std::string::npos, "the code is in the message");
    }
    Expect(statements == 2, "the library's statement reaches the subscriber");

    std::filesystem::path const file = std::filesystem::temp_directory_path() / "vok2-consumer.txt";
    auto const text = MakeFileSystem()->MakeFile(Path(file.string()));
    text->WriteAllText("a\n", TextEncoding::Utf8, ByteOrderMarkPolicy::Omit, LineEndingPolicy::Windows);
    Expect(text->ReadAllTextA() == "a\r\n", "what was written is read");
    std::filesystem::remove(file);
    return mistakes == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
