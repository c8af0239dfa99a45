// Small files of the host as a whole, and the working directory.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

namespace Brindle::Vok::Platform
{

/// Reads a plain file as a whole. Nothing for what isn't there, isn't a plain file, has more than `most` bytes or may
/// not be read; anything else is false with the last error set. May throw std::bad_alloc.
bool ReadSmallFile(std::string const& path, std::optional<std::string>& content, off_t most = off_t{1} << 20);

/// False with the last error set. May throw std::bad_alloc.
bool ReadWorkingDirectory(std::string& directory);

/// Makes a relative path start at the root. False with the last error set. May throw std::bad_alloc.
bool MakeAbsolute(std::string& path);

} // namespace Brindle::Vok::Platform
