#include <Brindle/Platform/UserEnvironment.h>

#include "Ascii.h"
#include "EnvironmentFile.h"
#include "Forks.h"
#include "HostErrors.h"
#include "HostFile.h"
#include "Names.h"
#include "ProcessEnvironment.h"
#include "Strings.h"
#include "Tokens.h"
#include "Users.h"

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace Brindle::Vok::Platform
{
namespace
{

struct LessWithoutCase
{
    template <class Text>
    bool operator()(Text const& left, Text const& right) const noexcept
    {
        using Unit = typename Text::value_type;
        return std::ranges::lexicographical_compare(left, right, {}, UpperCase<Unit>, UpperCase<Unit>);
    }
};

using HostVariables = std::map<std::string, std::string, LessWithoutCase>;
using Variables = std::map<std::wstring, std::wstring, LessWithoutCase>;

// The blocks that are out, so that nothing else is ever freed.
constinit std::mutex mutex;

// Never destroyed: owners of blocks may be static.
std::map<void*, std::unique_ptr<wchar_t[]>>& Blocks()
{
    static auto& blocks = *new std::map<void*, std::unique_ptr<wchar_t[]>>;
    return blocks;
}

[[maybe_unused]] int const keepsOrderInChild = HoldInForks<mutex>();

// Under the spelling that is added, which may be another one.
template <class Text>
void ReplaceVariable(std::map<Text, Text, LessWithoutCase>& variables, Text name, Text value)
{
    variables.erase(name);
    variables.emplace(std::move(name), std::move(value));
}

bool AddSystem(HostVariables& variables)
{
    std::optional<std::string> file;
    if (!ReadSmallFile("/etc/environment", file))
        return false;
    for (auto& [name, value] : ParseEnvironmentFile(file.value_or("")))
        ReplaceVariable(variables, std::move(name), std::move(value));
    return true;
}

Variables Converted(HostVariables const& variables)
{
    Variables converted;
    for (auto const& [name, value] : variables)
        converted.emplace(ToWide(name), ToWide(value));
    auto const temporary = [&](std::string const& name, std::string const& other)
    {
        auto const own = variables.find(name);
        auto const second = variables.find(other);
        return TemporaryDirectoryFrom(own != variables.end() ? own->second.c_str() : nullptr,
                                      second != variables.end() ? second->second.c_str() : nullptr);
    };
    converted[L"TEMP"] = temporary("TEMP", "TMP");
    converted[L"TMP"] = temporary("TMP", "TEMP");
    return converted;
}

void AddUser(Variables& variables, User const& user)
{
    std::wstring const name = ToWide(user.name);
    std::wstring const home = WindowsPathFromHost(user.home);
    ReplaceVariable<std::wstring>(variables, L"USERNAME", name);
    ReplaceVariable<std::wstring>(variables, L"USERPROFILE", home);
    ReplaceVariable<std::wstring>(variables, L"HOMEDRIVE", home.substr(0, 2));
    ReplaceVariable<std::wstring>(variables, L"HOMEPATH", home.substr(2));
    ReplaceVariable<std::wstring>(variables, L"APPDATA", WindowsPathFromHost(user.home + "/.config"));
    ReplaceVariable<std::wstring>(variables, L"LOCALAPPDATA", WindowsPathFromHost(user.home + "/.local/share"));
    ReplaceVariable<std::wstring>(variables, L"USER", name);
    ReplaceVariable<std::wstring>(variables, L"LOGNAME", name);
    ReplaceVariable<std::wstring>(variables, L"HOME", ToWide(user.home));
    ReplaceVariable<std::wstring>(variables, L"SHELL", ToWide(user.shell));
}

bool CollectVariables(HANDLE token, bool inherit, Variables& variables)
{
    Identity identity;
    User user;
    if (token &&
        (!FindIdentityOfToken(token, TOKEN_QUERY | TOKEN_DUPLICATE, identity) || !FindUser(identity.user, user)))
        return false;
    HostVariables ofHost;
    if (inherit)
        for (auto& [name, value] : ReadHostVariables())
            ofHost.emplace(std::move(name), std::move(value)); // the first of those that differ in case only
    if (!AddSystem(ofHost))
        return false;
    variables = Converted(ofHost);
    if (token)
        AddUser(variables, user);
    return true;
}

void* MakeBlock(Variables const& variables)
{
    std::size_t size = 1;
    for (auto const& [name, value] : variables)
        size += name.size() + value.size() + 2;
    auto block = std::make_unique<wchar_t[]>(size); // of zeros
    wchar_t* out = block.get();
    for (auto const& [name, value] : variables)
    {
        out = std::ranges::copy(name, out).out;
        *out++ = L'=';
        out = std::ranges::copy(value, out).out + 1;
    }
    void* const made = block.get();
    std::lock_guard const lock(mutex);
    Blocks().emplace(made, std::move(block));
    return made;
}

} // namespace
} // namespace Brindle::Vok::Platform

BOOL CreateEnvironmentBlock(LPVOID* block, HANDLE token, BOOL inherit) noexcept
{
    using namespace Brindle::Vok::Platform;
    if (!block)
        return FailWith(ERROR_INVALID_PARAMETER);
    *block = nullptr;
    return WithoutThrowing(
        [&]
        {
            Variables variables;
            if (!CollectVariables(token, inherit != FALSE, variables))
                return false;
            *block = MakeBlock(variables);
            return true;
        });
}

BOOL DestroyEnvironmentBlock(LPVOID block) noexcept
{
    using namespace Brindle::Vok::Platform;
    std::lock_guard const lock(mutex);
    return Blocks().erase(block) != 0 || FailWith(ERROR_INVALID_PARAMETER);
}
