// The ATL names that the library uses: the string class in both widths, the exception, and the access token.
//
//     ATL::CStringW name(L"report");
//     Show(name.GetString(), name.GetLength());
#pragma once

#include <Brindle/Platform/ErrorCodes.h>
#include <Brindle/Platform/Handles.h>
#include <Brindle/Platform/Security.h>
#include <Brindle/Platform/Types.h>

#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <utility>

namespace ATL
{

/// What a character type says about itself.
template <typename T>
struct ChTraitsCRT
{
    using XCHAR = T;
    using PXSTR = T*;
    using PCXSTR = T const*;
};

template <typename BaseType, class StringIterator = ChTraitsCRT<BaseType>>
struct StrTraitATL : StringIterator
{
};

/// A string of its own; narrow ones are UTF-8 here. Lengths count code units without the terminator.
template <typename BaseType, class StringTraits>
class CStringT
{
public:
    using XCHAR = typename StringTraits::XCHAR;
    using PXSTR = typename StringTraits::PXSTR;
    using PCXSTR = typename StringTraits::PCXSTR;

    CStringT() noexcept = default;

    /// A copy of the text; null gives an empty string.
    CStringT(PCXSTR source) : text(source != nullptr ? source : EmptyText()) {}

    /// A copy of the first length units.
    CStringT(PCXSTR source, int length) : text(source, static_cast<std::size_t>(length)) {}

    CStringT(CStringT const&) = default;
    CStringT(CStringT&&) noexcept = default;
    CStringT& operator=(CStringT const&) = default;
    CStringT& operator=(CStringT&&) noexcept = default;
    ~CStringT() = default;

    CStringT& operator=(PCXSTR source)
    {
        text = std::basic_string<BaseType>(source != nullptr ? source : EmptyText());
        return *this;
    }

    /// The string's own characters with a terminator; never null, and valid until the string changes.
    PCXSTR GetString() const noexcept { return text.c_str(); }
    operator PCXSTR() const noexcept { return text.c_str(); }

    int GetLength() const noexcept { return static_cast<int>(text.size()); }
    bool IsEmpty() const noexcept { return text.empty(); }

private:
    static PCXSTR EmptyText() noexcept
    {
        static constexpr XCHAR terminator = 0;
        return &terminator;
    }

    std::basic_string<BaseType> text;
};

using CAtlStringW = CStringT<wchar_t, StrTraitATL<wchar_t>>;
using CAtlStringA = CStringT<char, StrTraitATL<char>>;
using CStringW = CAtlStringW;
using CStringA = CAtlStringA;

/// The exception of ATL's own code. A handler in one module catches what another one threw.
class VOK_PLATFORM_EXPORT CAtlException
{
public:
    CAtlException() noexcept : m_hr(E_FAIL) {}
    CAtlException(HRESULT code) noexcept : m_hr(code) {}

    operator HRESULT() const noexcept { return m_hr; }

    HRESULT m_hr;
};

/// Owner of a token. It belongs to one thread at a time. What fails gives false with the last error set.
class CAccessToken
{
public:
    CAccessToken() noexcept = default;
    CAccessToken(CAccessToken const&) = delete;
    CAccessToken& operator=(CAccessToken const&) = delete;
    virtual ~CAccessToken() noexcept { CAccessToken::Clear(); }

    /// Null without a token. It stays the object's.
    HANDLE GetHandle() const noexcept { return m_hToken; }

    /// An empty object takes a token over.
    void Attach(HANDLE token) noexcept { m_hToken = token; }

    /// Gives the token to the caller, who closes it, and is empty then.
    HANDLE Detach() noexcept
    {
        HANDLE const token = std::exchange(m_hToken, nullptr);
        Clear();
        return token;
    }

    /// Closes what the object holds.
    virtual void Clear() noexcept
    {
        if (m_hProfile != nullptr && m_hToken != nullptr)
            UnloadUserProfile(m_hToken, m_hProfile);
        m_hProfile = nullptr;
        if (m_hToken != nullptr)
            CloseHandle(m_hToken);
        m_hToken = nullptr;
        m_pRevert.reset();
    }

    /// Holds the token with which the calling thread impersonates; a thread of null is the calling one. On failure
    /// the object keeps what it had.
    bool GetThreadToken(DWORD desiredAccess, HANDLE thread = nullptr, bool openAsSelf = true) noexcept
    {
        HANDLE opened = nullptr;
        if (!OpenThreadToken(thread != nullptr ? thread : GetCurrentThread(), desiredAccess, openAsSelf, &opened))
            return false;
        Clear();
        m_hToken = opened;
        return true;
    }

    bool GetType(TOKEN_TYPE* type) const noexcept
    {
        DWORD length = 0;
        return GetTokenInformation(m_hToken, TokenType, type, sizeof *type, &length) != FALSE;
    }

    /// Lets the calling thread act as the token's user. False without a token.
    bool ImpersonateLoggedOnUser() const noexcept
    {
        LookForImpersonation();
        if (m_hToken == nullptr || !::ImpersonateLoggedOnUser(m_hToken))
            return false;
        m_pRevert.reset(new (std::nothrow) CRevertToSelf);
        if (m_pRevert)
            return true;
        RevertToSelf();
        return false;
    }

private:
    // How to end the impersonation. Required to be made, though nobody asks for it here.
    struct CRevert
    {
        virtual ~CRevert() = default;
        virtual bool Revert() noexcept = 0;
    };

    struct CRevertToSelf final : CRevert
    {
        bool Revert() noexcept override { return ::RevertToSelf() != FALSE; }
    };

    // Required, though nothing comes of it but the last error.
    static void LookForImpersonation() noexcept
    {
        HANDLE present = nullptr;
        if (OpenThreadToken(GetCurrentThread(), 0, FALSE, &present))
            CloseHandle(present);
    }

    HANDLE m_hToken = nullptr;
    HANDLE m_hProfile = nullptr; // nothing loads one
    mutable std::unique_ptr<CRevert> m_pRevert;
};

} // namespace ATL
