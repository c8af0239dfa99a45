// Values for the debugger, which stops in Stop() and looks at what main holds.
#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/HandleOwner.h>
#include <Brindle/Vok/Path.h>

#include <cstring>

using namespace Brindle::Vok;

namespace
{

[[gnu::noinline]] void Stop()
{
    asm volatile("");
}

struct Garbage
{
    Garbage() { std::memset(static_cast<void*>(this), 0xA5, sizeof(*this)); }
    ~Garbage() {} // the members neither begin nor end

    union
    {
        Path path;
        WindowsError error;
        HandleOwner<Detail::ModuleHandleTraits> owner;
    };
};

} // namespace

int main()
{
    Path const path(L"C:\\Gr\u00FC\u00DFe\\\xD83D\xDE00");
    Path const lone(L"a\xD83D\nb");
    Path const empty;
    Path moved(std::wstring(71, L'x'));
    Path const longer(std::move(moved));
    Path const& reference = path;
    Error const success;
    WindowsError const windows(2, nullptr, 0, nullptr, "path[C:\\\xC3\xBC]");
    ComError const com(E_FAIL, nullptr, 0, nullptr, "");
    Error const& base = com;
    HandleOwner<Detail::InvalidHandleTraits> const noFile;
    HandleOwner<Detail::InvalidHandleTraits> const nullFile(nullptr);
    HandleOwner<Detail::NullHandleTraits> const noToken;
    HandleOwner<Detail::RegistryHkeyHandleTraits> const key(reinterpret_cast<HKEY>(0x1234));
    Garbage const garbage;
    Stop();
    return &reference == &lone || &base == &success;
}
