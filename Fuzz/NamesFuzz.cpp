// Names and paths of the host become text and the same bytes again; any text becomes a path that its own text leads
// to, or is refused with one of the codes for that.
#include "Input.h"

#include "Names.h"

#include <Brindle/Platform/ErrorCodes.h>
#include <Brindle/Platform/Handles.h>

#include <algorithm>
#include <iterator>
#include <vector>

using namespace Brindle::Vok::Platform;

namespace
{

void CheckName(std::string name)
{
    std::ranges::replace(name, '/', '_');
    if (name.empty() || name == "." || name == "..")
        return;
    std::wstring const text = WideNameFromHost(name);
    Require(text.size() <= name.size(), "More units than bytes");
    auto const isForbidden = [](wchar_t unit)
    { return unit < 0x20 || std::wstring_view(L"<>:\"/\\|?*").find(unit) != std::wstring_view::npos; };
    Require(std::ranges::none_of(text, isForbidden), "A character that no name can have");
    for (wchar_t const* const directory : {L"C:\\d\\", L"\\\\?\\C:\\d\\"})
    {
        HostPath path;
        Require(path.Assign(directory + text) && path.View() == "/d/" + name, "Another name");
    }
}

std::string Folded(std::string_view path)
{
    std::vector<std::string_view> parts;
    for (std::size_t begin = 0; begin < path.size();)
    {
        std::size_t const end = std::min(path.find('/', begin), path.size());
        std::string_view const part = path.substr(begin, end - begin);
        if (part == ".." && !parts.empty())
            parts.pop_back();
        else if (!part.empty() && part != "." && part != "..")
            parts.push_back(part);
        begin = end + 1;
    }
    std::string folded;
    for (std::string_view const part : parts)
        (folded += '/') += part;
    return folded.empty() ? "/" : folded;
}

void CheckPath(std::string const& hostPath)
{
    HostPath path;
    Require(path.Assign(WindowsPathFromHost(hostPath)) && path.View() == Folded(hostPath), "Another path");
}

void CheckText(std::wstring const& text)
{
    HostPath path;
    if (!path.Assign(text))
    {
        constexpr DWORD known[] = {ERROR_PATH_NOT_FOUND,   ERROR_BAD_NETPATH,  ERROR_BAD_NET_NAME,
                                   ERROR_INVALID_NAME,     ERROR_BAD_PATHNAME, ERROR_FILE_NOT_FOUND,
                                   ERROR_INVALID_PARAMETER};
        return Require(std::ranges::find(known, GetLastError()) != std::end(known), "Another code");
    }
    HostPath again;
    Require(!path.View().empty() && path.View().find('\0') == std::string_view::npos, "No path of the host");
    Require(again.Assign(WindowsPathFromHost(path.View())) && again.View() == path.View(), "Its text leads elsewhere");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    std::string bytes(data, data + size);
    CheckText(MakeWide(bytes));
    CheckText(std::wstring(data, data + size));
    std::ranges::replace(bytes, '\0', '0');
    CheckName(bytes);
    CheckPath('/' + bytes);
    return 0;
}
