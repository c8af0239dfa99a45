// Holds every operation of paths against the oracle. The input's bytes are code units, so that a corpus can be read; a
// line end stands between the two texts that the operations on two paths get.
#include "Support/PathAgreement.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

using namespace Brindle::Vok;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    static Testing::PathAgreement::Log log;
    std::wstring const text(data, data + size);
    std::size_t const end = std::min(text.find(L'\n'), size);
    std::string const report =
        Testing::PathAgreement::Check(text.substr(0, end), text.substr(std::min(end + 1, size)), log);
    if (!report.empty())
    {
        std::fputs(report.c_str(), stderr);
        std::abort();
    }
    return 0;
}
