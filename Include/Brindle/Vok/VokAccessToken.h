// A token, and how to capture the one with which the calling thread impersonates.
//
//     VokAccessToken token;
//     if (token.GetCurrentTokenForImpersonation() && token.GetHandle() == nullptr)
//         …                                            // the thread doesn't impersonate
//     …
//     token.ImpersonateLoggedOnUser();                 // any thread, later
//
// Nothing is thrown for a failure of the platform: it gives false, and GetCurrentTokenForImpersonation logs it. To put
// an impersonation back at the end of a scope, use ImpersonationSaver. What it inherits is told in
// Brindle/Platform/Atl.h. An object isn't synchronised and belongs to one thread at a time.
#pragma once

#include <Brindle/Vok/Log.h>
#include <Brindle/Vok/Platform.h>

#include <utility>

namespace Brindle::Vok
{

/// An owner of a token, empty at first.
class VokAccessToken : public ATL::CAccessToken
{
public:
    VokAccessToken() noexcept = default;
    /// Closes the token, if it is this object's own. The thread goes on impersonating.
    ~VokAccessToken() noexcept override { ForgetForeign(); }

    /// Closes what it holds, or forgets a token that isn't its own.
    void Clear() noexcept override
    {
        ForgetForeign();
        ATL::CAccessToken::Clear();
    }

    /// Holds a token that stays the caller's: what ends this object's use of it doesn't close it. Null empties it.
    void AttachForeign(HANDLE token) noexcept
    {
        Clear();
        Attach(token);
        ownsToken = token == nullptr;
    }

    /// Lets go of what it held, and holds the token with which the calling thread impersonates, fit for impersonating
    /// with it again. True and empty if the thread doesn't impersonate; false and empty on failure, which is logged.
    bool GetCurrentTokenForImpersonation();

private:
    void ForgetForeign() noexcept
    {
        if (!std::exchange(ownsToken, true))
            Detach();
    }

    bool ownsToken = true;
};

inline bool VokAccessToken::GetCurrentTokenForImpersonation()
{
    Clear();
    VokAccessToken probe;
    bool openAsSelf = false;
    if (!probe.GetThreadToken(TOKEN_QUERY, nullptr, openAsSelf))
    {
        if (GetLastError() == ERROR_NO_TOKEN)
            return true;
        VOK_LOG(warning, "Error Failed to GetThreadToken Error [{}]. Trying as self...", GetLastError());
        openAsSelf = true;
        if (!probe.GetThreadToken(TOKEN_QUERY, nullptr, openAsSelf))
        {
            VOK_LOG(error, "Failed to GetThreadToken() as the current process. Error: [{}]", GetLastError());
            return false;
        }
    }
    TOKEN_TYPE type = TokenImpersonation;
    if (!probe.GetType(&type))
    {
        VOK_LOG(error, "Error Failed to GetType Error [{}]", GetLastError());
        return false;
    }
    if (type == TokenImpersonation)
    {
        if (!GetThreadToken(TOKEN_IMPERSONATE | TOKEN_QUERY, nullptr, openAsSelf))
        {
            VOK_LOG(error, "Error Failed to GetThreadToken impersonate Error [{}]", GetLastError());
            return false;
        }
    }
    else if (type == TokenPrimary)
    {
        if (!GetThreadToken(TOKEN_DUPLICATE | TOKEN_QUERY, nullptr, openAsSelf))
        {
            VOK_LOG(error, "Error Failed to GetThreadToken primary Error [{}]", GetLastError());
            return false;
        }
    }
    else
    {
        VOK_LOG(error, "Error Failed to GetThreadToken. unknown type Error [{}]", GetLastError());
        return false;
    }
    return true;
}

} // namespace Brindle::Vok
