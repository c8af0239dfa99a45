// A drive of a test's own: a fresh host directory behind a free letter, gone with everything in it at the end.
//
//     TestDrive drive;
//     drive.Write("a/b.txt", "text");                          // by way of the host
//     CreateFileW(drive.Path(L"a\\b.txt").c_str(), …);         // by way of the stand-in
#pragma once

#include <Brindle/Platform/Host.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdlib.h>
#include <string>

namespace Brindle::Vok::Testing
{

/// Windows-syntax text of a host path of ASCII.
inline std::wstring OfHost(std::string const& path)
{
    std::wstring text(path.begin(), path.end());
    std::ranges::replace(text, L'/', L'\\');
    return L"C:" + text;
}

class TestDrive
{
public:
    explicit TestDrive(std::filesystem::path const& place = std::filesystem::temp_directory_path())
    {
        std::string pattern = (place / "VokTest.XXXXXX").string();
        EXPECT_NE(::mkdtemp(pattern.data()), nullptr);
        directory = pattern;
        while (letter >= L'D' && !Platform::MapDrive(letter, directory))
            --letter;
        EXPECT_GE(letter, L'D') << "no letter is free";
    }
    ~TestDrive()
    {
        EXPECT_TRUE(Platform::UnmapDrive(letter));
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }
    TestDrive(TestDrive const&) = delete;
    TestDrive& operator=(TestDrive const&) = delete;

    wchar_t Letter() const { return letter; }
    /// Host path of a name in the drive; the drive's directory for an empty one.
    std::string Host(std::string const& name = {}) const { return name.empty() ? directory : directory + '/' + name; }
    /// The same as Windows-syntax text.
    std::wstring Path(std::wstring const& name = {}) const { return std::wstring{letter, L':', L'\\'} + name; }

    void Write(std::string const& name, std::string const& content = {}) const
    {
        std::filesystem::create_directories(std::filesystem::path(Host(name)).parent_path());
        std::ofstream(Host(name), std::ios::binary) << content;
    }
    std::string Read(std::string const& name) const
    {
        std::ifstream file(Host(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    unsigned Mode(std::string const& name) const
    {
        return static_cast<unsigned>(std::filesystem::status(Host(name)).permissions());
    }
    bool Exists(std::string const& name) const
    {
        return std::filesystem::exists(std::filesystem::symlink_status(Host(name)));
    }

private:
    std::string directory;
    wchar_t letter = L'Z';
};

} // namespace Brindle::Vok::Testing
