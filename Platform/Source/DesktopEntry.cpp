#include "DesktopEntry.h"

#include "KeyFile.h"

namespace Brindle::Vok::Platform
{
namespace
{

std::string WithoutEscapes(std::string_view value)
{
    std::string text;
    for (std::size_t at = 0; at < value.size(); ++at)
    {
        constexpr std::string_view escapes = "sntr\\";
        constexpr std::string_view meanings = " \n\t\r\\";
        std::size_t const which =
            value[at] == '\\' && at + 1 < value.size() ? escapes.find(value[at + 1]) : escapes.npos;
        text += which == escapes.npos ? value[at] : meanings[which];
        at += which == escapes.npos ? 0 : 1;
    }
    return text;
}

// Takes what stands in quotes, up to the closing one, which is taken too.
bool TakeQuoted(std::string_view& text, std::string& word)
{
    constexpr std::string_view escaped = "\"`$\\";
    while (!text.empty())
    {
        char character = text[0];
        text.remove_prefix(1);
        if (character == '"')
            return true;
        if (character == '\\' && !text.empty() && escaped.find(text[0]) != escaped.npos)
        {
            character = text[0];
            text.remove_prefix(1);
        }
        word += character;
    }
    return false;
}

} // namespace

DesktopEntry ReadDesktopEntry(std::string_view file)
{
    DesktopEntry entry;
    ForEachKey(file,
               [&](std::string_view group, std::string_view key, std::string_view value)
               {
                   if (group != "Desktop Entry")
                       return;
                   if (key == "Name")
                       entry.name = WithoutEscapes(value);
                   else if (key == "Icon")
                       entry.icon = WithoutEscapes(value);
                   else if (key == "Exec")
                       entry.exec = WithoutEscapes(value);
                   else if (key == "TryExec")
                       entry.tryExec = WithoutEscapes(value);
                   else if (key == "Type")
                       entry.isApplication = value == "Application";
                   else if (key == "Hidden")
                       entry.isHidden = value == "true";
               });
    return entry;
}

std::optional<std::vector<std::string>> SplitCommand(std::string_view exec)
{
    constexpr std::string_view blanks = " \t\n\r";
    std::vector<std::string> words;
    while (true)
    {
        exec.remove_prefix(std::min(exec.find_first_not_of(blanks), exec.size()));
        if (exec.empty())
            return words;
        std::string word;
        while (!exec.empty() && blanks.find(exec[0]) == blanks.npos)
        {
            char const character = exec[0];
            exec.remove_prefix(1);
            if (character != '"')
                word += character;
            else if (!TakeQuoted(exec, word))
                return std::nullopt;
        }
        words.push_back(std::move(word));
    }
}

} // namespace Brindle::Vok::Platform
