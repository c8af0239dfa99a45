// PE images byte by byte, as small as they can be: headers, a section of code that stands for nothing, and one of
// resources. Of an image with one resource everything stands where `Place` says.
//
//     std::string const image = BuildImage({.is64Bit = true, .resources = {{16, {{1, {{0, VersionInfo(1, 2)}}}}}}});
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>

namespace Brindle::Vok::Testing
{

/// By type, name and language.
using Resources = std::map<std::uint32_t, std::map<std::uint32_t, std::map<std::uint32_t, std::string>>>;

struct ImageShape
{
    bool is64Bit = true;
    bool hasResources = true;
    Resources resources{};
};

/// Of an image of 64 bits; the addresses of the two sections are the double of their places.
namespace Place
{
constexpr std::size_t peHeader = 0x40;
constexpr std::size_t sectionCount = peHeader + 6;
constexpr std::size_t optionalSize = peHeader + 20;
constexpr std::size_t kind = peHeader + 24;
constexpr std::size_t tableCount = kind + 108;
constexpr std::size_t resourceTable = tableCount + 20;
constexpr std::size_t resourceSection = kind + 240 + 40;
constexpr std::size_t code = 0x800;
constexpr std::size_t resources = 0x1000;
constexpr std::size_t rootCount = resources + 12;
constexpr std::size_t rootId = resources + 16;
constexpr std::size_t rootEntry = resources + 20;
constexpr std::size_t languageDirectory = resources + 24 + 24;
constexpr std::size_t dataEntry = languageDirectory + 24;
constexpr std::size_t dataSize = dataEntry + 4;
constexpr std::size_t data = dataEntry + 16;
} // namespace Place

inline void Put(std::string& bytes, std::size_t at, std::uint64_t value, std::size_t size = 4)
{
    if (bytes.size() < at + size)
        bytes.resize(at + size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[at + i] = static_cast<char>(value >> 8 * i);
}

inline std::string With(std::string bytes, std::size_t at, std::uint64_t value, std::size_t size = 4)
{
    Put(bytes, at, value, size);
    return bytes;
}

/// A version record with the fixed part alone.
inline std::string VersionInfo(std::uint16_t major, std::uint16_t minor)
{
    std::string bytes;
    Put(bytes, 0, 92, 2);
    Put(bytes, 2, 52, 2);
    std::size_t at = 6;
    for (char const unit : std::string_view("VS_VERSION_INFO"))
        Put(bytes, (at += 2) - 2, static_cast<unsigned char>(unit), 2);
    Put(bytes, 40, 0xFEEF04BD);
    Put(bytes, 44, 0x10000);
    Put(bytes, 48, std::uint32_t{major} << 16 | minor);
    bytes.resize(92);
    return bytes;
}

/// A directory of the resources for each level, and below them what `leaf` makes of the data.
template <class Children, class Leaf>
std::size_t PutDirectory(std::string& bytes, Children const& children, Leaf const& leaf)
{
    std::size_t const begin = bytes.size();
    bytes.resize(begin + 16 + 8 * children.size());
    Put(bytes, begin + 14, children.size(), 2);
    std::size_t entry = begin + 16;
    for (auto const& child : children)
    {
        Put(bytes, entry, child.first);
        if constexpr (std::is_same_v<typename Children::mapped_type, std::string>)
            Put(bytes, entry + 4, leaf(child.second));
        else
            Put(bytes, entry + 4, PutDirectory(bytes, child.second, leaf) | 0x8000'0000U);
        entry += 8;
    }
    return begin;
}

inline std::string BuildImage(ImageShape const& shape)
{
    std::string section;
    PutDirectory(section, shape.resources,
                 [&](std::string const& data)
                 {
                     std::size_t const entry = section.size();
                     Put(section, entry, 2 * Place::resources + entry + 16);
                     Put(section, entry + 4, data.size());
                     Put(section, entry + 8, 0, 8);
                     section += data;
                     section.resize((section.size() + 7) / 8 * 8);
                     return entry;
                 });
    std::size_t const tableCount = Place::kind + (shape.is64Bit ? 108 : 92);
    std::size_t const sections = tableCount + 4 + 16 * 8;
    std::string image = "MZ";
    Put(image, 0x3C, Place::peHeader);
    Put(image, Place::peHeader, 0x4550);
    Put(image, Place::peHeader + 4, shape.is64Bit ? 0x8664 : 0x14C, 2);
    Put(image, Place::sectionCount, 2, 2);
    Put(image, Place::optionalSize, sections - Place::kind, 2);
    Put(image, Place::kind, shape.is64Bit ? 0x20B : 0x10B, 2);
    Put(image, tableCount, 16);
    Put(image, tableCount + 20, shape.hasResources ? 2 * Place::resources : 0);
    Put(image, tableCount + 24, shape.hasResources ? section.size() : 0);
    std::size_t at = sections;
    for (auto const& [name, place, size] :
         {std::tuple(".text", Place::code, std::size_t{0x800}), std::tuple(".rsrc", Place::resources, section.size())})
    {
        image.resize(at + 40);
        image.replace(at, 5, name);
        Put(image, at + 8, size);
        Put(image, at + 12, 2 * place);
        Put(image, at + 16, size);
        Put(image, at + 20, place);
        at += 40;
    }
    image.resize(Place::resources);
    return image + section;
}

} // namespace Brindle::Vok::Testing
