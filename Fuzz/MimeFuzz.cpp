// Reads any bytes as each of the desktop's files. Up to the first two line ends stand a name and a type, behind them
// the file. Matching is held against a plain recursion, a file in two pieces against the whole one, and what is found
// must stand in the file; words that are quoted anew come back.
#include "Require.h"

#include "Ascii.h"
#include "DesktopEntry.h"
#include "KeyFile.h"
#include "MimeFiles.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

using namespace Brindle::Vok::Platform;

namespace
{

/// Of ASCII texts without sets, which are not long.
bool FitsPlainly(std::string_view name, std::string_view pattern, bool ignoresCase)
{
    if (pattern.empty())
        return name.empty();
    if (pattern[0] == '*')
        return FitsPlainly(name, pattern.substr(1), ignoresCase) ||
               (!name.empty() && FitsPlainly(name.substr(1), pattern, ignoresCase));
    if (name.empty())
        return false;
    bool const isSame = ignoresCase ? LowerCase(name[0]) == LowerCase(pattern[0]) : name[0] == pattern[0];
    return (pattern[0] == '?' || isSame) && FitsPlainly(name.substr(1), pattern.substr(1), ignoresCase);
}

void CheckMatching(std::string_view name, std::string_view pattern)
{
    auto const isPlain = [](char unit) { return unit > 0 && unit != '['; };
    bool const isShort = name.size() <= 12 && pattern.size() <= 12;
    for (bool const ignoresCase : {false, true})
    {
        bool const fits = MatchesGlob(name, pattern, ignoresCase);
        if (isShort && std::ranges::all_of(name, isPlain) && std::ranges::all_of(pattern, isPlain))
            Require(fits == FitsPlainly(name, pattern, ignoresCase), "Another match");
        Require(MatchesGlob(name, "*" + std::string(pattern), ignoresCase) || !fits, "A star takes something away");
    }
    Require(MatchesGlob(name, "*", false), "A star doesn't fit");
}

void CheckTypes(std::string_view name, std::string_view file, TypeSearch::Form form)
{
    TypeSearch whole(name);
    whole.Add(file, form);
    Require(file.find(whole.Type()) != file.npos, "The type is not in the file");
    if (file.find("__NOGLOBS__") != file.npos)
        return;
    std::size_t const middle = std::min(file.find('\n', file.size() / 2), file.size() - 1) + 1;
    TypeSearch pieces(name);
    pieces.Add(file.substr(0, middle), form);
    pieces.Add(file.substr(middle), form);
    Require(pieces.Type() == whole.Type(), "Another type in pieces");
}

void CheckKeys(std::string_view file, std::string_view type)
{
    auto const isPart = [&](std::string_view text)
    {
        bool const isInside = text.data() >= file.data() && text.data() + text.size() <= file.data() + file.size();
        return text.empty() || (isInside && text.find('\n') == text.npos);
    };
    ForEachKey(file,
               [&](std::string_view group, std::string_view key, std::string_view value)
               {
                   Require(isPart(group) && isPart(key) && isPart(value), "Not of the file");
                   Require(key.find('=') == key.npos && !key.starts_with('#'), "No key");
               });
    MimeApplications const found = ReadMimeApplications(file, type);
    for (auto const* list : {&found.defaults, &found.added, &found.removed, &found.cached})
        for (std::string const& name : *list)
            Require(!name.empty() && name.find(';') == name.npos && file.find(name) != file.npos, "No name");
}

void CheckCommand(std::string_view exec)
{
    auto const words = SplitCommand(exec);
    if (!words)
        return Require(exec.find('"') != exec.npos, "Refused without a quote");
    std::string quoted;
    for (std::string const& word : *words)
    {
        quoted += " \"";
        for (char const unit : word)
            (std::string_view("\"`$\\").find(unit) != std::string_view::npos ? quoted += '\\' : quoted) += unit;
        quoted += '"';
    }
    Require(SplitCommand(quoted) == words, "Other words");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    // Of its exact size, so that the sanitizer sees a step beyond.
    std::vector<char> const bytes(data, data + size);
    std::string_view rest(bytes.data(), bytes.size());
    std::string_view const name = TakePart(rest, '\n');
    std::string_view const type = TakePart(rest, '\n');
    CheckMatching(name, type);
    if (!rest.empty())
    {
        CheckTypes(name, rest, TypeSearch::Form::globs);
        CheckTypes(name, rest, TypeSearch::Form::globs2);
    }
    CheckKeys(rest, type);
    CheckCommand(rest);
    CheckCommand(ReadDesktopEntry(rest).exec);
    return 0;
}
