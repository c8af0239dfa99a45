// A file-system location as a value: the text of a path, verbatim, in Windows syntax on every host.
//
//     Path file = Path::Join(L"C:\\a", L"b", L"c.txt");      // C:\a\b\c.txt
//     if (file.IsUnc())
//         ...
//     std::ifstream stream(file.ToStdPath());
//
// Every property is worked out from the text on demand: nothing is cached, nothing looks at a disk, nothing is
// normalised or checked at construction. `\` is the separator; `/` is an ordinary character. Lengths are UTF-16 code
// units. A Path isn't synchronised: concurrent reads of one object are fine, a write beside any other access is not.
#pragma once

#include <Brindle/Vok/Platform.h>

#include <cstdint>
#include <filesystem>
#include <string>

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

class VOK_EXPORT Path
{
public:
    Path();
    /// The text as it stands. From narrow text by UTF-8 decoding, where String::StringToWstring tells what is thrown; a
    /// null narrow pointer gives the empty path, a null wide one is not provided for.
    Path(std::wstring text);
    Path(wchar_t const* text);
    Path(std::string text);
    Path(char const* text);

    Path(Path const&);
    Path(Path&& other) noexcept; ///< leaves the other path empty
    Path& operator=(Path const&);
    Path& operator=(Path&& other) noexcept;
    virtual ~Path();

    /// The stored text.
    std::wstring const& ToString() const noexcept;
    /// The stored text in UTF-8; an ill-formed unit becomes U+FFFD.
    std::string ToStringA() const;
    /// A standard path of the stored text as it is. Surrogate pairs are joined where the standard library's wide
    /// characters are code points. There a lone surrogate, which such a library cannot hold, becomes U+FFFD.
    std::filesystem::path ToStdPath() const;

    /// How the text begins. A device path (`\\.\`) is not supported: each call logs "Device path not supported [{}]" at
    /// error and gives extendedLength.
    PathPrefix Prefix() const;
    /// The text of Prefix(): empty, `\\`, `\\?\` or `\\?\UNC\`.
    std::wstring const& PrefixText() const;
    bool IsExtendedLength() const;
    bool IsUnc() const;
    /// Whether the text is neither UNC nor rooted. A drive with no separator behind it is relative, and so is `\`
    /// alone, unlike every longer text that begins with it.
    bool IsRelative() const noexcept;

    /// The pieces with exactly one separator at each seam, whatever they mean: an absolute second piece is appended
    /// like any other. An empty piece adds nothing. Of two separators at a seam one goes.
    static Path Join(Path a, Path b);
    static Path Join(Path a, Path b, Path c);
    static Path Join(Path a, Path b, Path c, Path d);

private:
    static std::wstring const& PrefixText(PathPrefix prefix);

    std::wstring text;
};

} // namespace Brindle::Vok
