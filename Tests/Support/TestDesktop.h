// A desktop of a test's own: the directories that the XDG variables and PATH name are below one that is gone at the
// end.
#pragma once

#include "HostVariable.h"
#include "TestDrive.h"

#include <string>

namespace Brindle::Vok::Testing
{

class TestDesktop
{
public:
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
    std::wstring Program(std::wstring const& name) const { return OfHost(drive.Host("bin/")) + name; }

    TestDrive drive;

private:
    HostVariable const variables[7] = {
        {"HOME", drive.Host("home").c_str()},
        {"XDG_CONFIG_HOME", ""},
        {"XDG_DATA_HOME", drive.Host("user:data").c_str()},
        {"XDG_CONFIG_DIRS", drive.Host("etc").c_str()},
        {"XDG_DATA_DIRS", (drive.Host("local") + ":relative:" + drive.Host("share")).c_str()},
        {"XDG_CURRENT_DESKTOP", "One:TWO"},
        {"PATH", (drive.Host("none") + "::" + drive.Host("bin")).c_str()},
    };
};

} // namespace Brindle::Vok::Testing
