// Reads the host's list of names, its list of groups, and what the kernel tells of a process. Lines must count alone;
// what is found must stand in the file; and what the kernel writes of ids comes back behind any name of a process.
#include "Input.h"

#include "Processes.h"
#include "SystemCalls.h"
#include "Users.h"

#include <Brindle/Platform/ErrorCodes.h>
#include <Brindle/Platform/Handles.h>
#include <Brindle/Platform/Security.h>
#include <Brindle/Platform/System.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

using namespace Brindle::Vok::Platform;

namespace
{

MemoryFile const& HeldFile()
{
    static MemoryFile const file;
    return file;
}

std::string FindDomain(std::string const& hosts)
{
    HeldFile().Hold(hosts);
    std::wstring domain(hosts.size() + 1, L'\0');
    auto size = static_cast<DWORD>(domain.size());
    Require(GetComputerNameExW(ComputerNameDnsDomain, domain.data(), &size), "No answer");
    domain.resize(size);
    return {domain.begin(), domain.end()};
}

bool GroupsAreWhole(std::string const& list)
{
    HeldFile().Hold(list);
    std::vector<gid_t> groups;
    bool const areFound = FindGroupsOf({1, 1, "iron", "/", ""}, groups);
    Require(areFound ? groups == std::vector<gid_t>{1} : GetLastError() == ERROR_NO_SYSTEM_RESOURCES, "Other groups");
    return areFound;
}

void CheckLists(std::string const& file)
{
    std::string domain;
    bool areWhole = true;
    for (std::size_t begin = 0; begin < file.size();)
    {
        std::size_t const end = std::min(file.find('\n', begin), file.size());
        std::string const line = file.substr(begin, end - begin);
        if (domain.empty())
            domain = FindDomain(line);
        areWhole = areWhole && GroupsAreWhole(line);
        begin = end + 1;
    }
    Require(FindDomain(file) == domain, "Hosts' lines don't count alone");
    Require(file.find(domain) != file.npos && domain.find_first_of(" \t\r\n#") == domain.npos, "No domain");
    Require(GroupsAreWhole(file) == areWhole, "Groups' lines don't count alone");
    Require(FindDomain("1 other\n" + file + "\n1 iron.a.b x IRON#\n") == (domain.empty() ? "a.b" : domain),
            "Not the domain that was written");
    Require(!GroupsAreWhole(file + "\ng:x:7:other,iron\n"), "A group isn't seen");
}

void CheckStatus(std::string name, std::string const& bytes)
{
    // The writer of another process's name can't get at the lines: the kernel escapes their ends.
    std::ranges::replace(name, '\n', '_');
    std::vector<gid_t> groups;
    for (std::size_t i = 0; i < std::min<std::size_t>(bytes.size(), 9); ++i)
        groups.push_back(static_cast<gid_t>(std::hash<std::string_view>()(std::string_view(bytes).substr(i))));
    groups.resize(std::max<std::size_t>(groups.size(), 2));
    auto const four = [](unsigned id) { return "\t77\t" + std::to_string(id) + "\t78\t79\n"; };
    std::string status =
        "Name:\t" + name + "\nState:\tR\nUid:" + four(groups[0]) + "Gid:" + four(groups[1]) + "Groups:\t";
    for (gid_t const group : groups)
        status += std::to_string(group) + " ";
    HeldFile().Hold(status + "\nNStgid:\t1\n");
    static HANDLE const parent = OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, static_cast<DWORD>(::getppid()));
    TokenSubject found;
    Require(FindSubjectOfProcess(parent, found), "No subject");
    Require(found.identity.user == groups[0] && found.identity.group == groups[1] && found.identity.groups == groups,
            "Other ids than the kernel's");
    HeldFile().Hold(bytes);
    Require(FindSubjectOfProcess(parent, found) || GetLastError() == ERROR_INVALID_DATA, "Another code");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    SystemCalls::Redirection const open(SystemCalls::Open, [](int directory, char const*, int flags, mode_t mode)
                                        { return SystemCalls::Open.host(directory, HeldFile().Path(), flags, mode); });
    SystemCalls::Redirection const name(SystemCalls::GetHostNames,
                                        [](utsname* names) { return std::strcpy(names->nodename, "iron"), 0; });
    SystemCalls::Redirection const own(SystemCalls::FindGroupsOf,
                                       [](char const*, gid_t group, gid_t* groups, int* count)
                                       { return *groups = group, *count = 1; });
    std::string file(data, data + size);
    CheckStatus(file.substr(0, file.find('\0')), file);
    std::ranges::replace_if(
        file, [](char unit) { return unit < 0 || unit == 0; }, '?'); // text of one unit a byte
    CheckLists(file);
    return 0;
}
