// A file-system location as a value: the text of a path, verbatim, in Windows syntax on every host.
//
//     Path const file = Path::Join(L"C:\\logs", L"2024", L"day.txt");   // C:\logs\2024\day.txt
//     unsigned long const code = file.Parent().CreatePath();            // makes C:\logs\2024, 0 on success
//     file.WithChangedExtension(L"old");                                // C:\logs\2024\day.old
//     file == L"c:/LOGS/2024/./day.txt";                                // true
//     VOK_LOG(info, "read [{}]", file);                                 // a path stands in any format
//
// The separator is `\`. `/` is an ordinary character except to what normalises, so call Normalized() first on a text
// that may have it: `C:/a/b` as it stands is relative, and its parent is `C:`. Directory and parent are taken from the
// stored text, names and extensions from the normal form. Together they make up the path only if it is normal.
//
// Every property is worked out from the text on demand. Nothing is cached, nothing is normalised or checked at
// construction, and apart from CreatePath, IsDirectory and DirectoryExists nothing looks at a disk. Every text is a
// path and falls into some pieces. Nothing throws, apart from std::bad_alloc, what decoding narrow text throws, and
// what a subscriber of the log throws.
//
// A drive is any code unit with a `:` behind it at the text's start. Lengths are UTF-16 code units. `==`, `<`, `>` and
// the hash take A to Z for a to z, and further letters as the calling thread's locale has it, unit by unit; in the "C"
// locale, with which each process begins, there are none. (So no container of paths outlives a change of the locale.)
//
// There are no `<=`, `>=` and `<=>`: std::sort sorts paths, and a range algorithm with std::less<>. Comparing paths of
// different prefixes is well defined, but each time a statement at error tells of it, also while a container is sorted
// or looked through.
//
// A narrow text is UTF-8 in Windows syntax too. A std::filesystem::path converts by its text: a path of the host isn't
// translated by that.
//
// Not guaranteed: that `<` and `==` agree. They are different relations, so a std::set may hold two paths that are
// equal; the unordered containers don't. That a path with the prefix `\\?\` keeps it through Parent() or Merge(). That
// a text with `..` names the same file when it is normalised: links aren't known.
//
// A property allocates the text that it returns and nothing else, except that a text of more than 1,023 code units
// which isn't normal yet takes one more while it is normalised. A Path isn't synchronised: concurrent reads of one
// object are fine, a write beside any other access is not.
#pragma once

#include <Brindle/Vok/FormatString.h>
#include <Brindle/Vok/Platform.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace Brindle::Vok
{

/// What a path's text begins with. Unscoped, so that it converts to its number.
enum PathPrefix : std::int32_t
{
    none = 0,             ///< anything else, such as `C:\`
    unc = 1,              ///< `\\`
    extendedLength = 2,   ///< `\\?\`, and `\\.\` too
    extendedLengthUnc = 3 ///< `\\?\UNC\`, in exactly this case
};

/// The enumerator's name, as a text that lives as long as the process. Any other value logs "unknown PathPrefix {}"
/// with its number at error and gives "unknown PathPrefix". Any thread may call it.
VOK_EXPORT std::wstring const& ToString(PathPrefix prefix);
/// The same in UTF-8.
VOK_EXPORT std::string ToStringA(PathPrefix prefix);

class Path;

namespace Detail
{

/// What std::hash gives.
VOK_EXPORT std::size_t HashOf(Path const& path);

} // namespace Detail

/// The text of a path and what can be told from it. A piece that isn't there is empty.
///
/// The protected members are the seam to the disk, for a derived class that stands in for it. Each acts on the stored
/// text as it stands, and of each code or mask the low 32 bits count.
class VOK_EXPORT Path
{
public:
    Path() = default;
    /// The text as it stands.
    Path(std::wstring pathText) : text(std::move(pathText)) {}
    /// The text up to its NUL. Null is not provided for.
    Path(wchar_t const* pathText) : text(pathText) {}
    /// The text of its UTF-8; String::StringToWstring tells what is thrown.
    Path(std::string pathText);
    /// The same up to its NUL. Null gives the empty path.
    Path(char const* pathText);

    Path(Path const&) = default;
    /// Leaves the other path empty.
    Path(Path&& other) noexcept : text(std::move(other.text)) { other.text.clear(); }
    Path& operator=(Path const&) = default;
    /// Leaves the other path empty; assigning a path to itself changes nothing.
    Path& operator=(Path&& other) noexcept
    {
        if (this != &other)
        {
            text = std::move(other.text);
            other.text.clear();
        }
        return *this;
    }
    virtual ~Path() = default;

    /// The stored text.
    std::wstring const& ToString() const noexcept { return text; }
    /// The stored text in UTF-8; an ill-formed unit becomes U+FFFD.
    std::string ToStringA() const;
    /// A standard path of the stored text as it is, for the standard library's operations on texts. It is no path of
    /// the host: no drive and no share is looked up. Where the standard library's paths are UTF-8, surrogate pairs are
    /// joined, and a lone surrogate or a unit above U+FFFF, which can't be held there, becomes U+FFFD. Any other text
    /// comes back unchanged from the result's u16string() or u8string().
    std::filesystem::path ToStdPath() const;

    /// How the text begins. A device path (`\\.\`) is not supported: each call logs "Device path not supported [{}]" at
    /// error and gives extendedLength. Whatever asks for the prefix logs so too, some operations more than once. Only
    /// the stored text, IsRelative, HasExtension, Join, IsDirectory, DirectoryExists and the hash don't ask.
    PathPrefix Prefix() const;
    /// The text of Prefix(): empty, `\\`, `\\?\` or `\\?\UNC\`.
    std::wstring const& PrefixText() const;
    /// Whether Prefix() is one of the two extended-length ones.
    bool IsExtendedLength() const;
    /// Whether Prefix() is unc or extendedLengthUnc.
    bool IsUnc() const;
    /// Whether the text is neither UNC nor rooted. A drive with no separator behind it is relative, and so is `\`
    /// alone, unlike every longer text that begins with it.
    bool IsRelative() const noexcept;

    /// `C:` of `C:\a`, also of `\\?\C:\a`. UNC paths have none.
    std::wstring DriveWithColon() const;
    /// `server` of `\\server\share\a`. Only UNC paths have one. It is taken from the normal form, where
    /// the server is a component like any other: that of `\\server\..\x` is `x`.
    std::wstring Server() const;
    /// `share` of `\\server\share\a`.
    std::wstring Share() const;
    /// `a\b` of `C:\a\b\c.txt`, of `C:\a\b\` and of `\\server\share\a\b\c`: what stands between root and last
    /// separator. It is taken from the stored text as it is, so `/` is an ordinary character and `..` stays.
    std::wstring Directory() const;
    /// The same of the normalised text.
    std::wstring DirectoryNormalized() const;
    /// `C:\a` of `C:\a\b.txt` and of `\\?\C:\a\b.txt`, `\a` of `\\server\share\a\b.txt`: drive, `\` if the path is
    /// rooted, and Directory(). Prefix, server and share are lost.
    std::wstring DriveAndDirectory() const;
    /// The same of the normalised text.
    std::wstring DriveAndDirectoryNormalized() const;
    /// A path of DriveAndDirectory(). A root, such as `C:\`, is its own parent.
    Path Parent() const;
    /// `c.tar.gz` of `C:\a\c.tar.gz`; empty behind a trailing separator. It is the last component of the normal form,
    /// as it is for the two that follow: `b.c` of `C:/a/b.c`, empty for `a\b\..`.
    std::wstring NameWithExtension() const;
    /// `c.tar` of `C:\a\c.tar.gz`; empty for `.bashrc`.
    std::wstring NameWithoutExtension() const;
    /// `.gz` of `C:\a\c.tar.gz`, `.` of `file.`, `.bashrc` of `.bashrc`: the last component from its last dot on.
    std::wstring ExtensionWithDot() const;
    /// Whether something stands behind the last dot and that dot behind the last `\`. It asks the text as it is, and so
    /// it says false for `file.`, whose ExtensionWithDot() is `.`, and true for `a.b/c`, whose ExtensionWithDot() is
    /// empty.
    bool HasExtension() const noexcept;
    /// The stored text with another extension in the place of ExtensionWithDot(). A missing dot is added in front of
    /// the extension; an empty one removes the old extension. The old one's length is that of the normalised form,
    /// also where the stored text ends differently: `C:\a\b.txt\..` with `c` gives `C:\a\b.txt\...c`.
    Path WithChangedExtension(std::wstring const& extension) const;

    /// The path in normal form. `/` is made `\`, repeated separators are made one, `.` between separators is removed,
    /// and `..` with the component before it. What begins with `\\?\` stays as it is; `\\.\` becomes `\\?\`, and what
    /// follows it stays as it is too. `..` above the root stays, and so do a leading `.\`, a trailing `\.` and a
    /// trailing separator. Of several `.` in a row every second one stays: `a\.\.\b` becomes `a\.\b`. `..\..` becomes
    /// the empty text. The names of server and share count as components.
    Path Normalized() const;

    /// The pieces with exactly one separator at each seam, whatever they mean: an absolute second piece is appended
    /// like any other. An empty piece adds nothing. Of two separators at a seam one goes.
    static Path Join(Path const& a, Path const& b);
    /// The same with three.
    static Path Join(Path const& a, Path const& b, Path const& c);
    /// The same with four.
    static Path Join(Path const& a, Path const& b, Path const& c, Path const& d);

    /// Each path as seen from the one before: an absolute one replaces it, one that begins with `\` keeps its drive,
    /// and a relative one is appended, without its drive if it has one (`D:b` onto `C:\a` gives `C:\a\b`). An empty
    /// path changes nothing. The earlier paths should not be UNC and the later ones have no prefix: a soft assertion
    /// logs it. `\` alone, which counts as relative, is logged too, as "This shouldn't happen as if b starts with a
    /// slash it is not a relative path". All go on regardless.
    static Path Merge(Path const& a, Path const& b);
    /// The same with three.
    static Path Merge(Path const& a, Path const& b, Path const& c);
    /// The same with four.
    static Path Merge(Path const& a, Path const& b, Path const& c, Path const& d);

    /// Makes the directory and all its missing parents. Gives 0 or a Win32 error code:
    ///
    /// - 0 when the path exists, also as a file, and for `\\?\C:` when the platform takes no question about it
    /// - ERROR_INVALID_PARAMETER for an empty path, and for a relative one of which nothing exists; it makes nothing.
    /// `Q:a`
    ///   is relative too, but ERROR_BAD_PATHNAME without a drive Q
    /// - ERROR_BAD_PATHNAME for a root that can't be seen, whatever the reason
    /// - otherwise the platform's code for what couldn't be asked or made
    ///
    /// A question that fails for another reason than a missing name (2, 3) or ERROR_INVALID_PARAMETER is logged at
    /// error as "GetFileAttributes error: [{}]" with its code. What was made before a failure stays. Threads may make
    /// overlapping paths at the same time. The platform sees a text up to its first NUL.
    ///
    /// Components in front of a `..` are made too, and `/` separates nothing here: normalise a text first that may have
    /// them.
    ///
    /// Parents are found by Parent(), so those of `\\?\C:\a\b` are made under their plain names, and those of
    /// `\\server\share\a\b` are looked for and made as `\a`, on the current drive: behind a share only one missing
    /// directory can be made.
    unsigned long CreatePath() const;
    /// Whether a directory stands there. False for whatever keeps the platform from telling.
    bool IsDirectory() const;
    /// The same as IsDirectory().
    bool DirectoryExists() const;

protected:
    /// Makes the directory; not 0 is success, otherwise LastError() tells why.
    virtual int CreateDir() const;
    /// `parent` is a plain Path: a class that wants a say in the parents overrides this too.
    virtual unsigned long CreateParentPath(Path const& parent) const;
    /// INVALID_FILE_ATTRIBUTES on failure, otherwise anything.
    virtual unsigned long FileAttributes() const;
    /// Why the hook before it failed; asked for at once.
    virtual unsigned long LastError() const;
    /// FILE_ATTRIBUTE_DIRECTORY if a directory stands there. No other value says yes.
    virtual unsigned long IsDirectoryImpl() const;

private:
    static std::wstring const& PrefixText(PathPrefix prefix);
    template <class... Paths>
    static Path MergeAll(Path const& first, Paths const&... rest);
    /// Merges the second path into the first, whose text has room for both.
    static void MergeInternal(Path& aPath, Path const& bPath);

    std::wstring text;
};

/// Whether the left text comes before the right one. The stored texts are compared, raw, by code units with A to Z
/// folded to a to z, up to the first NUL; so `_` comes before every letter. Different prefixes are a soft assertion,
/// which logs and changes nothing.
VOK_EXPORT bool operator<(Path const& lhs, Path const& rhs);
/// The same with the sides changed.
VOK_EXPORT bool operator>(Path const& lhs, Path const& rhs);

/// Whether both are the same behind their prefixes once they are normalised, again with A to Z folded and up to the
/// first NUL. Extended-length paths are compared as they stand. A trailing separator counts. Different prefixes are a
/// soft assertion, which logs and changes nothing: `\\?\C:\a` equals `C:\a`.
VOK_EXPORT bool operator==(Path const& lhs, Path const& rhs);
/// The opposite of ==.
VOK_EXPORT bool operator!=(Path const& lhs, Path const& rhs);

} // namespace Brindle::Vok

/// Goes with operator==: equal paths have equal hashes. It logs nothing.
template <>
struct std::hash<Brindle::Vok::Path>
{
    std::size_t operator()(Brindle::Vok::Path const& path) const { return Brindle::Vok::Detail::HashOf(path); }
};

/// A path in a format is its stored text, with the specifications of a text: `{}`, `{:>40}`.
template <std::derived_from<Brindle::Vok::Path> AnyPath, class Char>
struct fmt::formatter<AnyPath, Char> : fmt::formatter<std::basic_string_view<Char>, Char>
{
    template <class Context>
    auto format(AnyPath const& path, Context& context) const
    {
        using Text = fmt::formatter<std::basic_string_view<Char>, Char>;
        if constexpr (std::is_same_v<Char, char>)
            return Text::format(path.ToStringA(), context);
        else
            return Text::format(path.ToString(), context);
    }
};
