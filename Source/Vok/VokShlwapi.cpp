#include <Brindle/Vok/VokShlwapi.h>

#include <algorithm>
#include <vector>

namespace Brindle::Vok
{

std::wstring VokAssocQueryString(unsigned long flags, ASSOCSTR str, std::wstring assoc, std::wstring extra)
{
    constexpr auto noAssociation = HRESULT_FROM_WIN32(ERROR_NO_ASSOCIATION);
    wchar_t const* const extraText = extra.empty() ? nullptr : extra.c_str();
    DWORD size = 0;
    HRESULT const sizeResult =
        AssocQueryStringW(static_cast<DWORD>(flags), str, assoc.c_str(), extraText, nullptr, &size);
    if (sizeResult == noAssociation)
        return {};
    if (sizeResult != S_FALSE) // S_OK too: without a buffer the platform has nothing to succeed with
        VOK_THROW(ComError, sizeResult, "AssocQueryString");
    std::vector<wchar_t> buffer(size);
    if (AssocQueryStringW(static_cast<DWORD>(flags), str, assoc.c_str(), extraText, buffer.data(), &size) < 0)
        return {};
    return {buffer.begin(), std::find(buffer.begin(), buffer.end(), L'\0')};
}

} // namespace Brindle::Vok
