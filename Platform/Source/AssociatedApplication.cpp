#include "AssociatedApplication.h"

#include "Names.h"
#include "Strings.h"

#include <string_view>

namespace Brindle::Vok::Platform
{
namespace
{

/// No command line of the platform is longer.
constexpr std::size_t longestCommand = 32'766;

// As the platform's command lines want it: backslashes count only in front of a quote.
void AppendQuoted(std::wstring_view word, std::wstring& command)
{
    command += L'"';
    std::size_t backslashes = 0;
    for (wchar_t const unit : word)
    {
        if (unit == L'"')
            command.append(backslashes + 1, L'\\');
        backslashes = unit == L'\\' ? backslashes + 1 : 0;
        command += unit;
    }
    command.append(backslashes, L'\\').append(1, L'"');
}

// A word with its field codes replaced. The file that is to be opened is %1.
std::string Expand(std::string_view word, AssociatedApplication const& application)
{
    std::string text;
    for (std::size_t at = 0; at < word.size() && text.size() <= longestCommand; ++at)
    {
        if (word[at] != '%' || at + 1 == word.size())
        {
            text += word[at];
            continue;
        }
        char const code = word[++at];
        if (std::string_view("fFuU").find(code) != std::string_view::npos)
            text += "%1";
        else if (code == 'c')
            text += application.entry.name;
        else if (code == 'k')
            text += application.file;
        else if (code == '%')
            text += '%';
    }
    return text;
}

} // namespace

std::wstring CommandOf(AssociatedApplication const& application)
{
    std::wstring command;
    AppendQuoted(WindowsPathFromHost(application.program), command);
    auto const append = [&](std::string_view word)
    {
        std::wstring const wide = ToWide(word);
        command += L' ';
        if (word.empty() || word.find("%1") != word.npos || word.find_first_of(" \t\n\"") != word.npos)
            AppendQuoted(wide, command);
        else
            command += wide;
    };
    for (auto word = application.words.begin() + 1; word != application.words.end(); ++word)
    {
        std::string const expanded = Expand(*word, application);
        if (*word == "%i" && !application.entry.icon.empty())
        {
            append("--icon");
            append(application.entry.icon);
        }
        else if (word->empty() || !expanded.empty())
            append(expanded);
        if (command.size() > longestCommand)
            return {};
    }
    return command;
}

} // namespace Brindle::Vok::Platform
