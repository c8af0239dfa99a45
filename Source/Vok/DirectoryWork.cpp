#include "DirectoryWork.h"

#include <Brindle/Vok/Guid.h>
#include <Brindle/Vok/HandleOwner.h>
#include <Brindle/Vok/VokWindows.h>

#include "DeletionGuard.h"
#include "LogAt.h"
#include "Missing.h"
#include "Separators.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace Brindle::Vok::Detail
{

Path UnusedTemporaryPath(wchar_t const* suffix)
{
    std::wstring const name = Guid::NewGuid() + suffix;
    return Path::Join(VokExpandEnvironmentStrings(L"%TEMP%"), name);
}

namespace
{

using SearchOwner = HandleOwner<FindHandleTraits>;

[[noreturn]] void EndTheProcess()
{
    std::fputs("Vok2: the process ends, because a path to be deleted doesn't fit into 260 code units\n", stderr);
    std::abort();
}

/// A text in a buffer as large as the platform's paths. One that doesn't fit ends the process, so that no cut path is
/// ever taken for another one.
class PathBuffer
{
public:
    /// For a directory, whose entries' names need at least a separator and a unit more.
    static void EndUnlessItFits(std::wstring_view directory)
    {
        if (directory.size() + 2 >= MAX_PATH)
            EndTheProcess();
    }

    void Append(std::wstring_view text)
    {
        if (text.size() >= MAX_PATH - length)
            EndTheProcess();
        text.copy(units + length, text.size());
        length += text.size();
        units[length] = 0;
    }
    void CutTo(std::size_t shorter)
    {
        length = shorter;
        units[length] = 0;
    }
    std::size_t Length() const { return length; }
    wchar_t const* Text() const { return units; }

private:
    wchar_t units[MAX_PATH];
    std::size_t length = 0;
};

/// Without the separators at the end, with which a text means no entry of its directory.
std::wstring WithoutEnd(std::wstring const& text)
{
    return text.substr(0, text.find_last_not_of(separators) + 1);
}

/// Whether a search for the text would look for names that fit it. No directory has such a name.
bool IsPattern(std::wstring_view text)
{
    return text.find_first_of(L"*?<>\"", text.find_last_of(separators) + 1) != std::wstring_view::npos;
}

/// What a search of the directory behind a link fails with.
DWORD CodeBehind(std::wstring const& link)
{
    WIN32_FIND_DATAW data;
    SearchOwner const behind(FindFirstFileW((link + L"\\*").c_str(), &data));
    return behind.IsValid() ? ERROR_SUCCESS : GetLastError();
}

class Deletion
{
public:
    explicit Deletion(Location const& location) : location(location) {}

    void Delete(Path const& path, bool contentsOnly, bool& existed, Error& error) const;

private:
    /// A path that is a link itself, or missing if what the link leads to is.
    void RefuseLink(Path const& path, std::wstring const& ownName, bool& existed, Error& error) const;
    /// A directory that an open search has just told of.
    void DeleteFound(Path const& path, bool contentsOnly, bool& existed, Error& error) const;
    /// One entry of a directory, by its whole path. False if the deletion stops.
    bool DeleteEntry(WIN32_FIND_DATAW const& entry, wchar_t const* path, Error& error) const;
    void TellMissing(Path const& path, bool& existed) const;

    Location const& location;
};

void Deletion::Delete(Path const& path, bool contentsOnly, bool& existed, Error& error) const
{
    existed = true;
    if (DWORD const refusal = CodeAgainstDeleting(path.ToString()); refusal != ERROR_SUCCESS)
    {
        error = MakeError<WindowsError>(location, refusal, L"Path [{}]", path.ToString());
        return;
    }
    PathBuffer::EndUnlessItFits(path.ToString()); // before a search, which may refuse such a text
    std::wstring const ownName = WithoutEnd(path.ToString());
    if (IsPattern(ownName))
        return DeleteFound(path, contentsOnly, existed, error); // which the platform refuses
    // A search for the directory's own name remembers the directory that it lies in, and that it is no link. So the
    // walk starts there, and refuses a link that is put in its place.
    WIN32_FIND_DATAW data;
    SearchOwner own(FindFirstFileW(ownName.c_str(), &data));
    if (!own.IsValid() && IsMissing(GetLastError()))
        return TellMissing(path, existed);
    if (!own.IsValid())
    {
        error = MakeLastError(location, L"");
        return;
    }
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0)
        return DeleteFound(path, contentsOnly, existed, error);
    own.Reset();
    RefuseLink(path, ownName, existed, error);
}

void Deletion::RefuseLink(Path const& path, std::wstring const& ownName, bool& existed, Error& error) const
{
    DWORD const code = CodeBehind(ownName);
    if (code == ERROR_PATH_NOT_FOUND)
        TellMissing(path, existed);
    else if (code != ERROR_SUCCESS)
        error = MakeError<WindowsError>(location, code, L"");
    else
        error = MakeError<WindowsError>(location, ERROR_DIRECTORY, L"Path [{}]", path.ToString());
}

void Deletion::DeleteFound(Path const& path, bool contentsOnly, bool& existed, Error& error) const
{
    PathBuffer text; // "directory\*" for the search, then "directory\name" for each entry
    text.Append(path.ToString());
    text.Append(L"\\");
    std::size_t const nameBegin = text.Length();
    text.Append(L"*");
    WIN32_FIND_DATAW data;
    SearchOwner search(FindFirstFileW(text.Text(), &data));
    if (!search.IsValid() && GetLastError() == ERROR_PATH_NOT_FOUND)
        return TellMissing(path, existed);
    if (!search.IsValid())
    {
        error = MakeLastError(location, L"");
        return;
    }
    // The entry that came with the handle is "." and isn't looked at.
    while (FindNextFileW(search.Get(), &data))
    {
        std::wstring_view const name = data.cFileName;
        if (name == L"." || name == L"..")
            continue;
        text.CutTo(nameBegin);
        text.Append(name);
        if (!DeleteEntry(data, text.Text(), error))
            return;
    }
    if (GetLastError() != ERROR_NO_MORE_FILES)
    {
        error = MakeLastError(location, L"Path [{}]", path.ToString());
        return;
    }
    search.Reset();
    if (!contentsOnly && !RemoveDirectoryW(path.ToString().c_str()))
        error = MakeLastError(location, L"Path [{}]", path.ToString());
}

bool Deletion::DeleteEntry(WIN32_FIND_DATAW const& entry, wchar_t const* path, Error& error) const
{
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
    {
        bool ignored = false;
        DeleteFound(path, false, ignored, error);
        if (!error.Failed())
            return true;
        error = MakeLastError(location, L""); // required: of what happened further down the code alone is left
        return false;
    }
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0)
        SetFileAttributesW(path, entry.dwFileAttributes & ~FILE_ATTRIBUTE_READONLY);
    if (DeleteFileW(path))
        return true;
    error = MakeLastError(location, L"DeleteFileW [{}]", path);
    return false;
}

void Deletion::TellMissing(Path const& path, bool& existed) const
{
    LogAt(location, VokLogSeverity::info, L"Deleting directory that doesn't exist [{}]", path.ToString());
    existed = false;
}

} // namespace

void DeleteDirectory(Location const& location, Path const& path, bool contentsOnly, bool& existed, Error& error)
{
    Deletion(location).Delete(path, contentsOnly, existed, error);
}

} // namespace Brindle::Vok::Detail
