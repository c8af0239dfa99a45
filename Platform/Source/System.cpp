#include <Brindle/Platform/System.h>

#include "Ascii.h"
#include "HostErrors.h"
#include "HostFile.h"
#include "Names.h"
#include "Strings.h"
#include "SystemCalls.h"
#include "Users.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>

namespace Brindle::Vok::Platform
{
namespace
{

constexpr std::size_t longestNetBiosName = 15;

// Takes the first word away from a line; empty when there is none.
std::string_view TakeWord(std::string_view& line) noexcept
{
    constexpr std::string_view blanks = " \t\r";
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    std::string_view const word = line.substr(0, line.find_first_of(blanks));
    line.remove_prefix(word.size());
    return word;
}

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

std::string FindDomain(std::string_view host)
{
    std::string hosts;
    if (!ReadSettings("/etc/hosts", hosts))
        return {};
    std::string_view rest = hosts;
    while (!host.empty() && !rest.empty())
    {
        std::string_view const line = rest.substr(0, rest.find('\n'));
        if (std::string_view const domain = DomainInLine(line, host); !domain.empty())
            return std::string(domain);
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    }
    return {};
}

std::wstring ComputerName(COMPUTER_NAME_FORMAT format, std::string_view name)
{
    std::size_t const dot = std::min(name.find('.'), name.size());
    std::string_view const host = name.substr(0, dot);
    auto const domain = [&] { return dot < name.size() ? std::string(name.substr(dot + 1)) : FindDomain(host); };
    switch (format)
    {
    case ComputerNameNetBIOS:
    case ComputerNamePhysicalNetBIOS:
    {
        std::wstring text = ToWide(host).substr(0, longestNetBiosName);
        std::ranges::transform(text, text.begin(), UpperCase<wchar_t>);
        return text;
    }
    case ComputerNameDnsHostname:
    case ComputerNamePhysicalDnsHostname:
        return ToWide(host);
    case ComputerNameDnsDomain:
    case ComputerNamePhysicalDnsDomain:
        return ToWide(domain());
    default:
        std::string const found = domain();
        return ToWide(found.empty() ? std::string(host) : std::string(host) + '.' + found);
    }
}

bool GiveComputerName(COMPUTER_NAME_FORMAT format, wchar_t* buffer, DWORD* size)
{
    if (format < ComputerNameNetBIOS || format >= ComputerNameMax || !size || (!buffer && *size != 0))
        return FailWith(ERROR_INVALID_PARAMETER);
    utsname names;
    if (SystemCalls::GetHostNames(&names) != 0)
        return FailWithHost(errno);
    std::wstring const name = ComputerName(format, names.nodename);
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
