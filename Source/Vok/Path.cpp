#include <Brindle/Vok/Path.h>

#include <Brindle/Vok/Log.h>
#include <Brindle/Vok/String.h>

#include <string_view>
#include <utility>

namespace Brindle::Vok
{
namespace
{

std::wstring const noPrefix;
std::wstring const uncPrefix = L"\\\\";
std::wstring const extendedLengthPrefix = L"\\\\?\\";
std::wstring const extendedLengthUncPrefix = L"\\\\?\\UNC\\";
std::wstring const devicePrefix = L"\\\\.\\";

constexpr wchar_t separator = L'\\';

bool IsHighSurrogate(wchar_t unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool IsLowSurrogate(wchar_t unit)
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

/// Code points of UTF-16 code units; a lone surrogate becomes U+FFFD.
std::u32string JoinedSurrogates(std::wstring_view units)
{
    std::u32string points;
    points.reserve(units.size());
    for (std::size_t i = 0; i < units.size(); ++i)
    {
        char32_t const unit = static_cast<char32_t>(units[i]);
        if (IsHighSurrogate(units[i]) && i + 1 < units.size() && IsLowSurrogate(units[i + 1]))
            points.push_back(0x10000U + ((unit - 0xD800U) << 10) + (static_cast<char32_t>(units[++i]) - 0xDC00U));
        else if (IsHighSurrogate(units[i]) || IsLowSurrogate(units[i]) || unit > 0xFFFFU)
            points.push_back(0xFFFDU);
        else
            points.push_back(unit);
    }
    return points;
}

} // namespace

std::wstring const& ToString(PathPrefix prefix)
{
    static std::wstring const none = L"none";
    static std::wstring const unc = L"unc";
    static std::wstring const extendedLength = L"extendedLength";
    static std::wstring const extendedLengthUnc = L"extendedLengthUnc";
    static std::wstring const unknown = L"unknown PathPrefix";
    switch (prefix)
    {
    case PathPrefix::none:
        return none;
    case PathPrefix::unc:
        return unc;
    case PathPrefix::extendedLength:
        return extendedLength;
    case PathPrefix::extendedLengthUnc:
        return extendedLengthUnc;
    }
    VOK_LOG(error, "unknown PathPrefix {}", prefix);
    return unknown;
}

std::string ToStringA(PathPrefix prefix)
{
    return WideToUtf8(ToString(prefix));
}

Path::Path() = default;
Path::Path(std::wstring text) : text(std::move(text)) {}
Path::Path(wchar_t const* text) : text(text) {}
Path::Path(std::string text) : text(String::StringToWstring(text, CP_UTF8)) {}
Path::Path(char const* text) : text(String::StringToWstring(text, CP_UTF8)) {}
Path::Path(Path const&) = default;
Path& Path::operator=(Path const&) = default;
Path::~Path() = default;

Path::Path(Path&& other) noexcept : text(std::exchange(other.text, {})) {}

Path& Path::operator=(Path&& other) noexcept
{
    if (this != &other)
        text = std::exchange(other.text, {});
    return *this;
}

std::wstring const& Path::ToString() const noexcept
{
    return text;
}

std::string Path::ToStringA() const
{
    return WideToUtf8(text);
}

std::filesystem::path Path::ToStdPath() const
{
    if constexpr (sizeof(wchar_t) == sizeof(char16_t))
        return std::filesystem::path(text);
    else
        return std::filesystem::path(JoinedSurrogates(text));
}

PathPrefix Path::Prefix() const
{
    std::wstring_view const view = text;
    if (!view.starts_with(uncPrefix))
        return PathPrefix::none;
    if (view.starts_with(extendedLengthUncPrefix))
        return PathPrefix::extendedLengthUnc;
    if (view.starts_with(extendedLengthPrefix))
        return PathPrefix::extendedLength;
    if (view.starts_with(devicePrefix))
    {
        VOK_LOG(error, "Device path not supported [{}]", text);
        return PathPrefix::extendedLength;
    }
    return PathPrefix::unc;
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
        return noPrefix;
    case PathPrefix::unc:
        return uncPrefix;
    case PathPrefix::extendedLength:
        return extendedLengthPrefix;
    case PathPrefix::extendedLengthUnc:
        return extendedLengthUncPrefix;
    }
    VOK_LOG(error, "unknown PathPrefix {}", prefix);
    return noPrefix;
}

bool Path::IsExtendedLength() const
{
    PathPrefix const prefix = Prefix();
    return prefix == PathPrefix::extendedLength || prefix == PathPrefix::extendedLengthUnc;
}

bool Path::IsUnc() const
{
    PathPrefix const prefix = Prefix();
    return prefix == PathPrefix::unc || prefix == PathPrefix::extendedLengthUnc;
}

bool Path::IsRelative() const noexcept
{
    if (text.starts_with(L"\\\\"))
        return false;
    if (text.size() >= 3 && text[1] == L':' && text[2] == separator)
        return false;
    if (text.size() < 2)
        return true; // `\` alone too
    return text.front() != separator;
}

Path Path::Join(Path a, Path b)
{
    if (a.text.empty())
        return b;
    if (b.text.empty())
        return a;
    bool const endsInSeparator = a.text.back() == separator;
    bool const beginsWithSeparator = b.text.front() == separator;
    a.text.reserve(a.text.size() + b.text.size() + 1);
    if (!endsInSeparator && !beginsWithSeparator)
        a.text.push_back(separator);
    a.text.append(b.text, endsInSeparator && beginsWithSeparator ? 1 : 0);
    return a;
}

Path Path::Join(Path a, Path b, Path c)
{
    return Join(Join(std::move(a), std::move(b)), std::move(c));
}

Path Path::Join(Path a, Path b, Path c, Path d)
{
    return Join(Join(std::move(a), std::move(b)), Join(std::move(c), std::move(d)));
}

} // namespace Brindle::Vok
