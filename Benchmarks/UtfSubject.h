// What UtfBenchmark measures of this library: a whole conversion into a fresh string, as its callers get it.
#pragma once

#include <string>

std::wstring ConvertToWide(std::string const& text);
std::string ConvertToUtf8(std::wstring const& text);
