#include <Brindle/Platform/System.h>

#include "Ascii.h"
#include "HostErrors.h"
#include "HostFile.h"
#include "Lines.h"
#include "Names.h"
#include "Strings.h"
#include "SystemCalls.h"
#include "Users.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>
#include <string_view>

namespace Brindle::Vok::Platform
{
namespace
{

constexpr std::size_t longestNetBiosName = 15;

// The domain in a line "address name.domain name …" that has the host's bare name too.
std::string_view DomainInLine(std::string_view line, std::string_view host) noexcept
{
    line = line.substr(0, line.find('#'));
    TakeWord(line);
    std::string_view const name = TakeWord(line);
    if (name.size() <= host.size() || name[host.size()] != '.' || !EqualWithoutCase(name.substr(0, host.size()), host))
        return {};
    for (std::string_view alias = TakeWord(line); !alias.empty(); alias = TakeWord(line))
        if (EqualWithoutCase(alias, host))
            return name.substr(host.size() + 1);
    return {};
}

// Empty when neither the name nor the host's list tells it. False with the last error set.
bool FindDomain(std::string_view name, std::string& domain)
{
    if (std::size_t const dot = name.find('.'); dot != name.npos)
    {
        domain = name.substr(dot + 1);
        return true;
    }
    std::optional<std::string> hosts;
    if (!ReadSmallFile("/etc/hosts", hosts))
        return false;
    domain.clear();
    std::string_view rest = hosts ? std::string_view(*hosts) : std::string_view();
    while (!name.empty() && domain.empty() && !rest.empty())
        domain = DomainInLine(TakePart(rest, '\n'), name);
    return true;
}

// False with the last error set.
bool FindComputerName(COMPUTER_NAME_FORMAT format, std::string_view name, std::wstring& found)
{
    std::string_view const host = name.substr(0, name.find('.'));
    std::string domain;
    switch (format)
    {
    case ComputerNameNetBIOS:
    case ComputerNamePhysicalNetBIOS:
        found = ToWide(host).substr(0, longestNetBiosName);
        if (!found.empty() && found.back() >= 0xD800 && found.back() <= 0xDBFF)
            found.pop_back(); // the other half was cut off
        std::ranges::transform(found, found.begin(), UpperCase<wchar_t>);
        return true;
    case ComputerNameDnsHostname:
    case ComputerNamePhysicalDnsHostname:
        found = ToWide(host);
        return true;
    case ComputerNameDnsDomain:
    case ComputerNamePhysicalDnsDomain:
        if (!FindDomain(name, domain))
            return false;
        found = ToWide(domain);
        return true;
    default:
        if (!FindDomain(name, domain))
            return false;
        found = ToWide(domain.empty() ? std::string(host) : std::string(host) + '.' + domain);
        return true;
    }
}

bool GiveComputerName(COMPUTER_NAME_FORMAT format, wchar_t* buffer, DWORD* size)
{
    if (format < ComputerNameNetBIOS || format >= ComputerNameMax || !size || (!buffer && *size != 0))
        return FailWith(ERROR_INVALID_PARAMETER);
    utsname names;
    if (SystemCalls::GetHostNames(&names) != 0)
        return FailWithHost(errno);
    std::wstring name;
    if (!FindComputerName(format, names.nodename, name))
        return false;
    bool const fits = CopyIfItFits(name, buffer, *size);
    *size = static_cast<DWORD>(name.size() + (fits ? 0 : 1));
    return fits || FailWith(ERROR_MORE_DATA);
}

bool GiveUserName(wchar_t* buffer, DWORD* size)
{
    if (!size)
        return FailWith(ERROR_INVALID_PARAMETER);
    User user;
    if (!FindUser(SystemCalls::GetEffectiveUser(), user))
        return false;
    std::wstring const name = ToWide(user.name);
    bool const fits = CopyIfItFits(name, buffer, *size);
    *size = static_cast<DWORD>(name.size() + 1);
    return fits || FailWith(ERROR_INSUFFICIENT_BUFFER);
}

UINT GiveSystemDirectory(wchar_t* buffer, UINT size)
{
    std::wstring const directory = WindowsPathFromHost("/usr/lib");
    bool const fits = CopyIfItFits(directory, buffer, size);
    return static_cast<UINT>(directory.size() + (fits ? 0 : 1));
}

} // namespace
} // namespace Brindle::Vok::Platform

using namespace Brindle::Vok::Platform;

BOOL GetComputerNameExW(COMPUTER_NAME_FORMAT format, LPWSTR buffer, LPDWORD size) noexcept
{
    return WithoutThrowing([&] { return GiveComputerName(format, buffer, size); });
}

BOOL GetUserNameW(LPWSTR buffer, LPDWORD size) noexcept
{
    return WithoutThrowing([&] { return GiveUserName(buffer, size); });
}

UINT GetSystemDirectoryW(LPWSTR buffer, UINT size) noexcept
{
    return WithoutThrowing([&] { return GiveSystemDirectory(buffer, size); });
}
