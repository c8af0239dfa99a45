// Functions of the platform's C runtime that the host's lacks. They may be called from any thread.
#pragma once

#include <Brindle/Platform/Types.h>

extern "C"
{
    /// Compares up to the first NUL, code unit by code unit by value, with A to Z folded to lower case: negative, 0 or
    /// positive. No locale changes that. Neither argument may be null.
    VOK_PLATFORM_EXPORT int _wcsicmp(wchar_t const* a, wchar_t const* b) noexcept;
}
