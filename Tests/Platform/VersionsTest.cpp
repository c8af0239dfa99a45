#include "Support/PortableExecutableBuilder.h"
#include "Support/StandIn.h"

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
    std::tuple<Resources, std::string, DWORD> const cases[] = {
        {{{16, {{1, {{0, info}}}}}}, info, 0},
        {{{3, {{1, {{0, "icon"}}}}}, {16, {{1, {{1033, info}}}}}, {24, {{1, {{0, "manifest"}}}}}}, info, 0},
        {{{16, {{1, {{1031, "first"}, {1033, "second"}}}}}}, "first", 0},
        {{{16, {{0, {{0, "other"}}}, {1, {{9, "usual"}}}}}}, "usual", 0},
        {{{16, {{5, {{0, "first"}}}, {7, {{0, "second"}}}}}}, "first", 0},
        {{{3, {{1, {{0, "icon"}}}}}}, "", ERROR_RESOURCE_TYPE_NOT_FOUND},
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
        {"no resources", BuildImage({.hasResources = false}), noData},
        {"unknown kind", with(kind, 0x107, 2), badImage},
        {"cut in the sections", good.substr(0, resourceSection + 39), badImage},
        {"too many entries", with(rootCount, 0xFFFFFFFF), badData},
        {"type with a name", with(rootId, 0x80000010), ERROR_RESOURCE_TYPE_NOT_FOUND},
        {"directory in itself", with(rootEntry, 0x80000000), badData},
        {"data outside", with(dataEntry, 0xFFFFFFFF), badData},
        {"cut in the data", good.substr(0, data + info.size() - 1), badData},
    };
    for (auto const& [what, image, code] : cases)
        EXPECT_EQ(VersionOf(image).second, code) << what;
}

TEST(Versions, AreCutToTheBufferAndReachNoFurther)
{
    TestDrive const drive;
    drive.Write("x.exe", good);
    std::wstring const path = drive.Path(L"x.exe");
    std::string buffer(92, '#');
    VOK_EXPECT_CODE(0, GetFileVersionInfoW(path.c_str(), 0, 90, buffer.data()));
    EXPECT_EQ(buffer, info.substr(0, 90) + "##");
    VOK_EXPECT_CODE(ERROR_INVALID_PARAMETER, GetFileVersionInfoW(path.c_str(), 0, 8, nullptr));
}

TEST(Versions, OfWhatIsNoPlainFile)
{
    TestDrive const drive;
    drive.Write("x.exe", good);
    ASSERT_EQ(::mkfifo(drive.Host("fifo").c_str(), 0600), 0);
    OpenHandle const holder = Open(drive.Path(L"x.exe"), GENERIC_READ);
    EXPECT_EQ(Version(drive.Path(L"none.dll")).second, DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(Version(drive.Path(L"fifo")).second, noData);
    EXPECT_EQ(Version(drive.Path(L"x.exe")).second, DWORD{ERROR_SHARING_VIOLATION});
}

} // namespace
