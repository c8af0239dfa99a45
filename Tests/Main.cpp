// The tests' main: as in many hosts, the global locale is the environment's.
#include <gmock/gmock.h>

#include <locale>
#include <stdexcept>

int main(int argumentCount, char** arguments)
{
    try
    {
        std::locale::global(std::locale(""));
    }
    catch (std::runtime_error const&)
    {
        // The environment names a locale that this machine lacks; the classic one stays.
    }
    testing::InitGoogleMock(&argumentCount, arguments);
    return RUN_ALL_TESTS();
}
