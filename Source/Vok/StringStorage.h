// Strings of a given length whose characters the caller is about to write.
#pragma once

#include <cstddef>
#include <string>

namespace Brindle::Vok::Detail
{

/// Gives the string this length. The characters are unspecified and not written in a pass of their own, which matters
/// for long texts.
void ResizeUninitialized(std::string& text, std::size_t length);
void ResizeUninitialized(std::wstring& text, std::size_t length);

} // namespace Brindle::Vok::Detail
