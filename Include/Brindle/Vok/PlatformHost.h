// What only the stand-in for the platform has: the host directories behind drives, shares and registry roots, and
// tokens of the host's users.
//
//     if (!Brindle::Vok::Platform::MapDrive(L'T', "/srv/test-data"))
//         std::cerr << Brindle::Vok::WindowsErrorToStringA(GetLastError());    // of Error.h
//     // T:\a.txt is /srv/test-data/a.txt from here on.
//
// C: is the host's root from the start. On the platform itself this header is empty: all this is the system's business
// there.
#pragma once

#include <Brindle/Vok/Platform.h>

#ifdef VOK_PLATFORM_IS_STAND_IN
#include <Brindle/Platform/Host.h>
#endif
