#include "Utf.h"

#include "UtfConverters.h"

namespace Brindle::Vok::Platform::Utf
{

namespace
{

#ifdef VOK_UTF_AVX2
// False until this file's statics are set up, so that a conversion before that goes the portable way.
bool const hasAvx2 = Avx2::IsSupported();
#endif

} // namespace

#ifdef VOK_UTF_AVX2
bool Avx2::IsSupported() noexcept
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") && __builtin_cpu_supports("popcnt");
}
#endif

std::size_t Utf8LengthOfWide(wchar_t const* text, std::size_t length) noexcept
{
#ifdef VOK_UTF_AVX2
    if (hasAvx2)
        return Avx2::Utf8LengthOfWide(text, length);
#endif
    return Portable::Utf8LengthOfWide(text, length);
}

std::size_t WideLengthOfUtf8(char const* text, std::size_t length) noexcept
{
#ifdef VOK_UTF_AVX2
    if (hasAvx2)
        return Avx2::WideLengthOfUtf8(text, length);
#endif
    return Portable::WideLengthOfUtf8(text, length);
}

char* WideToUtf8(wchar_t const* text, std::size_t length, char* out, std::size_t size) noexcept
{
#ifdef VOK_UTF_AVX2
    if (hasAvx2)
        return Avx2::WideToUtf8(text, length, out, size);
#endif
    return Portable::WideToUtf8(text, length, out, size);
}

wchar_t* Utf8ToWide(char const* text, std::size_t length, wchar_t* out, std::size_t size) noexcept
{
#ifdef VOK_UTF_AVX2
    if (hasAvx2)
        return Avx2::Utf8ToWide(text, length, out, size);
#endif
    return Portable::Utf8ToWide(text, length, out, size);
}

bool IsValidUtf8(char const* text, std::size_t length) noexcept
{
    for (std::size_t i = 0; i < length;)
    {
        auto const character = DecodeUtf8(text + i, length - i);
        if (!character.valid)
            return false;
        i += character.consumed;
    }
    return true;
}

bool IsValidWide(wchar_t const* text, std::size_t length) noexcept
{
    for (std::size_t i = 0; i < length;)
    {
        auto const character = DecodeWide(text + i, length - i);
        if (!character.valid)
            return false;
        i += character.consumed;
    }
    return true;
}

} // namespace Brindle::Vok::Platform::Utf
