#include "PortableExecutable.h"

#include <Brindle/Platform/ErrorCodes.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace Brindle::Vok::Platform
{
namespace
{

// Where fields stand in their records, and how large those are.
namespace Dos
{
constexpr std::size_t size = 64;
constexpr std::size_t signature = 0;
constexpr std::size_t peHeader = 60;
} // namespace Dos

// The signature, the file header, and what the optional header begins with.
namespace Pe
{
constexpr std::size_t size = 26;
constexpr std::size_t signature = 0;
constexpr std::size_t sectionCount = 6;
constexpr std::size_t optionalSize = 20;
constexpr std::size_t optional = 24;
constexpr std::size_t kind = 24;
} // namespace Pe

namespace Section
{
constexpr std::size_t size = 40;
constexpr std::size_t address = 12;
constexpr std::size_t rawSize = 16;
constexpr std::size_t rawOffset = 20;
} // namespace Section

namespace Directory
{
constexpr std::size_t size = 16;
constexpr std::size_t namedCount = 12;
constexpr std::size_t numberedCount = 14;
constexpr std::size_t entrySize = 8;
constexpr std::size_t target = 4;
} // namespace Directory

namespace DataEntry
{
constexpr std::size_t record = 16;
constexpr std::size_t address = 0;
constexpr std::size_t size = 4;
} // namespace DataEntry

constexpr std::uint32_t dosSignature = 0x5A4D;
constexpr std::uint32_t peSignature = 0x4550;
constexpr std::uint32_t kind32 = 0x10B;
constexpr std::uint32_t kind64 = 0x20B;
// Of the image's tables, which stand behind their count in the optional header.
constexpr std::uint32_t resourceTable = 2;
constexpr std::size_t tableSize = 8;
// In an entry's identifier it means a text, in its target another directory.
constexpr std::uint32_t highBit = 0x8000'0000U;
constexpr std::uint32_t versionType = 16;
constexpr std::uint32_t usualName = 1;
constexpr std::uint32_t neutralLanguage = 0;

std::uint32_t Word(unsigned char const* bytes) noexcept
{
    return bytes[0] | std::uint32_t{bytes[1]} << 8;
}

std::uint32_t DoubleWord(unsigned char const* bytes) noexcept
{
    return Word(bytes) | Word(bytes + 2) << 16;
}

// A piece of the file.
struct Piece
{
    std::uint64_t offset = 0;
    std::uint32_t size = 0;
};

class Search
{
public:
    explicit Search(ImageBytes& image) noexcept : image(image) {}

    VersionResource Run() noexcept
    {
        std::uint32_t address = 0;
        std::uint32_t place = 0;
        Piece data;
        bool const found = ReadHeaders(address) && Locate(address, resources) &&
                           FindEntry(versionType, false, ERROR_RESOURCE_TYPE_NOT_FOUND, place) && Descend(place) &&
                           FindEntry(usualName, true, ERROR_RESOURCE_NAME_NOT_FOUND, place) && Descend(place) &&
                           FindEntry(neutralLanguage, true, ERROR_RESOURCE_LANG_NOT_FOUND, place) &&
                           ReadDataEntry(place, data);
        return found ? VersionResource{ERROR_SUCCESS, data.offset, data.size} : VersionResource{code, 0, 0};
    }

private:
    bool Fail(DWORD failure) noexcept
    {
        code = failure;
        return false;
    }

    bool Read(std::uint64_t offset, std::span<unsigned char> target, DWORD codeOfEnd) noexcept
    {
        if (offset > image.Size() || target.size() > image.Size() - offset)
            return Fail(codeOfEnd);
        code = image.Read(offset, target);
        return code == ERROR_SUCCESS;
    }

    // Shows the records of a table one by one for as long as the answer is true.
    template <std::size_t size, class Show>
    bool ReadTable(std::uint64_t offset, std::uint32_t count, DWORD codeOfEnd, Show show) noexcept
    {
        constexpr std::uint32_t most = 64;
        std::array<unsigned char, size * most> block;
        for (std::uint32_t done = 0; done < count; done += most)
        {
            auto const records = std::span(block).first(std::min(count - done, most) * size);
            if (!Read(offset + std::uint64_t{done} * size, records, codeOfEnd))
                return false;
            for (std::size_t at = 0; at < records.size(); at += size)
                if (!show(&records[at]))
                    return true;
        }
        return true;
    }

    bool ReadHeaders(std::uint32_t& resourceAddress) noexcept
    {
        std::array<unsigned char, Dos::size> dos;
        std::array<unsigned char, Pe::size> pe;
        if (!Read(0, dos, ERROR_RESOURCE_DATA_NOT_FOUND))
            return false;
        if (Word(&dos[Dos::signature]) != dosSignature)
            return Fail(ERROR_RESOURCE_DATA_NOT_FOUND);
        // Programs for older systems have anything there.
        std::uint64_t const header = DoubleWord(&dos[Dos::peHeader]);
        if (!Read(header, pe, ERROR_RESOURCE_DATA_NOT_FOUND))
            return false;
        if (DoubleWord(&pe[Pe::signature]) != peSignature)
            return Fail(ERROR_RESOURCE_DATA_NOT_FOUND);
        std::uint32_t const kind = Word(&pe[Pe::kind]);
        if (kind != kind32 && kind != kind64)
            return Fail(ERROR_BAD_EXE_FORMAT);
        std::uint32_t const optionalSize = Word(&pe[Pe::optionalSize]);
        sections = header + Pe::optional + optionalSize;
        sectionCount = Word(&pe[Pe::sectionCount]);
        return ReadResourceTable(header + Pe::optional, optionalSize, kind == kind64 ? 108 : 92, resourceAddress);
    }

    bool ReadResourceTable(std::uint64_t header, std::uint32_t headerSize, std::uint32_t tableCount,
                           std::uint32_t& address) noexcept
    {
        constexpr std::uint32_t countSize = 4;
        constexpr std::uint32_t table = countSize + resourceTable * tableSize;
        std::array<unsigned char, table + tableSize> tables;
        if (headerSize < tableCount + countSize)
            return Fail(ERROR_BAD_EXE_FORMAT);
        if (!Read(header + tableCount, std::span(tables).first(countSize), ERROR_BAD_EXE_FORMAT))
            return false;
        if (DoubleWord(tables.data()) <= resourceTable)
            return Fail(ERROR_RESOURCE_DATA_NOT_FOUND);
        if (headerSize < tableCount + tables.size())
            return Fail(ERROR_BAD_EXE_FORMAT);
        if (!Read(header + tableCount, tables, ERROR_BAD_EXE_FORMAT))
            return false;
        address = DoubleWord(&tables[table]);
        bool const isThere = address != 0 && DoubleWord(&tables[table + 4]) != 0;
        return isThere || Fail(ERROR_RESOURCE_DATA_NOT_FOUND);
    }

    // Gives what stands in the file from an address of the loaded image to the end of its section.
    bool Locate(std::uint32_t address, Piece& piece) noexcept
    {
        piece = {};
        bool const isRead = ReadTable<Section::size>(
            sections, sectionCount, ERROR_BAD_EXE_FORMAT,
            [&](unsigned char const* section)
            {
                std::uint32_t const begin = DoubleWord(section + Section::address);
                std::uint32_t const size = DoubleWord(section + Section::rawSize);
                if (address < begin || address - begin >= size)
                    return true;
                std::uint32_t const skipped = address - begin;
                piece = {std::uint64_t{DoubleWord(section + Section::rawOffset)} + skipped, size - skipped};
                return false;
            });
        return isRead && (piece.size != 0 || Fail(ERROR_INVALID_DATA));
    }

    // Looks for a number in the current directory; `takesAny` contents itself with the first entry that there is.
    bool FindEntry(std::uint32_t wanted, bool takesAny, DWORD codeOfNone, std::uint32_t& target) noexcept
    {
        std::array<unsigned char, Directory::size> head;
        if (!ReadResource(directory, head))
            return false;
        std::uint32_t const count = Word(&head[Directory::namedCount]) + Word(&head[Directory::numberedCount]);
        std::uint64_t const entries = std::uint64_t{directory} + Directory::size;
        if (entries + std::uint64_t{count} * Directory::entrySize > resources.size)
            return Fail(ERROR_INVALID_DATA);
        bool isFound = false;
        bool const isRead = ReadTable<Directory::entrySize>(resources.offset + entries, count, ERROR_INVALID_DATA,
                                                            [&](unsigned char const* entry)
                                                            {
                                                                bool const isWanted = DoubleWord(entry) == wanted;
                                                                if (isWanted || (takesAny && !isFound))
                                                                    target = DoubleWord(entry + Directory::target);
                                                                isFound = isFound || isWanted || takesAny;
                                                                return !isWanted;
                                                            });
        return isRead && (isFound || Fail(codeOfNone));
    }

    bool Descend(std::uint32_t target) noexcept
    {
        directory = target & ~highBit;
        return (target & highBit) != 0 || Fail(ERROR_INVALID_DATA);
    }

    bool ReadDataEntry(std::uint32_t place, Piece& data) noexcept
    {
        std::array<unsigned char, DataEntry::record> entry;
        if ((place & highBit) != 0)
            return Fail(ERROR_INVALID_DATA);
        if (!ReadResource(place, entry))
            return false;
        std::uint32_t const size = DoubleWord(&entry[DataEntry::size]);
        if (size == 0)
            return Fail(ERROR_RESOURCE_DATA_NOT_FOUND);
        if (!Locate(DoubleWord(&entry[DataEntry::address]), data))
            return false;
        if (size > data.size || data.offset > image.Size() || size > image.Size() - data.offset)
            return Fail(ERROR_INVALID_DATA);
        data.size = size;
        return true;
    }

    bool ReadResource(std::uint32_t offset, std::span<unsigned char> target) noexcept
    {
        if (offset > resources.size || target.size() > resources.size - offset)
            return Fail(ERROR_INVALID_DATA);
        return Read(resources.offset + offset, target, ERROR_INVALID_DATA);
    }

    ImageBytes& image;
    std::uint64_t sections = 0;
    std::uint32_t sectionCount = 0;
    Piece resources;
    // Of the resources, from their beginning.
    std::uint32_t directory = 0;
    DWORD code = ERROR_SUCCESS;
};

} // namespace

VersionResource FindVersionResource(ImageBytes& image) noexcept
{
    return Search(image).Run();
}

} // namespace Brindle::Vok::Platform
