// An application that opens files of some type, and the command line that starts it.
#pragma once

#include "DesktopEntry.h"

#include <string>
#include <vector>

namespace Brindle::Vok::Platform
{

struct AssociatedApplication
{
    DesktopEntry entry;
    /// Where the entry is.
    std::string file;
    /// What is started, a host path.
    std::string program;
    /// Of the entry's Exec, the program's name first.
    std::vector<std::string> words;
};

/// In the platform's syntax, with %1 for the file that is to be opened; empty for one that is too long for the
/// platform. May throw std::bad_alloc.
std::wstring CommandOf(AssociatedApplication const& application);

} // namespace Brindle::Vok::Platform
