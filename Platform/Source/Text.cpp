#include <Brindle/Platform/Text.h>

#include "CodePages.h"
#include "HostErrors.h"
#include "Utf.h"

#include <climits>
#include <cstring>
#include <cwchar>

namespace Brindle::Vok::Platform
{

namespace
{

int GiveCount(std::size_t count)
{
    return count <= INT_MAX ? static_cast<int>(count) : FailWith<int>(ERROR_ARITHMETIC_OVERFLOW);
}

bool IsUtf8(UINT codePage)
{
    return codePage == CP_UTF8 || codePage == CP_ACP;
}

// What both directions refuse alike.
bool AreArgumentsUsable(void const* text, int length, void const* buffer, int size)
{
    return text != nullptr && length != 0 && size >= 0 && (buffer != nullptr || size == 0) && text != buffer;
}

std::size_t LengthOf(char const* text, int length)
{
    return length > 0 ? static_cast<std::size_t>(length) : std::strlen(text) + 1;
}

std::size_t LengthOf(wchar_t const* text, int length)
{
    return length > 0 ? static_cast<std::size_t>(length) : std::wcslen(text) + 1;
}

// The answer of a conversion that wrote all that fitted into size units and counted what it made.
int GiveWritten(std::size_t count, int size)
{
    if (size != 0 && count > static_cast<std::size_t>(size))
        return FailWith<int>(ERROR_INSUFFICIENT_BUFFER);
    return GiveCount(count);
}

int ToWideFromPage(UINT codePage, DWORD flags, char const* text, std::size_t length, wchar_t* buffer, int size)
{
    // UTF-7 knows no strictness, on the platform either.
    if (codePage == CodePages::utf7 && flags != 0)
        return FailWith<int>(ERROR_INVALID_FLAGS);
    CodePages::Output<wchar_t> output(buffer, static_cast<std::size_t>(size));
    if (auto const error = CodePages::ToWide(codePage, text, length, flags != 0, output))
        return FailWith<int>(error);
    return GiveWritten(output.Count(), size);
}

int FromWideToPage(UINT codePage, DWORD flags, wchar_t const* text, std::size_t length, char* buffer, int size,
                   char const* defaultCharacter, BOOL* usedDefault)
{
    // A page that lacks most characters has nothing to be strict about.
    if (flags != 0 && codePage != CodePages::gb18030)
        return FailWith<int>(ERROR_INVALID_FLAGS);
    if (codePage == CodePages::utf7 && (defaultCharacter != nullptr || usedDefault != nullptr))
        return FailWith<int>(ERROR_INVALID_PARAMETER);
    CodePages::Output<char> output(buffer, static_cast<std::size_t>(size));
    CodePages::DefaultCharacter character{defaultCharacter};
    if (auto const error = CodePages::FromWide(codePage, text, length, flags != 0, character, output))
        return FailWith<int>(error);
    if (usedDefault != nullptr)
        *usedDefault = character.used ? TRUE : FALSE;
    return GiveWritten(output.Count(), size);
}

} // namespace

} // namespace Brindle::Vok::Platform

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length, LPWSTR buffer, int size) noexcept
{
    using namespace Brindle::Vok::Platform;
    if (!AreArgumentsUsable(text, length, buffer, size))
        return FailWith<int>(ERROR_INVALID_PARAMETER);
    if ((flags & ~MB_ERR_INVALID_CHARS) != 0)
        return FailWith<int>(ERROR_INVALID_FLAGS);
    auto const count = LengthOf(text, length);
    if (!IsUtf8(codePage))
        return ToWideFromPage(codePage, flags, text, count, buffer, size);
    if (flags != 0 && !Utf::IsValidUtf8(text, count))
        return FailWith<int>(ERROR_NO_UNICODE_TRANSLATION);
    if (size == 0)
        return GiveCount(Utf::WideLengthOfUtf8(text, count));
    auto const* const end = Utf::Utf8ToWide(text, count, buffer, static_cast<std::size_t>(size));
    return end != nullptr ? static_cast<int>(end - buffer) : FailWith<int>(ERROR_INSUFFICIENT_BUFFER);
}

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR text, int length, LPSTR buffer, int size,
                        LPCSTR defaultCharacter, LPBOOL usedDefault) noexcept
{
    using namespace Brindle::Vok::Platform;
    if (!AreArgumentsUsable(text, length, buffer, size))
        return FailWith<int>(ERROR_INVALID_PARAMETER);
    if ((flags & ~WC_ERR_INVALID_CHARS) != 0)
        return FailWith<int>(ERROR_INVALID_FLAGS);
    auto const count = LengthOf(text, length);
    if (!IsUtf8(codePage))
        return FromWideToPage(codePage, flags, text, count, buffer, size, defaultCharacter, usedDefault);
    if (defaultCharacter != nullptr || usedDefault != nullptr)
        return FailWith<int>(ERROR_INVALID_PARAMETER);
    if (flags != 0 && !Utf::IsValidWide(text, count))
        return FailWith<int>(ERROR_NO_UNICODE_TRANSLATION);
    if (size == 0)
        return GiveCount(Utf::Utf8LengthOfWide(text, count));
    auto const* const end = Utf::WideToUtf8(text, count, buffer, static_cast<std::size_t>(size));
    return end != nullptr ? static_cast<int>(end - buffer) : FailWith<int>(ERROR_INSUFFICIENT_BUFFER);
}
