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
    text.resize_and_overwrite(length, [](auto*, std::size_t size) { return size; });
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
