// Texts of others, such as names of files, on one line.
#pragma once

#include <algorithm>
#include <string>

/// The text with `?` in place of control characters, so that no name of a file forges a line or steers a terminal.
inline std::string OneLine(std::string text)
{
    std::ranges::replace_if(
        text, [](unsigned char byte) { return byte < ' ' || byte == 0x7F; }, '?');
    return text;
}
