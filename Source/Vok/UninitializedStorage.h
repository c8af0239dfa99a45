// Texts and bytes of a given length that the caller is about to write.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Brindle::Vok::Detail
{

/// Gives the text this length. The characters are unspecified and not written in a pass of their own, which matters for
/// long texts.
void ResizeUninitialized(std::string& text, std::size_t length);
void ResizeUninitialized(std::wstring& text, std::size_t length);
/// The same for bytes. Nothing else may be done with them before they are written.
void ResizeUninitialized(std::vector<unsigned char>& bytes, std::size_t size);

} // namespace Brindle::Vok::Detail
