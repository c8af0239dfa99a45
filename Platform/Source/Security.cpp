#include "Tokens.h"

#include "HandleTable.h"
#include "HostErrors.h"
#include "Processes.h"
#include "Users.h"

#include <Brindle/Platform/Host.h>
#include <Brindle/Platform/Security.h>

#include <cstring>
#include <memory>
#include <utility>

namespace Brindle::Vok::Platform
{
namespace
{

class TokenObject : public Object
{
public:
    static constexpr Kinds kinds = KindsOf(Kind::token);

    TokenObject(std::unique_ptr<Identity const> identity, TOKEN_TYPE type, DWORD session, DWORD access) noexcept
        : Object(Kind::token), identity(std::move(identity)), type(type), session(session), access(access)
    {
    }

    bool Grants(DWORD rights) const noexcept { return (access & rights) == rights || FailWith(ERROR_ACCESS_DENIED); }

    std::unique_ptr<Identity const> const identity;
    TOKEN_TYPE const type;
    DWORD const session;
    DWORD const access;
};

/// The rights that are given; false with ERROR_ACCESS_DENIED for one that tokens don't have.
bool GrantRights(DWORD asked, DWORD& granted) noexcept
{
    constexpr auto all = static_cast<DWORD>(TOKEN_ALL_ACCESS);
    constexpr auto maximum = static_cast<DWORD>(MAXIMUM_ALLOWED);
    granted = (asked & maximum) != 0 ? all : asked;
    return (asked & ~(all | maximum)) == 0 || FailWith(ERROR_ACCESS_DENIED);
}

HANDLE MakeToken(TokenSubject const& whose, TOKEN_TYPE type, DWORD access)
{
    auto token =
        HandleTable::Make<TokenObject>(std::make_unique<Identity const>(whose.identity), type, whose.session, access);
    return token ? token.Open() : nullptr;
}

/// Gives what `find` tells as a token. May throw std::bad_alloc.
template <class Find>
bool OpenToken(Find find, TOKEN_TYPE type, DWORD access, HANDLE* token)
{
    DWORD granted = 0;
    TokenSubject whose;
    if (!find(whose) || !GrantRights(access, granted))
        return false;
    if (!token)
        return FailWith(ERROR_NOACCESS);
    *token = MakeToken(whose, type, granted);
    return *token != nullptr;
}

bool FindOwnSession(DWORD& session) noexcept
{
    return FindSession(GetCurrentProcessId(), session);
}

bool FindImpersonatedBy(HANDLE thread, TokenSubject& found)
{
    if (thread != GetCurrentThread())
        return FailWith(ERROR_INVALID_HANDLE);
    return FindImpersonated(found.identity) && FindOwnSession(found.session);
}

// What a token tells

template <class Value>
bool CopyValue(Value value, void* information, DWORD length, DWORD* returnLength) noexcept
{
    static_assert(sizeof value == 4);
    *returnLength = sizeof value;
    if (length < sizeof value)
        return FailWith(ERROR_INSUFFICIENT_BUFFER);
    if (!information)
        return FailWith(ERROR_NOACCESS);
    std::memcpy(information, &value, sizeof value);
    return true;
}

bool GetInformation(HANDLE token, TOKEN_INFORMATION_CLASS informationClass, void* information, DWORD length,
                    DWORD* returnLength) noexcept
{
    auto const object = HandleTable::Find<TokenObject>(token);
    if (!object || !object->Grants(TOKEN_QUERY))
        return false;
    if (informationClass != TokenType && informationClass != TokenSessionId)
        return FailWith(ERROR_INVALID_PARAMETER);
    if (!returnLength)
        return FailWith(ERROR_NOACCESS);
    return informationClass == TokenType ? CopyValue(object->type, information, length, returnLength)
                                         : CopyValue(object->session, information, length, returnLength);
}

bool Impersonate(HANDLE token)
{
    auto const object = HandleTable::Find<TokenObject>(token);
    if (!object)
        return false;
    DWORD const right = object->type == TokenImpersonation ? TOKEN_IMPERSONATE : TOKEN_DUPLICATE;
    return object->Grants(TOKEN_QUERY | right) && ActAs(*object->identity);
}

} // namespace

HANDLE OpenUserToken(std::string const& user)
{
    return WithoutThrowing(
        [&]() -> HANDLE
        {
            User found;
            TokenSubject whose;
            if (!FindUser(user, found) || !FindGroupsOf(found, whose.identity.groups) || !FindOwnSession(whose.session))
                return nullptr;
            whose.identity.user = found.number;
            whose.identity.group = found.group;
            return MakeToken(whose, TokenPrimary, static_cast<DWORD>(TOKEN_ALL_ACCESS));
        });
}

bool FindIdentityOfToken(HANDLE token, DWORD access, Identity& identity) noexcept
{
    return WithoutThrowing(
        [&]
        {
            auto const object = HandleTable::Find<TokenObject>(token);
            if (!object || !object->Grants(access))
                return false;
            identity = *object->identity;
            return true;
        });
}

} // namespace Brindle::Vok::Platform

HANDLE GetCurrentThread() noexcept
{
    return reinterpret_cast<HANDLE>(LONG_PTR{-2});
}

BOOL OpenProcessToken(HANDLE process, DWORD access, PHANDLE token) noexcept
{
    using namespace Brindle::Vok::Platform;
    auto const find = [&](TokenSubject& found) { return FindSubjectOfProcess(process, found); };
    return WithoutThrowing([&] { return OpenToken(find, TokenPrimary, access, token); });
}

BOOL OpenThreadToken(HANDLE thread, DWORD access, BOOL, PHANDLE token) noexcept
{
    using namespace Brindle::Vok::Platform;
    auto const find = [&](TokenSubject& found) { return FindImpersonatedBy(thread, found); };
    return WithoutThrowing([&] { return OpenToken(find, TokenImpersonation, access, token); });
}

BOOL GetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS informationClass, LPVOID information, DWORD length,
                         DWORD* returnLength) noexcept
{
    return Brindle::Vok::Platform::GetInformation(token, informationClass, information, length, returnLength);
}

BOOL ImpersonateLoggedOnUser(HANDLE token) noexcept
{
    using namespace Brindle::Vok::Platform;
    return WithoutThrowing([&] { return Impersonate(token); });
}

BOOL RevertToSelf() noexcept
{
    using namespace Brindle::Vok::Platform;
    return WithoutThrowing([] { return ActAsProcess(); });
}

BOOL UnloadUserProfile(HANDLE, HANDLE) noexcept
{
    return Brindle::Vok::Platform::FailWith(ERROR_INVALID_HANDLE);
}
