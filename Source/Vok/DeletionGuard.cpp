#include "DeletionGuard.h"

#include "Separators.h"

#include <algorithm>
#include <cstddef>

namespace Brindle::Vok::Detail
{
namespace
{

/// In any case, as the platform reads it: the two cases of a letter differ in one bit.
bool IsUncWord(std::wstring_view text)
{
    return text.size() == 3 && (text[0] | 0x20) == L'u' && (text[1] | 0x20) == L'n' && (text[2] | 0x20) == L'c';
}

/// Takes the first component off, with the separators before it.
std::wstring_view TakeComponent(std::wstring_view& text)
{
    text.remove_prefix(std::min(text.find_first_not_of(separators), text.size()));
    std::wstring_view const component = text.substr(0, text.find_first_of(separators));
    text.remove_prefix(component.size());
    return component;
}

/// What stands behind the drive or the share.
std::wstring_view BehindRoot(std::wstring_view text)
{
    bool isUnc = text.size() >= 2 && IsSeparatorOfAnyKind(text[0]) && IsSeparatorOfAnyKind(text[1]);
    if (isUnc)
    {
        std::wstring_view rest = text;
        std::wstring_view const first = TakeComponent(rest);
        if (first == L"?" || first == L".")
        {
            text = rest.substr(std::min<std::size_t>(1, rest.size()));
            std::wstring_view const device = TakeComponent(rest);
            isUnc = IsUncWord(device);
            if (isUnc)
                text = rest;
        }
    }
    if (isUnc)
    {
        TakeComponent(text);
        TakeComponent(text);
    }
    else if (text.size() >= 2 && text[1] == L':')
        text.remove_prefix(2);
    return text;
}

} // namespace

DWORD CodeAgainstDeleting(std::wstring_view text) noexcept
{
    if (text.empty())
        return ERROR_INVALID_PARAMETER;
    if (text.find(L'\0') != std::wstring_view::npos)
        return ERROR_INVALID_NAME;
    // What `..` takes away at a root is nothing; in a relative text it may be the root of the working directory.
    std::size_t depth = 0;
    for (std::wstring_view rest = BehindRoot(text); !rest.empty();)
    {
        std::wstring_view const component = TakeComponent(rest);
        if (component == L"..")
            depth -= std::min<std::size_t>(1, depth);
        else if (!component.empty() && component != L".")
            ++depth;
    }
    return depth == 0 ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
}

} // namespace Brindle::Vok::Detail
