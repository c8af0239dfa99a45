// Compiled for the newest language version that the compiler knows, for the one standard way to leave characters
// unwritten; with an older library the characters are zeroed.
#include "StringStorage.h"

namespace Brindle::Vok::Detail
{
namespace
{

template <class String>
void Resize(String& text, std::size_t length)
{
#ifdef __cpp_lib_string_resize_and_overwrite
    // Not the size that it hands over: some library versions pass the capacity there.
    text.resize_and_overwrite(length, [length](auto*, std::size_t) { return length; });
#else
    text.resize(length);
#endif
}

} // namespace

void ResizeUninitialized(std::string& text, std::size_t length)
{
    Resize(text, length);
}

void ResizeUninitialized(std::wstring& text, std::size_t length)
{
    Resize(text, length);
}

} // namespace Brindle::Vok::Detail
