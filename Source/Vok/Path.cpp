#include <Brindle/Vok/Path.h>

#include <Brindle/Vok/Log.h>
#include <Brindle/Vok/String.h>

#include "Missing.h"
#include "PathDecomposition.h"
#include "PathNormalization.h"

#include <cstddef>
#include <cstdint>
#include <cwctype>
#include <filesystem>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Brindle::Vok
{
namespace
{

using Detail::PathPieces;
using Detail::separator;

constexpr std::wstring_view noPrefix;
constexpr std::wstring_view uncPrefix = L"\\\\";
constexpr std::wstring_view extendedLengthPrefix = L"\\\\?\\";
constexpr std::wstring_view extendedLengthUncPrefix = L"\\\\?\\UNC\\";
constexpr std::wstring_view devicePrefix = L"\\\\.\\";

/// Texts that are handed out by reference: there from the first use on, also in static destructors.
template <std::wstring_view const& view>
std::wstring const& Lasting()
{
    static std::wstring const& text = *new std::wstring(view);
    return text;
}

std::wstring_view ViewOf(PathPrefix prefix)
{
    switch (prefix)
    {
    case PathPrefix::none:
        break;
    case PathPrefix::unc:
        return uncPrefix;
    case PathPrefix::extendedLength:
        return extendedLengthPrefix;
    case PathPrefix::extendedLengthUnc:
        return extendedLengthUncPrefix;
    }
    return noPrefix;
}

bool HasPrefix(std::wstring_view text)
{
    return text.size() >= 2 && text[0] == separator && text[1] == separator;
}

PathPrefix PrefixOf(std::wstring_view text)
{
    if (!HasPrefix(text))
        return PathPrefix::none;
    if (text.starts_with(extendedLengthUncPrefix))
        return PathPrefix::extendedLengthUnc;
    if (text.starts_with(extendedLengthPrefix) || text.starts_with(devicePrefix))
        return PathPrefix::extendedLength;
    return PathPrefix::unc;
}

} // namespace

std::wstring const& ToString(PathPrefix prefix)
{
    static constexpr std::wstring_view noneText = L"none";
    static constexpr std::wstring_view uncText = L"unc";
    static constexpr std::wstring_view extendedLengthText = L"extendedLength";
    static constexpr std::wstring_view extendedLengthUncText = L"extendedLengthUnc";
    static constexpr std::wstring_view unknownText = L"unknown PathPrefix";
    switch (prefix)
    {
    case PathPrefix::none:
        return Lasting<noneText>();
    case PathPrefix::unc:
        return Lasting<uncText>();
    case PathPrefix::extendedLength:
        return Lasting<extendedLengthText>();
    case PathPrefix::extendedLengthUnc:
        return Lasting<extendedLengthUncText>();
    }
    VOK_LOG(error, "unknown PathPrefix {}", prefix);
    return Lasting<unknownText>();
}

std::string ToStringA(PathPrefix prefix)
{
    return WideToUtf8(ToString(prefix));
}

Path::Path(std::string pathText) : text(String::StringToWstring(pathText, CP_UTF8)) {}
Path::Path(char const* pathText) : text(String::StringToWstring(pathText, CP_UTF8)) {}

std::string Path::ToStringA() const
{
    return WideToUtf8(text);
}

std::filesystem::path Path::ToStdPath() const
{
    if constexpr (std::is_same_v<std::filesystem::path::value_type, wchar_t>)
        return std::filesystem::path(text);
    else
        return std::filesystem::path(WideToUtf8(text));
}

PathPrefix Path::Prefix() const
{
    PathPrefix const prefix = PrefixOf(text);
    if (prefix == PathPrefix::extendedLength && text.starts_with(devicePrefix))
        VOK_LOG(error, "Device path not supported [{}]", text);
    return prefix;
}

std::wstring const& Path::PrefixText() const
{
    return PrefixText(Prefix());
}

std::wstring const& Path::PrefixText(PathPrefix prefix)
{
    switch (prefix)
    {
    case PathPrefix::none:
        return Lasting<noPrefix>();
    case PathPrefix::unc:
        return Lasting<uncPrefix>();
    case PathPrefix::extendedLength:
        return Lasting<extendedLengthPrefix>();
    case PathPrefix::extendedLengthUnc:
        return Lasting<extendedLengthUncPrefix>();
    }
    VOK_LOG(error, "unknown PathPrefix {}", prefix);
    return Lasting<noPrefix>();
}

bool Path::IsExtendedLength() const
{
    return Detail::IsExtendedLength(Prefix());
}

bool Path::IsUnc() const
{
    return Detail::IsUnc(Prefix());
}

bool Path::IsRelative() const noexcept
{
    if (HasPrefix(text))
        return false;
    if (text.size() >= 3 && text[1] == L':' && text[2] == separator)
        return false;
    if (text.size() < 2)
        return true; // `\` alone too
    return text.front() != separator;
}

// Pieces

namespace
{

enum class Form
{
    stored,
    normal
};

/// What stands behind a path's prefix, as it is stored or in its normal form, and a NUL behind it.
class Remainder
{
public:
    Remainder(Path const& path, Form form) : view(path.ToString())
    {
        if (HasPrefix(view))
        {
            path.Prefix(); // required: a path is asked twice, and a device path logs it twice
            prefix = path.Prefix();
            view.remove_prefix(ViewOf(prefix).size());
        }
        Bring(form);
    }

    /// The same without a question to the path, and so without a statement about a device path.
    Remainder(std::wstring_view text, PathPrefix prefix, Form form) : view(text), prefix(prefix)
    {
        view.remove_prefix(ViewOf(prefix).size());
        Bring(form);
    }

    Remainder(Remainder const&) = delete;
    Remainder& operator=(Remainder const&) = delete;

    std::wstring_view Text() const { return view; }
    PathPieces Pieces() const { return {view, prefix}; }

private:
    static constexpr std::size_t capacity = 1023;

    void Bring(Form form)
    {
        bool const isFixed = form == Form::stored || Detail::IsExtendedLength(prefix);
        if (!isFixed && Detail::FindFirstToFold(view) != view.size())
            Normalize();
    }

    [[gnu::noinline]] void Normalize()
    {
        wchar_t* normal = onStack;
        if (view.size() > capacity)
        {
            onHeap.resize(view.size());
            normal = onHeap.data();
        }
        std::size_t const length = Detail::NormalizeNonExtendedLengthPath(view, normal);
        normal[length] = 0;
        view = std::wstring_view(normal, length);
    }

    std::wstring_view view;
    PathPrefix prefix = PathPrefix::none;
    std::wstring onHeap;
    wchar_t onStack[capacity + 1];
};

} // namespace

std::wstring Path::DriveWithColon() const
{
    return std::wstring(Remainder(*this, Form::normal).Pieces().DriveWithColon());
}

std::wstring Path::Server() const
{
    return std::wstring(Remainder(*this, Form::normal).Pieces().Server());
}

std::wstring Path::Share() const
{
    return std::wstring(Remainder(*this, Form::normal).Pieces().Share());
}

std::wstring Path::Directory() const
{
    return std::wstring(Remainder(*this, Form::stored).Pieces().Directory());
}

std::wstring Path::DirectoryNormalized() const
{
    return std::wstring(Remainder(*this, Form::normal).Pieces().Directory());
}

std::wstring Path::DriveAndDirectory() const
{
    return std::wstring(Remainder(*this, Form::stored).Pieces().DriveAndDirectory());
}

std::wstring Path::DriveAndDirectoryNormalized() const
{
    return std::wstring(Remainder(*this, Form::normal).Pieces().DriveAndDirectory());
}

Path Path::Parent() const
{
    return Path(DriveAndDirectory());
}

namespace
{

/// Hands the last component to a function and gives its result.
template <class Use>
auto UseName(Path const& path, Use const& use)
{
    std::wstring_view const text = path.ToString();
    std::wstring_view const name = HasPrefix(text) ? std::wstring_view() : Detail::FindPlainName(text);
    return name.empty() ? use(Remainder(path, Form::normal).Pieces().NameWithExtension()) : use(name);
}

} // namespace

std::wstring Path::NameWithExtension() const
{
    return UseName(*this, [](std::wstring_view name) { return std::wstring(name); });
}

std::wstring Path::NameWithoutExtension() const
{
    return UseName(*this, [](std::wstring_view name) { return std::wstring(Detail::WithoutExtension(name)); });
}

std::wstring Path::ExtensionWithDot() const
{
    return UseName(*this, [](std::wstring_view name) { return std::wstring(Detail::ExtensionWithDot(name)); });
}

bool Path::HasExtension() const noexcept
{
    std::size_t const dot = text.rfind(L'.');
    if (dot == std::wstring::npos || dot + 1 == text.size())
        return false;
    std::size_t const last = text.rfind(separator);
    return last == std::wstring::npos || dot > last;
}

Path Path::WithChangedExtension(std::wstring const& extension) const
{
    std::size_t const oldLength =
        UseName(*this, [](std::wstring_view name) { return Detail::ExtensionWithDot(name).size(); });
    bool const needsDot = !extension.empty() && extension.front() != L'.';
    std::wstring_view const kept = std::wstring_view(text).substr(0, text.size() - oldLength);
    std::wstring changed;
    changed.reserve(kept.size() + (needsDot ? 1 : 0) + extension.size());
    changed.append(kept);
    if (needsDot)
        changed.push_back(L'.');
    changed.append(extension);
    return Path(std::move(changed));
}

Path Path::Normalized() const
{
    Prefix(); // required: a path is asked twice, and a device path logs it twice
    PathPrefix const prefix = Prefix();
    std::wstring_view const prefixText = ViewOf(prefix);
    std::size_t const prefixLength = prefixText.size();
    std::wstring normal = text;
    if (prefix == PathPrefix::extendedLength)
        normal.replace(0, prefixLength, prefixText); // a device path has another one
    if (!Detail::IsExtendedLength(prefix))
    {
        std::wstring_view const remainder = std::wstring_view(normal).substr(prefixLength);
        wchar_t* const target = normal.data() + prefixLength;
        normal.resize(prefixLength + Detail::NormalizeNonExtendedLengthPath(remainder, target));
    }
    return Path(std::move(normal));
}

// Joining and merging

namespace
{

/// An empty text with room for these and a separator behind each.
template <class... Paths>
std::wstring WithRoomFor(Paths const&... paths)
{
    std::wstring text;
    text.reserve(((paths.ToString().size() + 1) + ...));
    return text;
}

/// Appends with one separator at the seam. The text is the same whether pieces are appended one by one or in pairs.
void Append(std::wstring& text, std::wstring_view piece)
{
    if (!text.empty() && !piece.empty())
    {
        bool const endsInSeparator = text.back() == separator;
        bool const beginsWithSeparator = piece.front() == separator;
        if (endsInSeparator && beginsWithSeparator)
            piece.remove_prefix(1);
        else if (!endsInSeparator && !beginsWithSeparator)
            text.push_back(separator);
    }
    text.append(piece);
}

template <class... Paths>
Path JoinAll(Paths const&... paths)
{
    std::wstring text = WithRoomFor(paths...);
    (Append(text, paths.ToString()), ...);
    return Path(std::move(text));
}

} // namespace

Path Path::Join(Path const& a, Path const& b)
{
    return JoinAll(a, b);
}

Path Path::Join(Path const& a, Path const& b, Path const& c)
{
    return JoinAll(a, b, c);
}

Path Path::Join(Path const& a, Path const& b, Path const& c, Path const& d)
{
    return JoinAll(a, b, c, d);
}

template <class... Paths>
Path Path::MergeAll(Path const& first, Paths const&... rest)
{
    Path merged(WithRoomFor(first, rest...));
    merged.text.append(first.text);
    (MergeInternal(merged, rest), ...);
    return merged;
}

Path Path::Merge(Path const& a, Path const& b)
{
    return MergeAll(a, b);
}

Path Path::Merge(Path const& a, Path const& b, Path const& c)
{
    return MergeAll(a, b, c);
}

Path Path::Merge(Path const& a, Path const& b, Path const& c, Path const& d)
{
    return MergeAll(a, b, c, d);
}

void Path::MergeInternal(Path& aPath, Path const& bPath)
{
    VOK_ASSERT(aPath.Prefix() == PathPrefix::none || aPath.Prefix() == PathPrefix::extendedLength);
    VOK_ASSERT(bPath.Prefix() == PathPrefix::none);
    std::wstring& a = aPath.text;
    std::wstring_view b = bPath.text;
    if (b.empty())
        return;
    bool const hasDrive = b.size() >= 2 && b[1] == L':';
    if (a.empty())
        a = b;
    else if (bPath.IsRelative())
    {
        if (hasDrive)
        {
            VOK_ASSERT(b.length() <= 2 || b[2] != L'\\'); // a guard: such a path isn't relative
            b.remove_prefix(2);                           // whichever drive it is
        }
        bool const endsInSeparator = a.back() == separator;
        if (b.starts_with(separator)) // `\` alone
        {
            VOK_LOG(error, "This shouldn't happen as if b starts with a slash it is not a relative path");
            if (endsInSeparator)
                b.remove_prefix(1);
        }
        else if (!endsInSeparator)
            a.push_back(separator);
        a.append(b);
    }
    else if (bPath.Prefix() != PathPrefix::none || hasDrive)
        a = b;
    else
    {
        // The drive alone is kept, without an extended-length prefix.
        std::wstring const drive = aPath.DriveWithColon();
        a = drive;
        a.append(b);
    }
}

// Creation on disk

namespace
{

/// `\\?\C:`, which has no attributes to ask for.
bool IsBareExtendedLengthDrive(std::wstring_view text)
{
    return text.size() == 6 && text.starts_with(extendedLengthPrefix) && text[5] == L':';
}

} // namespace

unsigned long Path::CreatePath() const
{
    if (text.empty())
        return ERROR_INVALID_PARAMETER;
    if (static_cast<DWORD>(FileAttributes()) != INVALID_FILE_ATTRIBUTES)
        return ERROR_SUCCESS;
    DWORD const code = static_cast<DWORD>(LastError());
    if (code == ERROR_INVALID_PARAMETER && IsBareExtendedLengthDrive(text))
        return ERROR_SUCCESS;
    bool const isMissing = Detail::IsMissing(code);
    if (!isMissing && code != ERROR_INVALID_PARAMETER)
        VOK_LOG(error, "GetFileAttributes error: [{}]", code);

    bool const goesOn = isMissing || code == ERROR_SUCCESS;
    if (goesOn && text == extendedLengthPrefix)
        return ERROR_BAD_PATHNAME;
    Path const parent = Parent();
    if (parent.text == text)
        return ERROR_BAD_PATHNAME; // a root, whatever the query said
    if (!goesOn)
        return code;
    if (DWORD const failure = static_cast<DWORD>(CreateParentPath(parent)); failure != ERROR_SUCCESS)
        return failure;
    if (CreateDir() != 0)
        return ERROR_SUCCESS;
    DWORD const failure = static_cast<DWORD>(LastError());
    return failure == ERROR_ALREADY_EXISTS ? ERROR_SUCCESS : failure; // another thread was faster
}

bool Path::IsDirectory() const
{
    return static_cast<DWORD>(IsDirectoryImpl()) == FILE_ATTRIBUTE_DIRECTORY;
}

bool Path::DirectoryExists() const
{
    return IsDirectory();
}

int Path::CreateDir() const
{
    return CreateDirectoryW(text.c_str(), nullptr);
}

unsigned long Path::CreateParentPath(Path const& parent) const
{
    return parent.CreatePath();
}

unsigned long Path::FileAttributes() const
{
    return GetFileAttributesW(text.c_str());
}

unsigned long Path::LastError() const
{
    return GetLastError();
}

unsigned long Path::IsDirectoryImpl() const
{
    return static_cast<DWORD>(PathIsDirectoryW(text.c_str()));
}

// Comparison

bool operator<(Path const& lhs, Path const& rhs)
{
    VOK_ASSERT(lhs.Prefix() == rhs.Prefix());
    return _wcsicmp(lhs.ToString().c_str(), rhs.ToString().c_str()) < 0;
}

bool operator>(Path const& lhs, Path const& rhs)
{
    VOK_ASSERT(lhs.Prefix() == rhs.Prefix());
    return _wcsicmp(lhs.ToString().c_str(), rhs.ToString().c_str()) > 0;
}

bool operator==(Path const& lhs, Path const& rhs)
{
    VOK_ASSERT(lhs.Prefix() == rhs.Prefix());
    Remainder const left(lhs, Form::normal);
    Remainder const right(rhs, Form::normal);
    return _wcsicmp(left.Text().data(), right.Text().data()) == 0;
}

bool operator!=(Path const& lhs, Path const& rhs)
{
    return !(lhs == rhs);
}

namespace
{

/// As _wcsicmp folds, A to Z in each locale alike. The two must agree, or equal paths have different hashes.
std::uint32_t Folded(wchar_t unit)
{
    auto const value = static_cast<std::uint32_t>(unit);
    if (value >= 0x80)
        return std::towlower(value);
    return unit >= L'A' && unit <= L'Z' ? value - L'A' + L'a' : value;
}

/// Of what _wcsicmp looks at: up to the first NUL.
std::size_t HashOfFolded(std::wstring_view text)
{
    std::uint64_t hash = 0xCBF29CE484222325U; // FNV-1a, a code unit at a time
    for (wchar_t const unit : text.substr(0, text.find(L'\0')))
    {
        hash = (hash ^ Folded(unit)) * 0x100000001B3U;
    }
    return static_cast<std::size_t>(hash ^ (hash >> 32));
}

} // namespace

std::size_t Detail::HashOf(Path const& path)
{
    std::wstring const& text = path.ToString();
    return HashOfFolded(Remainder(text, PrefixOf(text), Form::normal).Text());
}

} // namespace Brindle::Vok
