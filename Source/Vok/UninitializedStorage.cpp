// Compiled for the newest language version that the compiler knows, for the one standard way to leave characters
// unwritten; with an older library the characters are zeroed.
#include "UninitializedStorage.h"

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

#if defined(__GLIBCXX__) && !defined(_GLIBCXX_DEBUG) && !defined(_GLIBCXX_SANITIZE_VECTOR)
#define VOK_SETS_VECTOR_SIZE
// No standard way leaves a vector's elements unwritten. This library's vectors keep their end in a base that a class
// derived from them may use. A whole-file read of 1 MB takes a quarter less time so.
struct UnwrittenBytes : std::vector<unsigned char>
{
    static void SetSize(std::vector<unsigned char>& bytes, std::size_t size)
    {
        std::_Vector_base<unsigned char, std::allocator<unsigned char>>& base = bytes;
        base._M_impl._M_finish = base._M_impl._M_start + size;
    }
};
#endif

} // namespace

void ResizeUninitialized(std::string& text, std::size_t length)
{
    Resize(text, length);
}

void ResizeUninitialized(std::wstring& text, std::size_t length)
{
    Resize(text, length);
}

void ResizeUninitialized(std::vector<unsigned char>& bytes, std::size_t size)
{
#ifdef VOK_SETS_VECTOR_SIZE
    bytes.reserve(size);
    UnwrittenBytes::SetSize(bytes, size);
#else
    bytes.resize(size);
#endif
}

} // namespace Brindle::Vok::Detail
