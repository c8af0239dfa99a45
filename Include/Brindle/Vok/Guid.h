// A 128-bit identifier and its one text form, {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX} in upper case, 38 code units.
//
//     std::wstring name = Brindle::Vok::Guid::NewGuid();
//     std::wstring text = Brindle::Vok::Guid(folderId).ToString();
//
// Texts aren't read: there is no way back from one. Any GUID is an identifier; none is checked.
#pragma once

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/Platform.h>

#include <cwctype>
#include <memory>
#include <ostream>
#include <string>

namespace Brindle::Vok
{

/// A value that holds one identifier. Different objects are independent; one object may be read on several threads.
class Guid
{
public:
    /// The identifier of zeros alone.
    Guid() = default;
    /// The platform's identifier, as it is.
    Guid(GUID const& identifier) : value(identifier) {}

    /// The text form. Throws ComError if the platform fails.
    std::wstring ToString() const
    {
        wchar_t* text = nullptr;
        HRESULT const result = StringFromCLSID(value, &text);
        if (result < 0)
            throw Failure({file, __LINE__, VOK_FUNCTION_NAME}, result, L"StringFromCLSID failed");
        std::unique_ptr<wchar_t, decltype(&CoTaskMemFree)> const owner(text, &CoTaskMemFree);
        return Normalized(text);
    }

    /// The text of a fresh identifier. Throws ComError for every result of the platform but 0, positive ones included.
    static std::wstring NewGuid()
    {
        GUID fresh{};
        HRESULT const result = CoCreateGuid(&fresh);
        if (result != 0)
            throw Failure({file, __LINE__, VOK_FUNCTION_NAME}, result, L"CoCreateGuid failed");
        return Guid(fresh).ToString();
    }

private:
    /// The same wherever this header is installed.
    static constexpr char const* file = "Include/Brindle/Vok/Guid.h";

    static ComError Failure(Detail::Location const& location, HRESULT result, wchar_t const* text)
    {
        return Detail::MakeErrorToThrow<ComError>(location, result, text);
    }

    static std::wstring Normalized(std::wstring text)
    {
        if (text.empty())
            return text;
        for (wchar_t& unit : text)
            unit = static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(unit)));
        if (text.front() != L'{')
            text.insert(text.begin(), L'{');
        if (text.back() != L'}')
            text.push_back(L'}');
        return text;
    }

    GUID value{};
};

/// Writes ToString(); an identifier stands as an argument of a log format through this.
inline std::wostream& operator<<(std::wostream& stream, Guid const& guid)
{
    return stream << guid.ToString();
}

} // namespace Brindle::Vok
