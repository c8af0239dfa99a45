// Writes the seeds of VersionsFuzz into a directory: Build/fuzz/Fuzz/VersionsSeeds Fuzz/Corpus/Versions
#include "Support/PortableExecutableBuilder.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <utility>

using namespace Brindle::Vok::Testing;

int main(int count, char** arguments)
{
    if (count != 2)
    {
        std::cerr << "usage: VersionsSeeds DIRECTORY\n";
        return 2;
    }
    Resources const one = {{16, {{1, {{0, VersionInfo(1, 2)}}}}}};
    Resources const many = {{3, {{1, {{0, "icon"}}}, {2, {{0, "icon"}}}}},
                            {16, {{1, {{0, VersionInfo(1, 2)}, {1033, VersionInfo(3, 4)}}}, {2, {{9, "other"}}}}},
                            {24, {{1, {{1033, "manifest"}}}}}};
    std::string const good = BuildImage({.resources = one});
    std::pair<char const*, std::string> const seeds[] = {
        {"Image64", good},
        {"Image32", BuildImage({.is64Bit = false, .resources = one})},
        {"ManyResources", BuildImage({.resources = many})},
        {"NoResources", BuildImage({.hasResources = false})},
        {"NoVersion", BuildImage({.resources = {{3, {{1, {{0, "icon"}}}}}}})},
        {"DirectoryInItself", With(good, Place::rootEntry, 0x80000000)},
        {"ManySections", With(good, Place::sectionCount, 0xFFFF, 2)},
        {"ManyEntries", With(good, Place::rootCount, 0xFFFFFFFF)},
        {"DataAtTheEnd", With(good, Place::dataSize, 0xFFFFFFFF)},
        {"HeadersAlone", good.substr(0, Place::resourceSection + 40)},
    };
    std::filesystem::create_directories(arguments[1]);
    for (auto const& [name, image] : seeds)
        std::ofstream(std::filesystem::path(arguments[1]) / name, std::ios::binary) << image;
    return 0;
}
