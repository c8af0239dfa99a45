#include "Names.h"

#include "Ascii.h"
#include "HostErrors.h"
#include "Mappings.h"
#include "Utf.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <type_traits>

namespace Brindle::Vok::Platform
{
namespace
{

// Where the bytes and characters that a Windows name can't hold stand in text.
constexpr char32_t byteBase = 0xDC00;
constexpr char32_t firstByte = 0xDC80;
constexpr char32_t lastByte = 0xDCFF;
constexpr char32_t characterBase = 0xF000;

enum class Unit : unsigned char
{
    plain,
    backslash,
    slash,
    forbidden
};

constexpr std::array<Unit, 128> unitTable = []
{
    std::array<Unit, 128> table{};
    for (std::size_t control = 0; control < 0x20; ++control)
        table[control] = Unit::forbidden;
    for (char const character : {'<', '>', ':', '"', '|', '?', '*'})
        table[static_cast<std::size_t>(character)] = Unit::forbidden;
    table['\\'] = Unit::backslash;
    table['/'] = Unit::slash;
    return table;
}();

// Characters of a host's name that need the U+F000 form. NUL and the host's separator are in no name.
constexpr bool IsShifted(char32_t character)
{
    return character > 0 && character < 0x80 &&
           (unitTable[character] == Unit::forbidden || unitTable[character] == Unit::backslash);
}

constexpr bool StandsForShifted(char32_t character)
{
    return character >= characterBase && IsShifted(character - characterBase);
}

constexpr bool IsSeparator(wchar_t unit)
{
    return unit == L'\\' || unit == L'/';
}

// Writes what the non-ASCII unit at text[at] stands for, with its other half if it has one, and moves `at` behind it.
// Null for a surrogate that stands alone and for what is no UTF-16 unit.
char* EncodeUnit(std::wstring_view text, std::size_t& at, char* out) noexcept
{
    auto const unit = static_cast<char32_t>(text[at]);
    bool const isByte = unit >= firstByte && unit <= lastByte;
    if (isByte || StandsForShifted(unit))
    {
        *out = static_cast<char>(unit - (isByte ? byteBase : characterBase));
        ++at;
        return out + 1;
    }
    Utf::Decoded const decoded = Utf::DecodeWide(text.data() + at, text.size() - at);
    at += decoded.consumed;
    return decoded.valid ? out + Utf::EncodeUtf8(decoded.codePoint, out) : nullptr;
}

// Writes the run of plain ASCII units that begins at text[at] and gives how many they are.
std::size_t CopyPlainRun(std::wstring_view text, std::size_t at, char* out) noexcept
{
    wchar_t const* const begin = text.data() + at;
    wchar_t const* const end = text.data() + text.size();
    wchar_t const* unit = begin;
    for (; unit != end; ++unit)
    {
        auto const code = static_cast<std::make_unsigned_t<wchar_t>>(*unit);
        if (code >= unitTable.size() || unitTable[code] != Unit::plain)
            break;
        *out++ = static_cast<char>(code);
    }
    return static_cast<std::size_t>(unit - begin);
}

// Writes the component that begins at text[at] and moves `at` to the separator behind it. Null when it is no name.
char* EncodeComponent(std::wstring_view text, std::size_t& at, bool verbatim, char* out) noexcept
{
    while (out)
    {
        std::size_t const count = CopyPlainRun(text, at, out);
        at += count;
        out += count;
        if (at == text.size() || text[at] == L'\\' || (text[at] == L'/' && !verbatim))
            return out;
        bool const isAscii = static_cast<std::make_unsigned_t<wchar_t>>(text[at]) < unitTable.size();
        out = isAscii ? nullptr : EncodeUnit(text, at, out);
    }
    return nullptr;
}

// 1 for a component that is `.`, 2 for `..`, otherwise 0.
std::size_t DotsAt(std::wstring_view text, std::size_t at) noexcept
{
    std::size_t dots = 0;
    while (at + dots < text.size() && text[at + dots] == L'.' && dots < 3)
        ++dots;
    return dots < 3 && (at + dots == text.size() || IsSeparator(text[at + dots])) ? dots : 0;
}

// Goes up to the directory in front of `out`. Below `floor` nothing is taken away.
char* FoldUp(char const* begin, char* out, char const*& floor, bool relative) noexcept
{
    if (out != floor)
    {
        while (out != floor && *--out != '/')
            ;
        return out;
    }
    if (!relative)
        return out;
    // What leads out of the working directory is left to the host.
    if (out != begin)
        *out++ = '/';
    *out++ = '.';
    *out++ = '.';
    floor = out;
    return out;
}

} // namespace

// Where a text starts from, and where its components begin.
struct HostPath::Place
{
    enum class Start
    {
        nowhere,
        workingDirectory,
        drive,
        share
    };

    static Place Nowhere(DWORD code) noexcept
    {
        Place place;
        place.code = code;
        return place;
    }

    Start start = Start::nowhere;
    bool verbatim = false;
    wchar_t letter = L'C';
    std::wstring_view server;
    std::wstring_view share;
    std::size_t components = 0;
    DWORD code = ERROR_SUCCESS;
};

bool HostPath::Assign(wchar_t const* text) noexcept
{
    return Assign(text ? std::wstring_view(text) : std::wstring_view());
}

bool HostPath::Assign(std::wstring_view text) noexcept
{
    if (text.empty())
        return FailWith(ERROR_PATH_NOT_FOUND);
    Place const place = Locate(text);
    std::string_view directory;
    switch (place.start)
    {
    case Place::Start::nowhere:
        return FailWith(place.code);
    case Place::Start::workingDirectory:
        break;
    case Place::Start::drive:
        if (!FindDrive(place.letter, directory))
            return false;
        break;
    case Place::Start::share:
        if (!FindShare(place.server, place.share, directory))
            return false;
        break;
    }
    // \\?\C: without a separator is the device itself, which can't be taken for a file.
    if (place.verbatim && place.start == Place::Start::drive && place.components == text.size())
        return FailWith(ERROR_INVALID_PARAMETER);
    // A unit gives at most three bytes; the component in front of it, its separator and the end one each.
    if (!Reserve(directory.size() + 3 * text.size() + 3))
        return false;
    length = directory.copy(bytes, directory.size());
    return AppendComponents(text.substr(place.components), place.start == Place::Start::workingDirectory,
                            place.verbatim);
}

bool HostPath::AssignHost(std::string_view path) noexcept
{
    if (!Reserve(path.size() + 1))
        return false;
    std::memcpy(bytes, path.data(), path.size());
    bytes[path.size()] = '\0';
    length = path.size();
    namesDirectory = isRoot = false;
    return true;
}

HostPath::Place HostPath::Locate(std::wstring_view text) noexcept
{
    Place place;
    if (text.size() >= 2 && IsSeparator(text[0]) && IsSeparator(text[1]))
    {
        if (text.starts_with(L"\\\\?\\"))
            return LocateDevice(text, true);
        if (text.size() >= 3 && (text[2] == L'.' || text[2] == L'?') && (text.size() == 3 || IsSeparator(text[3])))
            return LocateDevice(text, false);
        return LocateShare(text, 2, false);
    }
    place.start = Place::Start::workingDirectory;
    if (IsSeparator(text[0]))
        place.start = Place::Start::drive;
    else if (text.size() >= 2 && text[1] == L':' && IsLetter(text[0]))
    {
        // Only C: has a working directory, the process's own.
        bool const isC = UpperCase(text[0]) == L'C';
        place.letter = text[0];
        place.components = 2;
        if (!isC || (text.size() > 2 && IsSeparator(text[2])))
            place.start = Place::Start::drive;
    }
    return place;
}

HostPath::Place HostPath::LocateDevice(std::wstring_view text, bool verbatim) noexcept
{
    constexpr std::size_t prefix = 4;
    auto separates = [verbatim](wchar_t unit) { return unit == L'\\' || (unit == L'/' && !verbatim); };
    std::wstring_view const device = text.size() > prefix ? text.substr(prefix) : std::wstring_view();
    if (EqualWithoutCase(device.substr(0, 3), L"UNC") && device.size() > 3 && separates(device[3]))
        return LocateShare(text, prefix + 4, verbatim);
    if (device.size() >= 2 && IsLetter(device[0]) && device[1] == L':' && (device.size() == 2 || separates(device[2])))
    {
        Place place;
        place.start = Place::Start::drive;
        place.verbatim = verbatim;
        place.letter = device[0];
        place.components = prefix + 2;
        return place;
    }
    return Place::Nowhere(verbatim ? ERROR_PATH_NOT_FOUND : ERROR_FILE_NOT_FOUND);
}

HostPath::Place HostPath::LocateShare(std::wstring_view text, std::size_t from, bool verbatim) noexcept
{
    auto const separators = verbatim ? std::wstring_view(L"\\") : std::wstring_view(L"\\/");
    auto const end = [&](std::size_t start) { return std::min(text.find_first_of(separators, start), text.size()); };
    Place place;
    place.start = Place::Start::share;
    place.verbatim = verbatim;
    std::size_t const serverEnd = end(from);
    std::size_t const shareStart = std::min(serverEnd + 1, text.size());
    std::size_t const shareEnd = end(shareStart);
    place.server = text.substr(from, serverEnd - from);
    place.share = text.substr(shareStart, shareEnd - shareStart);
    place.components = shareEnd;
    return place.server.empty() ? Place::Nowhere(ERROR_BAD_PATHNAME) : place;
}

bool HostPath::Reserve(std::size_t capacity) noexcept
{
    if (capacity > sizeof inlineBytes)
    {
        longBytes.reset(new (std::nothrow) char[capacity]);
        if (!longBytes)
            return FailWith(ERROR_NOT_ENOUGH_MEMORY);
    }
    bytes = capacity > sizeof inlineBytes ? longBytes.get() : inlineBytes;
    return true;
}

bool HostPath::AppendComponents(std::wstring_view text, bool relative, bool verbatim) noexcept
{
    char* out = bytes + length;
    char const* floor = out;
    for (std::size_t at = 0; at < text.size();)
    {
        if (text[at] == L'\\' || (text[at] == L'/' && !verbatim))
        {
            ++at;
            continue;
        }
        std::size_t const dots = DotsAt(text, at);
        if (dots != 0 && verbatim)
            return FailWith(ERROR_INVALID_NAME);
        at += dots;
        if (dots == 2)
            out = FoldUp(bytes, out, floor, relative);
        if (dots != 0)
            continue;
        if (out != bytes || !relative)
            *out++ = '/';
        out = EncodeComponent(text, at, verbatim, out);
        if (!out)
            return FailWith(ERROR_INVALID_NAME);
    }
    isRoot = !relative && out == floor;
    namesDirectory = !text.empty() && IsSeparator(text.back()) && out != floor;
    if (out == bytes)
        *out++ = relative ? '.' : '/';
    *out = '\0';
    length = static_cast<std::size_t>(out - bytes);
    return true;
}

namespace
{

// A name's bytes give at most as many units.
std::size_t WriteWideName(std::string_view name, wchar_t* const text) noexcept
{
    wchar_t* out = text;
    for (std::size_t at = 0; at < name.size();)
    {
        auto const byte = static_cast<unsigned char>(name[at]);
        if (byte < 0x80)
        {
            *out++ = static_cast<wchar_t>(IsShifted(byte) ? characterBase + byte : byte);
            ++at;
            continue;
        }
        Utf::Decoded const decoded = Utf::DecodeUtf8(name.data() + at, name.size() - at);
        if (!decoded.valid || StandsForShifted(decoded.codePoint))
            for (unsigned offset = 0; offset < decoded.consumed; ++offset)
                *out++ = static_cast<wchar_t>(byteBase + static_cast<unsigned char>(name[at + offset]));
        else
            out += Utf::EncodeWide(decoded.codePoint, out);
        at += decoded.consumed;
    }
    return static_cast<std::size_t>(out - text);
}

void AppendWideName(std::string_view name, std::wstring& text)
{
    std::size_t const length = text.size();
    text.resize(length + name.size());
    text.resize(length + WriteWideName(name, text.data() + length));
}

} // namespace

std::size_t WideNameFromHost(std::string_view name, wchar_t* text) noexcept
{
    return WriteWideName(name, text);
}

std::wstring WideNameFromHost(std::string_view name)
{
    std::wstring text;
    AppendWideName(name, text);
    return text;
}

std::wstring WindowsPathFromHost(std::string_view path)
{
    std::wstring text;
    text.reserve(path.size() + 2);
    if (path.starts_with('/'))
        text = L"C:";
    while (!path.empty())
    {
        std::size_t const separators = std::min(path.find_first_not_of('/'), path.size());
        if (separators != 0)
            text += L'\\';
        path.remove_prefix(separators);
        std::size_t const end = std::min(path.find('/'), path.size());
        AppendWideName(path.substr(0, end), text);
        path.remove_prefix(end);
    }
    return text;
}

} // namespace Brindle::Vok::Platform
