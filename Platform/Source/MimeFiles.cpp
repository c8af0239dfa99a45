#include "MimeFiles.h"

#include "Ascii.h"
#include "KeyFile.h"
#include "Utf.h"

#include <charconv>
#include <optional>

namespace Brindle::Vok::Platform
{
namespace
{

// Takes one character. A byte that is part of none counts as one of its own, beyond all others.
char32_t TakeCharacter(std::string_view& text, bool ignoresCase) noexcept
{
    constexpr char32_t bytes = 0x110000;
    Utf::Decoded const decoded = Utf::DecodeUtf8(text.data(), text.size());
    char32_t const character = decoded.valid ? decoded.codePoint : bytes + static_cast<unsigned char>(text[0]);
    text.remove_prefix(decoded.valid ? decoded.consumed : 1);
    return ignoresCase ? LowerCase(character) : character;
}

// Takes the set whose `[` has been taken. Nothing when it has no end: the `[` then stands for itself.
std::optional<bool> TakeSet(std::string_view& pattern, char32_t wanted, bool ignoresCase) noexcept
{
    std::string_view rest = pattern;
    bool const isNegated = rest.starts_with('!') || rest.starts_with('^');
    if (isNegated)
        rest.remove_prefix(1);
    bool isIn = false;
    for (bool isFirst = true; !rest.empty(); isFirst = false)
    {
        if (rest[0] == ']' && !isFirst)
        {
            pattern = rest.substr(1);
            return isIn != isNegated;
        }
        char32_t const from = TakeCharacter(rest, ignoresCase);
        char32_t to = from;
        if (rest.size() > 1 && rest[0] == '-' && rest[1] != ']')
        {
            rest.remove_prefix(1);
            to = TakeCharacter(rest, ignoresCase);
        }
        isIn = isIn || (wanted >= from && wanted <= to);
    }
    return std::nullopt;
}

// Takes one character of the name, and what it fits, which isn't `*`.
bool TakeMatch(std::string_view& name, std::string_view& pattern, bool ignoresCase) noexcept
{
    char32_t const character = TakeCharacter(name, ignoresCase);
    char32_t const expected = TakeCharacter(pattern, ignoresCase);
    if (expected == U'?')
        return true;
    if (expected == U'[')
        if (auto const isIn = TakeSet(pattern, character, ignoresCase))
            return *isIn;
    return character == expected;
}

} // namespace

bool MatchesGlob(std::string_view name, std::string_view pattern, bool ignoresCase) noexcept
{
    bool hasStar = false;
    std::string_view nameBehindStar;
    std::string_view patternBehindStar;
    while (!name.empty() || !pattern.empty())
    {
        if (pattern.starts_with('*'))
        {
            pattern.remove_prefix(1);
            hasStar = true;
            nameBehindStar = name;
            patternBehindStar = pattern;
            continue;
        }
        if (!name.empty() && !pattern.empty() && TakeMatch(name, pattern, ignoresCase))
            continue;
        // The last star takes one character more; those in front of it never need to.
        if (!hasStar || nameBehindStar.empty())
            return false;
        TakeCharacter(nameBehindStar, ignoresCase);
        name = nameBehindStar;
        pattern = patternBehindStar;
    }
    return true;
}

void TypeSearch::Add(std::string_view file, Form form)
{
    constexpr std::uint32_t usualWeight = 50;
    std::vector<std::string_view> newlyClosed;
    while (!file.empty())
    {
        std::string_view line = WithoutBlanks(TakePart(file, '\n'));
        if (line.starts_with('#'))
            continue;
        std::uint32_t weight = usualWeight;
        if (form == Form::globs2)
        {
            std::string_view const digits = TakePart(line, ':');
            char const* const end = digits.data() + digits.size();
            auto const [last, error] = std::from_chars(digits.data(), end, weight);
            if (error != std::errc() || last != end)
                continue;
        }
        std::string_view const type = TakePart(line, ':');
        std::string_view const pattern = form == Form::globs2 ? TakePart(line, ':') : line;
        std::vector<std::string> flags;
        if (form == Form::globs2)
            AppendList(line.substr(0, line.find(':')), ',', flags);
        if (type.find('/') == type.npos)
            continue;
        if (pattern == "__NOGLOBS__")
            newlyClosed.push_back(type);
        else
            AddPattern(type, pattern, weight, std::ranges::find(flags, "cs") != flags.end());
    }
    closed.insert(newlyClosed.begin(), newlyClosed.end());
}

void TypeSearch::AddPattern(std::string_view type, std::string_view pattern, std::uint32_t weight, bool isCaseSensitive)
{
    constexpr std::size_t longestPattern = 1024; // names are shorter, and an open `[` costs a look through all of it
    if (pattern.size() > longestPattern)
        return;
    bool const isExact = MatchesGlob(name, pattern, false);
    if (pattern.empty() || (!isExact && (isCaseSensitive || !MatchesGlob(name, pattern, true))))
        return;
    Rank const found(isExact, weight, pattern.size());
    if ((!best.empty() && found <= rank) || closed.contains(type))
        return;
    best = type;
    rank = found;
}

MimeApplications ReadMimeApplications(std::string_view file, std::string_view type)
{
    MimeApplications applications;
    ForEachKey(file,
               [&](std::string_view group, std::string_view key, std::string_view value)
               {
                   if (key != type)
                       return;
                   if (group == "Default Applications")
                       AppendList(value, ';', applications.defaults);
                   else if (group == "Added Associations")
                       AppendList(value, ';', applications.added);
                   else if (group == "Removed Associations")
                       AppendList(value, ';', applications.removed);
                   else if (group == "MIME Cache")
                       AppendList(value, ';', applications.cached);
               });
    return applications;
}

} // namespace Brindle::Vok::Platform
