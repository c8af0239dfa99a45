// A file-system location as a value: the text of a path, verbatim, in Windows syntax on every host.
//
//     Path const file = Path::Join(L"C:\\logs", L"2024", L"day.txt");   // C:\logs\2024\day.txt
//     file.Parent().CreatePath();                                       // makes C:\logs\2024, 0 on success
//     file.WithChangedExtension(L"old");                                // C:\logs\2024\day.old
//     file == L"c:/LOGS/2024/./day.txt";                                // true
//     std::ifstream stream(file.ToStdPath());
//     VOK_LOG(info, "read [{}]", file);                                 // a path stands in any format
//
// Every property is worked out from the text on demand. Nothing is cached, nothing is normalised or checked at
// construction, and apart from CreatePath, IsDirectory and DirectoryExists nothing looks at a disk. Every text is a
// path and falls into some pieces; no operation throws, but for want of memory and where narrow text is decoded.
//
// The separator is `\`. Only the operations that normalise know `/`, and for them it is the same. A drive is any code
// unit with a `:` behind it at the text's start. `==`, `<` and `>` take A to Z for a to z; nothing else does, and no
// locale has a say. Lengths are UTF-16 code units.
//
// Not guaranteed: that `<` and `==` agree (they are different relations), that a path with the prefix `\\?\` keeps it
// through Parent() or Merge(), that a text with `..` names the same file when it is normalised (links aren't known).
//
// No property costs more memory than the string that it returns, except where a text of more than 32,767 code units,
// which can name nothing, has to be normalised. A Path isn't synchronised: concurrent reads of one object are fine, a
// write beside any other access is not.
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

/// What a path's text begins with.
enum class PathPrefix : std::int32_t
{
    none = 0,
    unc = 1,              ///< `\\`
    extendedLength = 2,   ///< `\\?\`, and `\\.\` too
    extendedLengthUnc = 3 ///< `\\?\UNC\`, in exactly this case
};

/// The enumerator's name. Any other value logs "unknown PathPrefix {}" at error and gives "unknown PathPrefix".
VOK_EXPORT std::wstring const& ToString(PathPrefix prefix);
VOK_EXPORT std::string ToStringA(PathPrefix prefix);

class Path;

namespace Detail
{

class PathPieces;

VOK_EXPORT std::size_t HashOf(Path const& path);

} // namespace Detail

class VOK_EXPORT Path
{
public:
    Path() = default;
    /// The text as it stands. From narrow text by UTF-8 decoding, where String::StringToWstring tells what is thrown; a
    /// null narrow pointer gives the empty path, a null wide one is not provided for.
    Path(std::wstring pathText) : text(std::move(pathText)) {}
    Path(wchar_t const* pathText) : text(pathText) {}
    Path(std::string pathText);
    Path(char const* pathText);

    Path(Path const&) = default;
    /// Leaves the other path empty.
    Path(Path&& other) noexcept : text(std::move(other.text)) { other.text.clear(); }
    Path& operator=(Path const&) = default;
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
    /// A standard path of the stored text as it is. Where the standard library's paths are UTF-8, surrogate pairs are
    /// joined, and a lone surrogate, which can't be held there, becomes U+FFFD. Any other text comes back unchanged
    /// from the result's u16string() or u8string().
    std::filesystem::path ToStdPath() const;

    /// How the text begins. A device path (`\\.\`) is not supported: each call logs "Device path not supported [{}]" at
    /// error and gives extendedLength. Most of what follows asks, so it logs too: once for IsUnc and IsExtendedLength,
    /// twice for whatever takes the text to pieces.
    PathPrefix Prefix() const;
    /// The text of Prefix(): empty, `\\`, `\\?\` or `\\?\UNC\`.
    std::wstring const& PrefixText() const;
    bool IsExtendedLength() const;
    bool IsUnc() const;
    /// Whether the text is neither UNC nor rooted. A drive with no separator behind it is relative, and so is `\`
    /// alone, unlike every longer text that begins with it.
    bool IsRelative() const noexcept;

    // The pieces. What isn't there is empty.

    /// `C:` of `C:\a`, also of `\\?\C:\a`. UNC paths have none.
    std::wstring DriveWithColon() const;
    /// `server` of `\\server\share\a`. Only UNC paths have one. Without the extended-length prefix `..` climbs over it.
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
    std::wstring DriveAndDirectoryNormalized() const;
    /// A path of DriveAndDirectory(). A root, such as `C:\`, is its own parent.
    Path Parent() const;
    /// `c.tar.gz` of `C:\a\c.tar.gz`; empty behind a trailing separator.
    std::wstring NameWithExtension() const;
    /// `c.tar` of `C:\a\c.tar.gz`; empty for `.bashrc`.
    std::wstring NameWithoutExtension() const;
    /// `.gz` of `C:\a\c.tar.gz`, `.` of `file.`, `.bashrc` of `.bashrc`: the last component from its last dot on.
    std::wstring ExtensionWithDot() const;
    /// Whether something stands behind the last dot and that dot behind the last `\`. It asks the text as it is, and so
    /// it says false for `file.` and true for `a.b/c`, where ExtensionWithDot() has it the other way round.
    bool HasExtension() const noexcept;
    /// The stored text with another extension in the place of ExtensionWithDot(). A missing dot is added in front of
    /// the extension; an empty one takes the old extension away. The old one's length is that of the normalised form,
    /// also where the stored text ends differently: `C:\a\b.txt\..` with `c` gives `C:\a\b.txt\...c`.
    Path WithChangedExtension(std::wstring const& extension) const;

    /// The path in normal form: `/` made `\`, repeated separators made one, `.` between separators taken away, and `..`
    /// with the component before it. What begins with `\\?\` stays as it is, and `\\.\` becomes `\\?\`. `..` above the
    /// root stays, and so do a leading `.\`, a trailing `\.` and a trailing separator. Of several `.` in a row every
    /// second one stays: `a\.\.\b` becomes `a\.\b`. `..\..` becomes the empty text. The names of server and share count
    /// as components.
    Path Normalized() const;

    /// The pieces with exactly one separator at each seam, whatever they mean: an absolute second piece is appended
    /// like any other. An empty piece adds nothing. Of two separators at a seam one goes.
    static Path Join(Path const& a, Path const& b);
    static Path Join(Path const& a, Path const& b, Path const& c);
    static Path Join(Path const& a, Path const& b, Path const& c, Path const& d);

    /// Each path as seen from the one before: an absolute one replaces it, one that begins with `\` keeps its drive,
    /// and a relative one is appended, without its drive if it has one (`D:b` onto `C:\a` gives `C:\a\b`). An empty
    /// path changes nothing. The earlier paths should not be UNC and the later ones have no prefix: a soft assertion
    /// logs it, and `\` alone, which counts as relative, is logged too; all go on regardless.
    static Path Merge(Path a, Path b);
    static Path Merge(Path a, Path b, Path c);
    static Path Merge(Path a, Path b, Path c, Path d);

    /// Makes the directory and all its missing parents. Gives 0, also when the path exists (as a file too), or a Win32
    /// error code: ERROR_INVALID_PARAMETER for an empty path, and for a relative one of which nothing exists, so that
    /// nothing is made of it; ERROR_BAD_PATHNAME for a root that doesn't exist; otherwise the platform's. What was made
    /// before a failure stays. A query that fails for another reason than a missing name is logged at error. Threads
    /// may make overlapping paths at the same time.
    ///
    /// Parents are found by Parent(), so those of `\\?\C:\a\b` are made under their plain names, and those of
    /// `\\server\share\a\b` are looked for as `\a`: behind a share only one missing directory can be made, if `\`
    /// exists.
    unsigned long CreatePath() const;
    /// Whether a directory stands there. False for whatever keeps the platform from telling.
    bool IsDirectory() const;
    bool DirectoryExists() const;

protected:
    // The seam to the disk, for a derived class that stands in for it. Each acts on the stored text as it stands.

    /// Makes the directory; not 0 is success, otherwise LastError() tells why.
    virtual int CreateDir() const;
    /// `parent` is a plain Path: a class that wants a say in the parents overrides this too.
    virtual unsigned long CreateParentPath(Path const& parent) const;
    /// INVALID_FILE_ATTRIBUTES on failure, otherwise anything.
    virtual unsigned long FileAttributes() const;
    virtual unsigned long LastError() const;
    /// FILE_ATTRIBUTE_DIRECTORY if a directory stands there. No other value says yes.
    virtual unsigned long IsDirectoryImpl() const;

private:
    friend VOK_EXPORT bool operator==(Path const& lhs, Path const& rhs);
    friend VOK_EXPORT std::size_t Detail::HashOf(Path const& path);

    static std::wstring const& PrefixText(PathPrefix prefix);
    /// Merges the second path into the first, which has the room.
    static void MergeInternal(Path& aPath, Path const& bPath);

    /// Hands what stands behind the prefix, with a NUL behind it, and the prefix to a function and gives its result.
    template <bool normalize, class Use>
    auto UseRemainder(Use const& use) const;
    /// Hands the last component to a function and gives its result.
    template <class Use>
    auto UseName(Use const& use) const;
    template <class Use>
    auto UseNameOfNormalForm(Use const& use) const;
    template <bool normalize, std::wstring_view (Detail::PathPieces::*piece)() const noexcept>
    std::wstring Piece() const;

    std::wstring text;
};

/// Orders the stored texts, raw, by code units with A to Z folded to a to z, up to the first NUL; so `_` comes before
/// every letter. Different prefixes are a soft assertion, which logs and changes nothing.
VOK_EXPORT bool operator<(Path const& lhs, Path const& rhs);
VOK_EXPORT bool operator>(Path const& lhs, Path const& rhs);

/// Whether both are the same behind their prefixes once they are normalised, again with A to Z folded and up to the
/// first NUL. Extended-length paths are compared as they stand. A trailing separator counts. Different prefixes are a
/// soft assertion, which logs and changes nothing: `\\?\C:\a` equals `C:\a`.
VOK_EXPORT bool operator==(Path const& lhs, Path const& rhs);
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
