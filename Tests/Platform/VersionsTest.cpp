#include <Brindle/Platform/Versions.h>

#include "Support/OpenHandle.h"
#include "Support/PortableExecutableBuilder.h"
#include "Support/TestDrive.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sys/stat.h>
#include <utility>

using namespace Brindle::Vok::Platform;
using namespace Brindle::Vok::Testing;

namespace
{

std::string const info = VersionInfo(1, 2);
std::string const good = BuildImage({.resources = {{16, {{1, {{0, info}}}}}}});

/// The data, and the code of the call that failed. Both calls must agree.
std::pair<std::string, DWORD> Version(std::wstring const& path)
{
    DWORD handle = 1;
    DWORD size = 0;
    DWORD const code = CodeOf([&] { return (size = GetFileVersionInfoSizeW(path.c_str(), &handle)) != 0; });
    EXPECT_EQ(handle, 0U);
    std::string data(std::max(size, DWORD{1}), '\0');
    EXPECT_EQ(CodeOf([&] { return GetFileVersionInfoW(path.c_str(), 7, size, data.data()); }), code);
    data.resize(size);
    return {data, code};
}

std::pair<std::string, DWORD> VersionOf(std::string const& file)
{
    TestDrive const drive;
    drive.Write("x.dll", file);
    return Version(drive.Path(L"x.dll"));
}

constexpr DWORD noData = ERROR_RESOURCE_DATA_NOT_FOUND;
constexpr DWORD badImage = ERROR_BAD_EXE_FORMAT;
constexpr DWORD badData = ERROR_INVALID_DATA;

TEST(Versions, AreFoundByTypeNameAndLanguage)
{
    std::map<std::uint32_t, std::string> many{{0, "neutral"}};
    for (std::uint32_t language = 100; language < 300; ++language)
        many[language] = "no";
    std::tuple<Resources, std::string, DWORD> const cases[] = {
        {{{16, {{1, {{0, info}}}}}}, info, 0},
        {{{3, {{1, {{0, "icon"}}}}}, {16, {{1, {{1033, info}}}}}, {24, {{1, {{0, "manifest"}}}}}}, info, 0},
        {{{16, {{1, {{1031, "first"}, {1033, "second"}}}}}}, "first", 0},
        {{{16, {{1, many}}}}, "neutral", 0},
        {{{16, {{0, {{0, "other"}}}, {1, {{9, "usual"}}}}}}, "usual", 0},
        {{{16, {{5, {{0, "first"}}}, {7, {{0, "second"}}}}}}, "first", 0},
        {{{3, {{1, {{0, "icon"}}}}}}, "", ERROR_RESOURCE_TYPE_NOT_FOUND},
        {{{16, {}}}, "", ERROR_RESOURCE_NAME_NOT_FOUND},
        {{{16, {{1, {}}}}}, "", ERROR_RESOURCE_LANG_NOT_FOUND},
        {{{16, {{1, {{0, ""}}}}}}, "", noData},
    };
    for (auto const& [resources, data, code] : cases)
        EXPECT_EQ(VersionOf(BuildImage({.resources = resources})), std::pair(data, code));
    EXPECT_EQ(VersionOf(BuildImage({.is64Bit = false, .resources = std::get<0>(cases[0])})).first, info);
}

TEST(Versions, AreRefusedWithoutOneAndInDamagedImages)
{
    auto const with = [](std::size_t at, std::uint64_t value, std::size_t size = 4)
    { return With(good, at, value, size); };
    using namespace Place;
    std::tuple<char const*, std::string, DWORD> const cases[] = {
        {"whole", good, 0},
        {"empty", "", noData},
        {"cut in the first header", "MZ", noData},
        {"no image", std::string(200, 'x'), noData},
        {"no resources", BuildImage({.hasResources = false}), noData},
        {"cut in the kind", good.substr(0, kind + 1), noData},
        {"PE header outside", with(0x3C, 0xFFFFFFFF), noData},
        {"of another format", with(peHeader, 0x454E, 2), noData},
        {"too few tables", with(tableCount, 2), noData},
        {"no table of resources", with(resourceTable, 0), noData},
        {"unknown kind", with(kind, 0x107, 2), badImage},
        {"optional header ends before the tables", with(optionalSize, 111, 2), badImage},
        {"optional header ends in the table of resources", with(optionalSize, 135, 2), badImage},
        {"cut in the optional header", good.substr(0, kind + 30), badImage},
        {"cut before the table of resources", good.substr(0, resourceTable), badImage},
        {"cut in the sections", good.substr(0, resourceSection + 39), badImage},
        {"no section", with(sectionCount, 0, 2), badData},
        {"resources before their section", with(resourceTable, 0x1FFF), badData},
        {"section behind the resources", with(sectionAddress, 0x2001), badData},
        {"section too small for a directory", with(sectionSize, 15), badData},
        {"section too small for an entry", with(sectionSize, 16 + 7), badData},
        {"section too small for the data", with(sectionSize, data - resources + info.size() - 1), badData},
        {"section outside", with(sectionPlace, 0xFFFFFFFF), badData},
        {"too many entries", with(rootCount, 0xFFFFFFFF), badData},
        {"data in the place of names", with(rootEntry, 24), badData},
        {"data outside in the place of names", with(rootEntry, 0xFFFFFFFF), badData},
        {"type with a name", with(rootId, 0x80000010), ERROR_RESOURCE_TYPE_NOT_FOUND},
        {"directory in itself", with(rootEntry, 0x80000000), badData},
        {"directory in the place of data", with(languageEntry, 0x80000000), badData},
        {"entry of data outside", with(languageEntry, 0x7FFFFFFF), badData},
        {"data in another section", with(dataEntry, 0x1000 + info.size()), 0},
        {"data over the end of a section", with(dataEntry, 0x17FF), badData},
        {"data outside", with(dataEntry, 0xFFFFFFFF), badData},
        {"data too large", with(dataSize, 0xFFFFFFFF), badData},
        {"cut in the data", good.substr(0, data + info.size() - 1), badData},
        {"cut in the entry of data", good.substr(0, dataEntry + 1), badData},
    };
    for (auto const& [what, image, code] : cases)
        EXPECT_EQ(VersionOf(image).second, code) << what;
}

TEST(Versions, AreCutToTheBufferAndReachNoFurther)
{
    TestDrive const drive;
    drive.Write("x.exe", good);
    std::wstring const path = drive.Path(L"x.exe");
    for (DWORD const size : {0U, 1U, 91U, 92U, 100U})
    {
        std::string buffer(120, '#');
        VOK_EXPECT_CODE(0, GetFileVersionInfoW(path.c_str(), 0, size, buffer.data()));
        std::string const copied = info.substr(0, size);
        EXPECT_EQ(buffer, copied + std::string(120 - copied.size(), '#'));
    }
    EXPECT_EQ(GetFileVersionInfoSizeW(path.c_str(), nullptr), info.size());
    VOK_EXPECT_CODE(ERROR_INVALID_PARAMETER, GetFileVersionInfoW(path.c_str(), 0, 8, nullptr));
}

TEST(Versions, OfWhatIsNoPlainFile)
{
    TestDrive const drive;
    drive.Write("x.exe", good);
    ASSERT_EQ(::mkfifo(drive.Host("fifo").c_str(), 0600), 0);
    OpenHandle const holder = Open(drive.Path(L"x.exe"), GENERIC_READ);
    std::pair<wchar_t const*, long> const cases[] = {{L"none.dll", ERROR_FILE_NOT_FOUND},
                                                     {L"none\\x.dll", ERROR_PATH_NOT_FOUND},
                                                     {L"", ERROR_ACCESS_DENIED},
                                                     {L"fifo", ERROR_RESOURCE_DATA_NOT_FOUND},
                                                     {L"x.exe", ERROR_SHARING_VIOLATION}};
    for (auto const& [name, code] : cases)
        EXPECT_EQ(Version(drive.Path(name)).second, static_cast<DWORD>(code));
    VOK_EXPECT_CODE(ERROR_PATH_NOT_FOUND, GetFileVersionInfoSizeW(nullptr, nullptr));
}

} // namespace
