// Parses user-dirs.dirs and /etc/environment. What comes out must be an absolute path, or a name and a value of one
// line; lines must count alone; and what a writer lays down must come back.
#include "Require.h"

#include "EnvironmentFile.h"
#include "UserDirs.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

using namespace Brindle::Vok::Platform;

namespace
{

using Directory = std::optional<std::string>;

constexpr std::string_view name = "XDG_A_DIR";

Directory Find(std::string_view file)
{
    return FindUserDirectory(file, name, "/home");
}

void CheckLinesCountAlone(std::string const& file)
{
    Directory last;
    for (std::size_t begin = 0; begin <= file.size();)
    {
        std::size_t const end = std::min(file.find('\n', begin), file.size());
        if (Directory const found = Find(file.substr(begin, end - begin)))
            last = found;
        begin = end + 1;
    }
    Require(Find(file) == last, "Lines don't count alone");
    Require(!last || last->starts_with('/'), "Not absolute");
    Require(!last || last->find_first_of(std::string_view("\n\0", 2)) == last->npos, "Of more than a line");
}

// The text as a path below the home, and what else the file holds in front.
void CheckRoundTrip(std::string const& file)
{
    std::string path = "/";
    std::string line = "\n" + std::string(name) + "=\"$HOME/";
    for (char const unit : file)
    {
        if (unit == '\n' || unit == '\0')
            continue;
        path += unit;
        if (unit == '"' || unit == '\\')
            line += '\\';
        line += unit;
    }
    line += "\"\n#";
    Require(Find(file + line + file.substr(0, file.find('\n'))) == "/home" + path, "Not what was written");
}

void CheckVariables(std::string const& file)
{
    std::string written;
    auto const variables = ParseEnvironmentFile(file);
    for (auto const& [variable, value] : variables)
    {
        Require(!variable.empty() && variable.find_first_of("=# \t\"'\n") == variable.npos, "No name");
        Require(value.find_first_of(std::string_view("\n\0#", 3)) == value.npos, "No value");
        written += "export " + variable + "=\"" + value + "\"\n";
    }
    Require(ParseEnvironmentFile(written) == variables, "Not the variables that were written");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    std::string const file(data, data + size);
    CheckLinesCountAlone(file);
    CheckRoundTrip(file);
    CheckVariables(file);
    return 0;
}
