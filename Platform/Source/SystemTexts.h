// The system's texts of codes, in the stand-in's own short words.
#pragma once

#include <Brindle/Platform/Types.h>

#include <string_view>

namespace Brindle::Vok::Platform
{

/// The text of a Win32 code or an HRESULT, ending in CR LF; empty for a code that has none. All of it is ASCII, and a
/// '%' stands only in front of an insert's number.
std::string_view SystemTextOf(DWORD code) noexcept;

} // namespace Brindle::Vok::Platform
