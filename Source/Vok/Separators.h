// What stands between the components of a path.
#pragma once

#include <string_view>

namespace Brindle::Vok::Detail
{

/// The one of the normal form.
inline constexpr wchar_t separator = L'\\';
/// All that a text may have.
inline constexpr std::wstring_view separators = L"\\/";

inline bool IsSeparatorOfAnyKind(wchar_t unit) noexcept
{
    return unit == separator || unit == L'/';
}

} // namespace Brindle::Vok::Detail
