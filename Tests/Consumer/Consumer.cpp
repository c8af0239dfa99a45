// A component outside the tree: it logs, throws and catches across the library's border.
#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/Log.h>
#include <Brindle/Vok/String.h>

#include <iostream>

using namespace Brindle::Vok;

int main()
{
    int statements = 0;
    SubscriptionForLogCallbacks subscription([&](LogStatement const&) { ++statements; }, VokLogSeverity::trace);
    VOK_LOG(warning, "from outside, {}", 1);
    try
    {
        String::StringToWstring("a", 4321);
    }
    catch (WindowsError const& error)
    {
        if (statements == 2 && error.code().value() == 87)
            return 0;
        std::cerr << statements << " statements, then " << error.what() << '\n';
    }
    return 1;
}
