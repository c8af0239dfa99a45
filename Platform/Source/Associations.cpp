#include <Brindle/Platform/Associations.h>

#include "Ascii.h"
#include "AssociatedApplication.h"
#include "HostErrors.h"
#include "HostFile.h"
#include "Identity.h"
#include "Lines.h"
#include "MimeFiles.h"
#include "Names.h"
#include "ProcessEnvironment.h"
#include "Strings.h"
#include "SystemCalls.h"
#include "Utf.h"
#include "XdgDirectories.h"

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

constexpr HRESULT noAssociation = HRESULT_FROM_WIN32(ERROR_NO_ASSOCIATION);

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
        constexpr off_t most = 64 << 20; // lists as long as that were made by nobody
        std::optional<std::string> text;
        if (!ReadSmallFile(path, text, most))
            code = GetLastError();
        return text;
    }

    bool IsProgram(std::string const& path)
    {
        struct stat status;
        if (SystemCalls::StatusAt(AT_FDCWD, path.c_str(), &status, 0) == 0)
        {
            if (!S_ISREG(status.st_mode))
                return false;
            if (SystemCalls::CheckAccess(path.c_str(), X_OK) == 0)
                return true;
        }
        constexpr int absences[] = {ENOENT, ENOTDIR, EACCES, ELOOP, ENAMETOOLONG};
        if (std::ranges::find(absences, errno) == std::end(absences))
            code = CodeFromHost(errno);
        return false;
    }

    DWORD code = ERROR_SUCCESS;
};

// Where lists and descriptions are, those of the calling thread's user first.
struct Desktop
{
    // False with the last error set.
    bool Find(bool withUser)
    {
        Identity thread;
        XdgDirectories user;
        if (withUser && (!FindThreadIdentity(thread) || !FindXdgDirectories(thread.user, true, user)))
        {
            if (GetLastError() != ERROR_NO_SUCH_USER)
                return false;
            withUser = false; // nothing can be his
        }
        if (withUser)
        {
            config = {user.config};
            data = {user.data};
        }
        Append(config, FindListedDirectories("XDG_CONFIG_DIRS", configurationOfMachine));
        Append(data, FindListedDirectories("XDG_DATA_DIRS", "/usr/local/share:/usr/share"));
        AppendList(ReadHostVariable("XDG_CURRENT_DESKTOP").value_or(""), ':', names);
        for (std::string& name : names)
            std::ranges::transform(name, name.begin(), LowerCase<char>);
        return true;
    }

    static void Append(std::vector<std::string>& target, std::vector<std::string> const& source)
    {
        target.insert(target.end(), source.begin(), source.end());
    }

    std::vector<std::string> config;
    std::vector<std::string> data;
    std::vector<std::string> names;
};

class Lookup
{
public:
    explicit Lookup(ASSOCF flags)
    {
        if (!desktop.Find((flags & ASSOCF_NOUSERSETTINGS) == 0))
            files.code = GetLastError();
    }

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
            return {};
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

    std::optional<AssociatedApplication> FindApplication(std::string const& type)
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

    std::optional<AssociatedApplication> Load(std::string const& name)
    {
        AssociatedApplication application;
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
        for (std::string const& directory : FindListedDirectories("PATH", "/bin:/usr/bin"))
            if (std::string path = Below(directory, name); !name.empty() && files.IsProgram(path))
                return path;
        return {};
    }

    HostFiles files;
    Desktop desktop;
    std::vector<std::string> defaults;
    std::vector<std::string> associated;
    std::vector<std::string> removed;
};

HRESULT FindAssociation(ASSOCF flags, ASSOCSTR kind, std::wstring_view association, std::wstring_view verb,
                        std::wstring& text)
{
    bool const wantsApplication =
        kind == ASSOCSTR_COMMAND || kind == ASSOCSTR_EXECUTABLE || kind == ASSOCSTR_FRIENDLYAPPNAME;
    if (!wantsApplication && kind != ASSOCSTR_CONTENTTYPE)
        return noAssociation;
    if (wantsApplication && !verb.empty() && !EqualWithoutCase(verb, L"open"))
        return noAssociation;
    Lookup lookup(flags);
    std::string const type = lookup.FindType(association);
    std::optional<AssociatedApplication> application;
    if (wantsApplication && !type.empty())
        application = lookup.FindApplication(type);
    if (lookup.Code() != ERROR_SUCCESS)
        return HRESULT_FROM_WIN32(lookup.Code());
    if (application)
        text = kind == ASSOCSTR_COMMAND      ? CommandOf(*application)
               : kind == ASSOCSTR_EXECUTABLE ? WindowsPathFromHost(application->program)
                                             : ToWide(application->entry.name);
    else if (!wantsApplication)
        text = ToWide(type);
    return text.empty() ? noAssociation : S_OK;
}

HRESULT CopyAnswer(std::wstring const& text, ASSOCF flags, LPWSTR out, DWORD& size) noexcept
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

HRESULT AnswerQuery(ASSOCF flags, ASSOCSTR kind, LPCWSTR assoc, LPCWSTR extra, LPWSTR out, LPDWORD size) noexcept
{
    if (!assoc || !size || kind < ASSOCSTR_COMMAND || kind >= ASSOCSTR_MAX || (flags & ~knownFlags) != 0)
        return E_INVALIDARG;
    if ((flags & unsupportedFlags) != 0)
        return E_NOTIMPL;
    try
    {
        std::wstring text;
        HRESULT const result = FindAssociation(flags, kind, assoc, extra ? extra : L"", text);
        return result == S_OK ? CopyAnswer(text, flags, out, *size) : result;
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
    DWORD const lastError = GetLastError();
    HRESULT const result = Brindle::Vok::Platform::AnswerQuery(flags, kind, assoc, extra, out, size);
    SetLastError(lastError);
    return result;
}
