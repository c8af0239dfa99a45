// The format of text files: marks, line endings and the bytes of a wide text. Both generations write the same.
#pragma once

#include <Brindle/Vok/FileSystem.h>

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace Brindle::Vok::Detail
{

inline constexpr unsigned char utf16ByteOrderMark[] = {0xFF, 0xFE};
inline constexpr unsigned char utf8ByteOrderMark[] = {0xEF, 0xBB, 0xBF};

/// The text as the policy wants it: the caller's own object where nothing changes, so that a long text isn't copied.
template <class Char>
class NormalizedText
{
public:
    NormalizedText(std::basic_string<Char> const& source, LineEndingPolicy policy);
    NormalizedText(NormalizedText const&) = delete;
    NormalizedText& operator=(NormalizedText const&) = delete;

    std::basic_string<Char> const& Text() const { return *text; }

private:
    std::basic_string<Char> own;
    std::basic_string<Char> const* text;
};

extern template class NormalizedText<char>;
extern template class NormalizedText<wchar_t>;

/// The code units of a wide text as a file holds them, 2 bytes each. Units is what the object refers to or owns.
class Utf16Units
{
public:
    explicit Utf16Units(std::wstring_view text);

    void const* Data() const { return data; }
    std::size_t ByteCount() const { return count * sizeof(char16_t); }

private:
    std::unique_ptr<char16_t[]> own;
    void const* data;
    std::size_t count;
};

/// The code units that a file's bytes hold, 2 bytes each. An odd byte at the end is dropped.
std::wstring WideTextOf(std::span<unsigned char const> bytes);

} // namespace Brindle::Vok::Detail
