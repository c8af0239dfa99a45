#include "CodePages.h"

#include "Descriptor.h"
#include "HostErrors.h"
#include "SystemCalls.h"
#include "Utf.h"

#include <Brindle/Platform/ErrorCodes.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <iconv.h>

namespace Brindle::Vok::Platform::CodePages
{

namespace
{

struct PageName
{
    UINT page;
    char const* name;
};

// Pages whose name to iconv is not "CP" and their number.
constexpr PageName pageNames[] = {
    {37, "CP037"},          {949, "UHC"},           {1361, "JOHAB"},   {10000, "MACINTOSH"}, {20127, "US-ASCII"},
    {20866, "KOI8-R"},      {20932, "EUC-JP"},      {20936, "GB2312"}, {21866, "KOI8-U"},    {38598, "ISO-8859-8"},
    {50220, "ISO-2022-JP"}, {50225, "ISO-2022-KR"}, {51932, "EUC-JP"}, {51936, "EUC-CN"},    {51949, "EUC-KR"},
    {gb18030, "GB18030"},   {utf7, "UTF-7"},
};

using NameBuffer = std::array<char, 24>;

char const* NameOfPage(UINT page, NameBuffer& buffer)
{
    constexpr UINT firstIso = 28591;
    constexpr UINT lastIso = 28606;
    for (auto const& entry : pageNames)
        if (entry.page == page)
            return entry.name;
    if (page >= firstIso && page <= lastIso)
        std::snprintf(buffer.data(), buffer.size(), "ISO-8859-%u", page - firstIso + 1);
    else
        std::snprintf(buffer.data(), buffer.size(), "CP%u", page);
    return buffer.data();
}

// One iconv descriptor, between a page and whole characters of 32 bits.
class Converter
{
public:
    enum class Direction
    {
        toUnicode,
        fromUnicode
    };

    Converter(UINT page, Direction direction) noexcept
    {
        if (!DescriptorIsFree())
            return;
        NameBuffer buffer;
        char const* const name = NameOfPage(page, buffer);
        char const* const unicode = "WCHAR_T";
        descriptor = direction == Direction::toUnicode ? iconv_open(unicode, name) : iconv_open(name, unicode);
        if (!IsOpen())
            error = errno == ENOMEM ? ERROR_NOT_ENOUGH_MEMORY : ERROR_INVALID_PARAMETER;
    }

    ~Converter()
    {
        if (IsOpen())
            iconv_close(descriptor);
    }

    Converter(Converter const&) = delete;
    Converter& operator=(Converter const&) = delete;

    bool IsOpen() const noexcept { return descriptor != reinterpret_cast<iconv_t>(-1); }
    DWORD OpenError() const noexcept { return error; }

    // Converts until the input ends or something in it can't be converted, handing all output to take. Gives 0,
    // EILSEQ or EINVAL, and leaves the input at what stopped it. Null input ends the text: iconv then writes what it
    // held back and returns to the initial shift state.
    template <class OutputUnit, class Take>
    int Run(char** input, std::size_t* inputBytes, Take take) noexcept
    {
        for (;;)
        {
            std::array<OutputUnit, 256> chunk;
            auto* out = reinterpret_cast<char*>(chunk.data());
            std::size_t room = sizeof(chunk);
            auto const result = iconv(descriptor, input, inputBytes, &out, &room);
            int const stop = result == static_cast<std::size_t>(-1) ? errno : 0;
            for (std::size_t i = 0; i < (sizeof(chunk) - room) / sizeof(OutputUnit); ++i)
                take(chunk[i]);
            if (stop != E2BIG)
                return stop;
        }
    }

private:
    // A page's tables are read from a file when it is first used, and the C library remembers for good that it could
    // not read one. So it is not asked while there is no descriptor for it.
    bool DescriptorIsFree() noexcept
    {
        if (OpenHost(AT_FDCWD, "/", O_PATH))
            return true;
        error = CodeFromHost(errno);
        return false;
    }

    iconv_t descriptor = reinterpret_cast<iconv_t>(-1);
    DWORD error = ERROR_SUCCESS;
};

// Whether the byte begins a character of two bytes in one of the double-byte pages.
bool IsLeadByte(UINT page, char byte)
{
    auto const value = static_cast<unsigned char>(byte);
    switch (page)
    {
    case 932:
        return (value >= 0x81 && value <= 0x9F) || (value >= 0xE0 && value <= 0xFC);
    case 936:
    case 949:
    case 950:
        return value >= 0x81 && value <= 0xFE;
    default:
        return false;
    }
}

// Takes characters out of iconv's hands on their way into a page.
class PageWriter
{
public:
    PageWriter(UINT page, Converter& converter, DefaultCharacter& defaultCharacter, Output<char>& output) noexcept
        : page(page), converter(converter), defaultCharacter(defaultCharacter), output(output)
    {
    }

    void Write(char32_t* characters, std::size_t count) noexcept
    {
        auto* input = reinterpret_cast<char*>(characters);
        std::size_t inputBytes = count * sizeof(char32_t);
        while (Run(&input, &inputBytes) != 0)
        {
            input += sizeof(char32_t);
            inputBytes -= sizeof(char32_t);
            WriteDefault();
        }
    }

    void End() noexcept { Run(nullptr, nullptr); }

private:
    int Run(char** input, std::size_t* inputBytes) noexcept
    {
        return converter.Run<char>(input, inputBytes, [this](char byte) { output.Put(byte); });
    }

    void WriteDefault() noexcept
    {
        defaultCharacter.used = true;
        if (defaultCharacter.text == nullptr)
        {
            char32_t questionMark = U'?';
            auto* input = reinterpret_cast<char*>(&questionMark);
            std::size_t inputBytes = sizeof(questionMark);
            Run(&input, &inputBytes);
            return;
        }
        output.Put(defaultCharacter.text[0]);
        if (IsLeadByte(page, defaultCharacter.text[0]))
            output.Put(defaultCharacter.text[1]);
    }

    UINT page;
    Converter& converter;
    DefaultCharacter& defaultCharacter;
    Output<char>& output;
};

} // namespace

DWORD ToWide(UINT page, char const* text, std::size_t length, bool strict, Output<wchar_t>& output) noexcept
{
    Converter converter(page, Converter::Direction::toUnicode);
    if (!converter.IsOpen())
        return converter.OpenError();
    auto const take = [&output](char32_t character)
    {
        wchar_t units[2];
        unsigned const count = Utf::EncodeWide(character, units);
        for (unsigned i = 0; i < count; ++i)
            output.Put(units[i]);
    };
    auto* input = const_cast<char*>(text);
    while (int const stop = converter.Run<char32_t>(&input, &length, take))
    {
        if (strict)
            return ERROR_NO_UNICODE_TRANSLATION;
        take(Utf::replacementCharacter);
        if (stop != EILSEQ)
            break;
        ++input;
        --length;
    }
    converter.Run<char32_t>(nullptr, nullptr, take);
    return ERROR_SUCCESS;
}

DWORD FromWide(UINT page, wchar_t const* text, std::size_t length, bool strict, DefaultCharacter& defaultCharacter,
               Output<char>& output) noexcept
{
    Converter converter(page, Converter::Direction::fromUnicode);
    if (!converter.IsOpen())
        return converter.OpenError();
    if (strict && !Utf::IsValidWide(text, length))
        return ERROR_NO_UNICODE_TRANSLATION;
    PageWriter writer(page, converter, defaultCharacter, output);
    std::array<char32_t, 256> characters;
    for (std::size_t i = 0; i < length;)
    {
        std::size_t count = 0;
        for (; i < length && count < characters.size(); ++count)
        {
            auto const character = Utf::DecodeWide(text + i, length - i);
            characters[count] = character.codePoint;
            i += character.consumed;
        }
        writer.Write(characters.data(), count);
    }
    writer.End();
    return ERROR_SUCCESS;
}

} // namespace Brindle::Vok::Platform::CodePages
