#include <Brindle/Platform/Environment.h>

#include "Ascii.h"
#include "Forks.h"
#include "HostErrors.h"
#include "Names.h"
#include "ProcessEnvironment.h"
#include "Strings.h"
#include "Utf.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>

namespace Brindle::Vok::Platform
{

namespace
{

// The host's environment has no lock of its own, so the calls of this file keep out of each other's way.
constinit std::mutex environmentMutex;

[[maybe_unused]] int const keepsOrderInChild = HoldInForks<environmentMutex>();

struct Variable
{
    std::string_view name;
    char const* value;
};

// Calls use(variable) for each of the host's variables until it gives false.
template <class Use>
void ForEachVariable(Use use)
{
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry)
    {
        std::string_view const text(*entry);
        auto const end = text.find('=');
        if (end != text.npos && !use(Variable{text.substr(0, end), *entry + end + 1}))
            return;
    }
}

// The host's variable of this name: one that is spelled the same, or else the first that differs in case only.
std::optional<Variable> FindVariable(std::string_view name)
{
    std::optional<Variable> found;
    ForEachVariable(
        [&](Variable const& variable)
        {
            bool const isSame = variable.name == name;
            if (isSame || (!found && EqualWithoutCase(variable.name, name)))
                found = variable;
            return !isSame;
        });
    return found;
}

bool IsNameUsable(std::wstring_view name)
{
    return !name.empty() && name.find(L'=') == name.npos && Utf::IsValidWide(name.data(), name.size());
}

char const* ValueOf(std::string_view name)
{
    auto const variable = FindVariable(name);
    return variable ? variable->value : nullptr;
}

std::optional<std::wstring> ReadVariable(std::wstring_view name)
{
    if (!IsNameUsable(name))
        return std::nullopt;
    auto const hostName = ToUtf8(name);
    char const* const value = ValueOf(hostName);
    if (EqualWithoutCase(hostName, "TEMP"))
        return TemporaryDirectoryFrom(value, ValueOf("TMP"));
    if (EqualWithoutCase(hostName, "TMP"))
        return TemporaryDirectoryFrom(value, ValueOf("TEMP"));
    return value ? std::optional(ToWide(value)) : std::nullopt;
}

std::wstring Expand(std::wstring_view text)
{
    std::wstring result;
    while (!text.empty())
    {
        auto const begin = std::min(text.find(L'%'), text.size());
        result += text.substr(0, begin);
        text.remove_prefix(begin);
        auto const end = text.find(L'%', 1);
        if (end == text.npos)
            return result.append(text);
        auto const value = ReadVariable(text.substr(1, end - 1));
        result += value ? std::wstring_view(*value) : text.substr(0, end + 1);
        text.remove_prefix(end + 1);
    }
    return result;
}

DWORD GetVariable(wchar_t const* name, wchar_t* buffer, DWORD size)
{
    if (name == nullptr)
        return FailWith<DWORD>(ERROR_ENVVAR_NOT_FOUND);
    std::lock_guard const lock(environmentMutex);
    auto const value = ReadVariable(name);
    if (!value)
        return FailWith<DWORD>(ERROR_ENVVAR_NOT_FOUND);
    if (!CopyIfItFits(*value, buffer, size))
        return static_cast<DWORD>(value->size() + 1);
    // An empty variable has the same result as a missing one; the last error tells them apart.
    if (value->empty())
        SetLastError(ERROR_SUCCESS);
    return static_cast<DWORD>(value->size());
}

bool SetVariable(std::wstring_view name, wchar_t const* value)
{
    if (!IsNameUsable(name))
        return FailWith(ERROR_INVALID_PARAMETER);
    auto hostName = ToUtf8(name);
    std::lock_guard const lock(environmentMutex);
    auto const variable = FindVariable(hostName);
    if (variable)
        hostName = variable->name;
    if (value == nullptr)
    {
        if (!variable)
            return FailWith(ERROR_ENVVAR_NOT_FOUND);
        unsetenv(hostName.c_str());
        return true;
    }
    if (setenv(hostName.c_str(), ToUtf8(value).c_str(), 1) != 0)
        return FailWith(ERROR_NOT_ENOUGH_MEMORY);
    return true;
}

DWORD GiveExpanded(wchar_t const* text, wchar_t* buffer, DWORD size)
{
    if (text == nullptr)
        return FailWith<DWORD>(ERROR_INVALID_PARAMETER);
    std::lock_guard const lock(environmentMutex);
    auto const expanded = Expand(text);
    if (expanded.size() >= std::numeric_limits<DWORD>::max())
        return FailWith<DWORD>(ERROR_ARITHMETIC_OVERFLOW);
    CopyIfItFits(expanded, buffer, size);
    return static_cast<DWORD>(expanded.size() + 1);
}

} // namespace

std::optional<std::string> ReadHostVariable(std::string_view name)
{
    std::lock_guard const lock(environmentMutex);
    auto const variable = FindVariable(name);
    return variable && variable->name == name && *variable->value != '\0' ? std::optional<std::string>(variable->value)
                                                                          : std::nullopt;
}

std::vector<std::pair<std::string, std::string>> ReadHostVariables()
{
    std::lock_guard const lock(environmentMutex);
    std::vector<std::pair<std::string, std::string>> variables;
    ForEachVariable(
        [&](Variable const& variable)
        {
            if (!variable.name.empty())
                variables.emplace_back(variable.name, variable.value);
            return true;
        });
    return variables;
}

std::wstring TemporaryDirectoryFrom(char const* own, char const* other)
{
    for (char const* const value : {own, other})
        if (value != nullptr && *value != '\0')
            return *value == '/' ? WindowsPathFromHost(value) : ToWide(value);
    return L"C:\\tmp";
}

} // namespace Brindle::Vok::Platform

DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR buffer, DWORD size) noexcept
{
    using namespace Brindle::Vok::Platform;
    return WithoutThrowing([&] { return GetVariable(name, buffer, size); });
}

BOOL SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value) noexcept
{
    using namespace Brindle::Vok::Platform;
    return WithoutThrowing([&] { return SetVariable(name ? std::wstring_view(name) : std::wstring_view(), value); });
}

DWORD ExpandEnvironmentStringsW(LPCWSTR text, LPWSTR buffer, DWORD size) noexcept
{
    using namespace Brindle::Vok::Platform;
    return WithoutThrowing([&] { return GiveExpanded(text, buffer, size); });
}
