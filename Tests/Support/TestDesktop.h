// A desktop of a test's own: the directories that the XDG variables and PATH name are below one that is gone at the
// end.
#pragma once

#include "TestDrive.h"

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Brindle::Vok::Testing
{

class TestDesktop
{
public:
    TestDesktop()
    {
        for (auto const& [name, value] : std::vector<std::pair<std::string, std::string>>{
                 {"HOME", drive.Host("home")},
                 {"XDG_CONFIG_HOME", ""},
                 {"XDG_DATA_HOME", drive.Host("user:data")},
                 {"XDG_CONFIG_DIRS", drive.Host("etc")},
                 {"XDG_DATA_DIRS", drive.Host("local") + ":relative:" + drive.Host("share")},
                 {"XDG_CURRENT_DESKTOP", "One:TWO"},
                 {"PATH", drive.Host("none") + "::" + drive.Host("bin")}})
        {
            char const* const found = getenv(name.c_str());
            previous.emplace_back(name, found ? std::optional<std::string>(found) : std::nullopt);
            setenv(name.c_str(), value.c_str(), 1);
        }
    }
    ~TestDesktop()
    {
        for (auto const& [name, value] : previous)
            value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
    }
    TestDesktop(TestDesktop const&) = delete;
    TestDesktop& operator=(TestDesktop const&) = delete;

    void AddProgram(std::string const& name) const
    {
        drive.Write("bin/" + name, "#!/bin/sh\n");
        std::filesystem::permissions(drive.Host("bin/" + name), std::filesystem::perms{0755});
    }
    /// Further lines follow the command.
    void AddEntry(std::string const& file, std::string const& name, std::string const& command) const
    {
        drive.Write(file, "[Desktop Entry]\nType=Application\nName=" + name + "\nExec=" + command + "\n");
    }
    /// Windows-syntax path of a program.
    std::wstring Program(std::wstring const& name) const
    {
        std::string directory = drive.Host("bin/");
        for (char& unit : directory)
            unit = unit == '/' ? '\\' : unit;
        return L"C:" + std::wstring(directory.begin(), directory.end()) + name;
    }

    TestDrive drive;

private:
    std::vector<std::pair<std::string, std::optional<std::string>>> previous;
};

} // namespace Brindle::Vok::Testing
