#include "Processes.h"

#include "Descriptor.h"
#include "HostErrors.h"
#include "ReadOnlyFile.h"

#include <Brindle/Platform/Security.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>
#include <string>
#include <string_view>
#include <system_error>

namespace Brindle::Vok::Platform
{
namespace
{

/// Holds on to one process: its number may be another one's when it has ended.
class ProcessObject : public Object
{
public:
    static constexpr Kinds kinds = KindsOf(Kind::process);

    ProcessObject() noexcept : Object(Kind::process) {}

    bool HasEnded() const noexcept
    {
        pollfd ended{descriptor.Get(), POLLIN, 0};
        timespec const atOnce{};
        return Uninterrupted([&] { return SystemCalls::Poll(&ended, 1, &atOnce); }) > 0;
    }

    pid_t process = 0;
    Descriptor descriptor; // none for the calling process
};

struct ProcPath
{
    ProcPath(pid_t process, char const* name) noexcept
    {
        std::snprintf(text, sizeof text, "/proc/%d/%s", process, name);
    }
    char text[40];
};

/// By the rule that the kernel has for looking into another process.
bool MayLookInto(pid_t process) noexcept
{
    char target[64];
    if (SystemCalls::ReadLink(ProcPath(process, "ns/pid").text, target, sizeof target) >= 0)
        return true;
    return errno == ENOENT ? FailWith(ERROR_ACCESS_DENIED) : FailWithHost(errno); // hidden, if it hasn't ended
}

/// The host tells the size of no such file.
bool ReadStatus(pid_t process, std::string& text)
{
    ReadOnlyFile const file(ProcPath(process, "status").text);
    ssize_t count = file.IsOpen() ? 1 : -1;
    while (count > 0)
    {
        char part[4096];
        count = file.ReadAt(static_cast<off_t>(text.size()), part, sizeof part);
        text.append(part, static_cast<std::size_t>(std::max(count, ssize_t{0})));
    }
    return count == 0 || FailWithHost(errno);
}

/// The numbers of the line that begins with the name.
std::vector<unsigned> NumbersOf(std::string_view status, std::string_view name)
{
    std::vector<unsigned> numbers;
    auto const begin = status.find(name);
    if (begin == status.npos)
        return numbers;
    status.remove_prefix(begin + name.size());
    char const* place = status.data();
    char const* const end = place + std::min(status.find('\n'), status.size());
    while (place != end)
    {
        unsigned number = 0;
        auto const [behind, error] = std::from_chars(place, end, number);
        if (error == std::errc())
            numbers.push_back(number);
        place = behind == place ? place + 1 : behind;
    }
    return numbers;
}

/// From the kernel's text about a process: real, effective, saved and file-system id in a row.
bool ParseIdentity(std::string_view status, Identity& identity)
{
    auto const users = NumbersOf(status, "\nUid:");
    auto const groups = NumbersOf(status, "\nGid:");
    if (users.size() < 2 || groups.size() < 2)
        return FailWith(ERROR_INVALID_DATA);
    identity = {users[1], groups[1], NumbersOf(status, "\nGroups:")};
    return true;
}

bool FindSubjectOfOther(ProcessObject const& object, TokenSubject& found)
{
    std::string status;
    bool const isFound = MayLookInto(object.process) && ReadStatus(object.process, status) &&
                         ParseIdentity(status, found.identity) &&
                         FindSession(static_cast<DWORD>(object.process), found.session);
    // Whatever was found may be another one's with the same number then.
    return object.HasEnded() ? FailWith(ERROR_ACCESS_DENIED) : isFound;
}

} // namespace

bool FindSubjectOfProcess(HANDLE process, TokenSubject& found)
{
    pid_t const self = SystemCalls::GetProcess();
    if (process != GetCurrentProcess())
    {
        auto const object = HandleTable::Find<ProcessObject>(process);
        if (!object)
            return false;
        if (object->process != self || object->descriptor)
            return FindSubjectOfOther(*object, found);
    }
    return FindSession(static_cast<DWORD>(self), found.session) && FindProcessIdentity(found.identity);
}

namespace
{

// The host gives threads numbers too, and answers most questions about them.
bool IsThread(pid_t process) noexcept
{
    Descriptor const opened(SystemCalls::OpenProcess(process));
    return !opened && errno == EINVAL;
}

} // namespace

bool FindSession(DWORD processId, DWORD& session) noexcept
{
    if (processId == 0 || processId > INT_MAX)
        return FailWith(ERROR_INVALID_PARAMETER);
    auto const process = static_cast<pid_t>(processId);
    pid_t const found = SystemCalls::GetSession(process);
    if (found < 0)
        return errno == ESRCH ? FailWith(ERROR_INVALID_PARAMETER) : FailWithHost(errno);
    if (process != SystemCalls::GetProcess() && IsThread(process))
        return FailWith(ERROR_INVALID_PARAMETER);
    session = static_cast<DWORD>(found);
    return true;
}

namespace
{

HANDLE OpenProcessObject(DWORD access, DWORD processId) noexcept
{
    constexpr DWORD rights = PROCESS_QUERY_INFORMATION | PROCESS_QUERY_LIMITED_INFORMATION;
    if (processId == 0 || processId > INT_MAX)
        return FailWith<HANDLE>(ERROR_INVALID_PARAMETER);
    if (access == 0 || (access & ~rights) != 0)
        return FailWith<HANDLE>(ERROR_ACCESS_DENIED);
    auto object = HandleTable::Make<ProcessObject>();
    if (!object)
        return nullptr;
    object->process = static_cast<pid_t>(processId);
    if (object->process == SystemCalls::GetProcess())
        return object.Open();
    object->descriptor = Descriptor(SystemCalls::OpenProcess(object->process));
    if (!object->descriptor)
        return errno == ESRCH ? FailWith<HANDLE>(ERROR_INVALID_PARAMETER) : FailWith<HANDLE>(CodeFromHost(errno));
    bool const mayOpen = (access & PROCESS_QUERY_INFORMATION) == 0 || MayLookInto(object->process);
    if (object->HasEnded())
        return FailWith<HANDLE>(ERROR_INVALID_PARAMETER);
    return mayOpen ? object.Open() : nullptr;
}

} // namespace
} // namespace Brindle::Vok::Platform

DWORD GetCurrentProcessId() noexcept
{
    return static_cast<DWORD>(Brindle::Vok::Platform::SystemCalls::GetProcess());
}

HANDLE GetCurrentProcess() noexcept
{
    return reinterpret_cast<HANDLE>(LONG_PTR{-1});
}

HANDLE OpenProcess(DWORD access, BOOL, DWORD processId) noexcept
{
    return Brindle::Vok::Platform::OpenProcessObject(access, processId);
}

BOOL ProcessIdToSessionId(DWORD processId, DWORD* sessionId) noexcept
{
    using namespace Brindle::Vok::Platform;
    return sessionId ? FindSession(processId, *sessionId) : FailWith(ERROR_INVALID_PARAMETER);
}
