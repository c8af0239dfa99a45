#include <Brindle/Platform/Text.h>

#include "HostErrors.h"
#include "SystemTexts.h"
#include "Utf.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace Brindle::Vok::Platform
{

namespace
{

void Copy(std::string_view text, char* out)
{
    std::memcpy(out, text.data(), text.size());
    out[text.size()] = '\0';
}

void Copy(std::string_view text, wchar_t* out)
{
    *Utf::Utf8ToWide(text.data(), text.size(), out, text.size()) = L'\0';
}

// The texts are in English, which also serves callers that leave the language to the system.
bool IsLanguageServed(DWORD language)
{
    constexpr DWORD primaryMask = 0x3FF;
    constexpr DWORD neutral = 0;
    constexpr DWORD english = 9;
    return (language & primaryMask) == neutral || (language & primaryMask) == english;
}

// ERROR_SUCCESS, with the text, when all that the caller asks for can be given.
DWORD FindMessage(DWORD flags, DWORD code, DWORD language, std::string_view& text)
{
    constexpr DWORD servedFlags =
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM;
    if ((flags & ~servedFlags) != 0 || (flags & FORMAT_MESSAGE_FROM_SYSTEM) == 0)
        return ERROR_INVALID_PARAMETER;
    if (!IsLanguageServed(language))
        return ERROR_RESOURCE_LANG_NOT_FOUND;
    text = SystemTextOf(code);
    if (text.empty())
        return ERROR_MR_MID_NOT_FOUND;
    bool const hasInserts = text.find('%') != text.npos;
    if (hasInserts && (flags & FORMAT_MESSAGE_IGNORE_INSERTS) == 0)
        return ERROR_INVALID_PARAMETER;
    return ERROR_SUCCESS;
}

template <class Character>
DWORD GiveMessage(DWORD flags, DWORD code, DWORD language, Character* buffer, DWORD size)
{
    bool const allocates = (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0;
    if (buffer == nullptr)
        return FailWith<DWORD>(ERROR_INVALID_PARAMETER);
    // The argument is the address of the caller's pointer then, whatever its type says.
    auto** const allocated = reinterpret_cast<Character**>(buffer);
    if (allocates)
        *allocated = nullptr;
    std::string_view text;
    if (auto const error = FindMessage(flags, code, language, text))
        return FailWith<DWORD>(error);
    if (allocates)
    {
        auto const characters = std::max<std::size_t>(size, text.size() + 1);
        buffer = static_cast<Character*>(std::malloc(characters * sizeof(Character)));
        if (buffer == nullptr)
            return FailWith<DWORD>(ERROR_NOT_ENOUGH_MEMORY);
        *allocated = buffer;
    }
    else if (size <= text.size())
        return FailWith<DWORD>(ERROR_INSUFFICIENT_BUFFER);
    Copy(text, buffer);
    return static_cast<DWORD>(text.size());
}

} // namespace

} // namespace Brindle::Vok::Platform

DWORD FormatMessageW(DWORD flags, LPCVOID /*source*/, DWORD code, DWORD language, LPWSTR buffer, DWORD size,
                     void* /*arguments*/) noexcept
{
    using namespace Brindle::Vok::Platform;
    return GiveMessage(flags, code, language, buffer, size);
}

DWORD FormatMessageA(DWORD flags, LPCVOID /*source*/, DWORD code, DWORD language, LPSTR buffer, DWORD size,
                     void* /*arguments*/) noexcept
{
    using namespace Brindle::Vok::Platform;
    return GiveMessage(flags, code, language, buffer, size);
}

HLOCAL LocalFree(HLOCAL memory) noexcept
{
    std::free(memory);
    return nullptr;
}
