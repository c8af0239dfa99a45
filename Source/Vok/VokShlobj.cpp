#include <Brindle/Vok/VokShlobj.h>

#include <Brindle/Vok/Guid.h>

#include <memory>

namespace Brindle::Vok
{

namespace
{

using OwnedText = std::unique_ptr<wchar_t, decltype(&CoTaskMemFree)>;

HRESULT FindPath(GUID const& folderId, unsigned long flags, void* token, OwnedText& text)
{
    wchar_t* found = nullptr;
    HRESULT const result = SHGetKnownFolderPath(folderId, static_cast<DWORD>(flags), token, &found);
    text.reset(found);
    return result;
}

// A null text faults, as it has to: the read comes first and is volatile, since the compiler may neither leave such a
// read out nor put the exception in its place that std::wstring throws for null.
std::wstring Copied(wchar_t const* text)
{
    static_cast<void>(*static_cast<wchar_t const volatile*>(text));
    return text;
}

} // namespace

std::wstring VokSHGetKnownFolderPath(GUID const& folderId, unsigned long flags, void* token)
{
    OwnedText text(nullptr, &CoTaskMemFree);
    HRESULT const result = FindPath(folderId, flags, token, text);
    if (result < 0)
        VOK_THROW(ComError, result, L"SHGetKnownFolderPath folderId[{}] flags[{}]", Guid(folderId), flags);
    return Copied(text.get());
}

std::wstring VokSHGetKnownFolderPath(GUID const& folderId, Error& error, unsigned long flags, void* token)
{
    OwnedText text(nullptr, &CoTaskMemFree);
    HRESULT const result = FindPath(folderId, flags, token, text);
    if (result < 0)
        VOK_SET_ERROR(error, ComError, result, L"SHGetKnownFolderPath folderId[{}] flags[{}]", Guid(folderId), flags);
    // Also after a failure, when the text is null and this faults: callers are promised no return then.
    return Copied(text.get());
}

} // namespace Brindle::Vok
