// The ways in which the converter can do its work. Each answers the same for every text; they differ in the machine
// that they need.
#pragma once

#include <cstddef>

namespace Brindle::Vok::Platform::Utf
{

/// Runs anywhere; ASCII goes by vectors where the compiler's target has SSE2.
namespace Portable
{
std::size_t Utf8LengthOfWide(wchar_t const* text, std::size_t length) noexcept;
std::size_t WideLengthOfUtf8(char const* text, std::size_t length) noexcept;
char* WideToUtf8(wchar_t const* text, std::size_t length, char* out, std::size_t size) noexcept;
wchar_t* Utf8ToWide(char const* text, std::size_t length, wchar_t* out, std::size_t size) noexcept;
} // namespace Portable

#if defined(__x86_64__)
#define VOK_UTF_AVX2

/// All characters go by vectors.
namespace Avx2
{
/// Whether this machine has what the others here need.
bool IsSupported() noexcept;

std::size_t Utf8LengthOfWide(wchar_t const* text, std::size_t length) noexcept;
std::size_t WideLengthOfUtf8(char const* text, std::size_t length) noexcept;
char* WideToUtf8(wchar_t const* text, std::size_t length, char* out, std::size_t size) noexcept;
wchar_t* Utf8ToWide(char const* text, std::size_t length, wchar_t* out, std::size_t size) noexcept;
} // namespace Avx2
#endif

} // namespace Brindle::Vok::Platform::Utf
