// What the library takes of the platform's C runtime and the host's has not.
#pragma once

extern "C"
{
    /// Compares up to the first NUL, code unit by code unit by value, with A to Z folded to lower case: negative, 0 or
    /// positive. No locale has a say.
    int _wcsicmp(wchar_t const* a, wchar_t const* b) noexcept;
}
