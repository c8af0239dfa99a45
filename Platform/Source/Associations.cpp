#include <Brindle/Platform/Associations.h>

#include "Ascii.h"
#include "DesktopEntry.h"
#include "HostErrors.h"
#include "KeyFile.h"
#include "MimeFiles.h"
#include "Names.h"
#include "ProcessEnvironment.h"
#include "ReadOnlyFile.h"
#include "Strings.h"
#include "SystemCalls.h"
#include "Utf.h"

#include <algorithm>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Brindle::Vok::Platform
{
namespace
{

constexpr HRESULT noAssociation = static_cast<HRESULT>(0x80070000U | ERROR_NO_ASSOCIATION);

constexpr ASSOCF unsupportedFlags =
    ASSOCF_INIT_BYEXENAME | ASSOCF_INIT_DEFAULTTOFOLDER | ASSOCF_INIT_FIXED_PROGID | ASSOCF_IS_PROTOCOL;
constexpr ASSOCF knownFlags = 0x3FFF;

// No name on a host's disk is longer, in bytes.
constexpr std::size_t longestName = 255;

std::string Below(std::string directory, std::string_view name)
{
    return directory.append(1, '/').append(name);
}

// Looks at files that may be missing. A failure that says nothing about a file is kept: what is found in spite of it
// may be wrong.
class HostFiles
{
public:
    // Nothing for a file that is missing, may not be read or is no plain file.
    std::optional<std::string> Read(std::string const& path)
    {
        ReadOnlyFile const file(path.c_str());
        struct stat status;
        if (!file.IsOpen() || SystemCalls::Status(file.Descriptor(), &status) != 0)
            return Note(errno);
        // Lists as long as that were made by nobody.
        constexpr off_t most = 64 << 20;
        if (!S_ISREG(status.st_mode) || status.st_size > most)
            return std::nullopt;
        std::string text(static_cast<std::size_t>(status.st_size), '\0');
        ssize_t const count = file.ReadAt(0, text.data(), text.size());
        if (count < 0)
            return Note(errno);
        text.resize(static_cast<std::size_t>(count));
        return text;
    }

    bool IsProgram(std::string const& path)
    {
        struct stat status;
        bool const isThere = SystemCalls::StatusAt(AT_FDCWD, path.c_str(), &status, 0) == 0;
        if (isThere && (!S_ISREG(status.st_mode) || SystemCalls::CheckAccess(path.c_str(), X_OK) == 0))
            return S_ISREG(status.st_mode);
        Note(errno);
        return false;
    }

    DWORD code = ERROR_SUCCESS;

private:
    std::nullopt_t Note(int error) noexcept
    {
        constexpr int absences[] = {ENOENT, ENOTDIR, EACCES, ELOOP, ENAMETOOLONG};
        if (std::ranges::find(absences, error) == std::end(absences))
            code = CodeFromHost(error);
        return std::nullopt;
    }
};

// The directories of a variable. Relative ones don't count.
std::vector<std::string> ReadDirectories(char const* variable, std::string const& defaults)
{
    std::string const value = ReadHostVariable(variable).value_or("");
    std::string_view rest = value.empty() ? defaults : value;
    std::vector<std::string> directories;
    while (!rest.empty())
        if (std::string_view const directory = TakePart(rest, ':'); directory.starts_with('/'))
            directories.emplace_back(directory);
    return directories;
}

// The one directory of a variable, or one below the user's own.
std::vector<std::string> ReadUserDirectory(char const* variable, char const* usual)
{
    std::string directory = ReadHostVariable(variable).value_or("");
    if (!directory.starts_with('/'))
        directory = ReadHostVariable("HOME").value_or("") + usual;
    return directory == usual || !directory.starts_with('/') ? std::vector<std::string>() : std::vector{directory};
}

// Where lists and descriptions are, the user's first.
struct Desktop
{
    explicit Desktop(bool withUser)
    {
        if (withUser)
        {
            config = ReadUserDirectory("XDG_CONFIG_HOME", "/.config");
            data = ReadUserDirectory("XDG_DATA_HOME", "/.local/share");
        }
        Append(config, ReadDirectories("XDG_CONFIG_DIRS", "/etc/xdg"));
        Append(data, ReadDirectories("XDG_DATA_DIRS", "/usr/local/share:/usr/share"));
        AppendList(ReadHostVariable("XDG_CURRENT_DESKTOP").value_or(""), ':', names);
        for (std::string& name : names)
            std::ranges::transform(name, name.begin(), LowerCase<char>);
    }

    static void Append(std::vector<std::string>& target, std::vector<std::string> const& source)
    {
        target.insert(target.end(), source.begin(), source.end());
    }

    std::vector<std::string> config;
    std::vector<std::string> data;
    std::vector<std::string> names;
};

// An application that can be started.
struct Application
{
    DesktopEntry entry;
    std::string file;
    std::string program;
    std::vector<std::string> words;
};

class Lookup
{
public:
    explicit Lookup(ASSOCF flags) : desktop((flags & ASSOCF_NOUSERSETTINGS) == 0) {}

    DWORD Code() const noexcept { return files.code; }

    // Empty when there is none.
    std::string FindType(std::wstring_view association)
    {
        if (!Utf::IsValidWide(association.data(), association.size()))
            return {};
        std::string const text = ToUtf8(association);
        if (text.size() > longestName)
            return {};
        if (!text.starts_with('.'))
            return text.find('/') != text.npos ? text : std::string();
        TypeSearch search(text);
        for (std::string const& directory : desktop.data)
        {
            if (auto const file = files.Read(directory + "/mime/globs2"))
                search.Add(*file, TypeSearch::Form::globs2);
            else if (auto const older = files.Read(directory + "/mime/globs"))
                search.Add(*older, TypeSearch::Form::globs);
        }
        return search.Type();
    }

    std::optional<Application> FindApplication(std::string const& type)
    {
        for (std::string const& directory : desktop.config)
            AddLists(directory, type);
        for (std::string const& directory : desktop.data)
        {
            AddLists(directory + "/applications", type);
            if (auto const cache = files.Read(directory + "/applications/mimeinfo.cache"))
                AddUnlessRemoved(ReadMimeApplications(*cache, type).cached, associated);
        }
        Desktop::Append(defaults, associated);
        for (std::string const& name : defaults)
            if (auto application = Load(name))
                return application;
        return std::nullopt;
    }

private:
    void AddLists(std::string const& directory, std::string const& type)
    {
        // Those of one desktop have nothing but defaults.
        for (std::string const& name : desktop.names)
            if (auto const file = files.Read(Below(directory, name).append("-mimeapps.list")))
                AddUnlessRemoved(ReadMimeApplications(*file, type).defaults, defaults);
        if (auto const file = files.Read(directory + "/mimeapps.list"))
        {
            MimeApplications const applications = ReadMimeApplications(*file, type);
            AddUnlessRemoved(applications.defaults, defaults);
            AddUnlessRemoved(applications.added, associated);
            Desktop::Append(removed, applications.removed);
        }
    }

    // What was removed by a list that comes first is not added by this one.
    void AddUnlessRemoved(std::vector<std::string> const& names, std::vector<std::string>& target) const
    {
        for (std::string const& name : names)
            if (std::ranges::find(removed, name) == removed.end())
                target.push_back(name);
    }

    std::optional<Application> Load(std::string const& name)
    {
        Application application;
        std::optional<std::string> const text = ReadEntry(name, application.file);
        if (!text)
            return std::nullopt;
        application.entry = ReadDesktopEntry(*text);
        DesktopEntry const& entry = application.entry;
        auto words = SplitCommand(entry.exec);
        if (!entry.isApplication || entry.isHidden || !words || words->empty())
            return std::nullopt;
        if (!entry.tryExec.empty() && FindProgram(entry.tryExec).empty())
            return std::nullopt;
        application.words = std::move(*words);
        application.program = FindProgram(application.words[0]);
        return application.program.empty() ? std::nullopt : std::optional(std::move(application));
    }

    // The first directory that has it decides. A `-` may stand for a directory below.
    std::optional<std::string> ReadEntry(std::string const& name, std::string& file)
    {
        if (!name.ends_with(".desktop") || name.find('/') != name.npos || name.size() > longestName)
            return std::nullopt;
        for (std::string const& directory : desktop.data)
            for (std::size_t dash = 0; dash != name.npos; dash = name.find('-', dash + 1))
            {
                std::string variant = name;
                if (dash != 0)
                    variant[dash] = '/';
                file = Below(Below(directory, "applications"), variant);
                if (auto text = files.Read(file))
                    return text;
            }
        return std::nullopt;
    }

    // Empty when there is none.
    std::string FindProgram(std::string const& name)
    {
        if (name.find('/') != name.npos)
            return name[0] == '/' && files.IsProgram(name) ? name : std::string();
        for (std::string const& directory : ReadDirectories("PATH", "/bin:/usr/bin"))
            if (std::string path = Below(directory, name); !name.empty() && files.IsProgram(path))
                return path;
        return {};
    }

    HostFiles files;
    Desktop const desktop;
    std::vector<std::string> defaults;
    std::vector<std::string> associated;
    std::vector<std::string> removed;
};

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
std::string Expand(std::string_view word, Application const& application)
{
    std::string text;
    for (std::size_t at = 0; at < word.size(); ++at)
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

std::wstring CommandOf(Application const& application)
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
    }
    return command;
}

HRESULT Find(ASSOCF flags, ASSOCSTR kind, std::wstring_view association, std::wstring_view verb, std::wstring& text)
{
    bool const wantsApplication =
        kind == ASSOCSTR_COMMAND || kind == ASSOCSTR_EXECUTABLE || kind == ASSOCSTR_FRIENDLYAPPNAME;
    if (!wantsApplication && kind != ASSOCSTR_CONTENTTYPE)
        return noAssociation;
    if (wantsApplication && !verb.empty() && !EqualWithoutCase(verb, L"open"))
        return noAssociation;
    Lookup lookup(flags);
    std::string const type = lookup.FindType(association);
    std::optional<Application> application;
    if (wantsApplication && !type.empty())
        application = lookup.FindApplication(type);
    if (lookup.Code() != ERROR_SUCCESS)
        return static_cast<HRESULT>(0x80070000U | lookup.Code());
    if (application)
        text = kind == ASSOCSTR_COMMAND      ? CommandOf(*application)
               : kind == ASSOCSTR_EXECUTABLE ? WindowsPathFromHost(application->program)
                                             : ToWide(application->entry.name);
    else if (!wantsApplication)
        text = ToWide(type);
    return text.empty() ? noAssociation : S_OK;
}

HRESULT Give(std::wstring const& text, ASSOCF flags, LPWSTR out, DWORD& size) noexcept
{
    auto const needed = static_cast<DWORD>(text.size() + 1);
    DWORD const given = std::exchange(size, needed);
    if (!out)
        return S_FALSE;
    bool const fits = given >= needed;
    if (given > 0 && (fits || (flags & ASSOCF_NOTRUNCATE) == 0))
        *std::copy_n(text.data(), std::min(given, needed) - 1, out) = L'\0';
    return fits ? S_OK : E_POINTER;
}

HRESULT Query(ASSOCF flags, ASSOCSTR kind, LPCWSTR assoc, LPCWSTR extra, LPWSTR out, LPDWORD size) noexcept
{
    if (!assoc || !size || kind < ASSOCSTR_COMMAND || kind >= ASSOCSTR_MAX || (flags & ~knownFlags) != 0)
        return E_INVALIDARG;
    if ((flags & unsupportedFlags) != 0)
        return E_NOTIMPL;
    try
    {
        std::wstring text;
        HRESULT const result = Find(flags, kind, assoc, extra ? extra : L"", text);
        return result == S_OK ? Give(text, flags, out, *size) : result;
    }
    catch (std::bad_alloc const&)
    {
        return E_OUTOFMEMORY;
    }
}

} // namespace
} // namespace Brindle::Vok::Platform

HRESULT AssocQueryStringW(ASSOCF flags, ASSOCSTR kind, LPCWSTR assoc, LPCWSTR extra, LPWSTR out, LPDWORD size) noexcept
{
    return Brindle::Vok::Platform::Query(flags, kind, assoc, extra, out, size);
}
