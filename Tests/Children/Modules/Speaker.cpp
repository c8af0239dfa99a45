// A module that logs and throws.
#include <Brindle/Vok/Error.h>

extern "C" __attribute__((visibility("default"))) void Speak()
{
    VOK_LOG(info, "speaking");
}

extern "C" __attribute__((visibility("default"))) void Throw()
{
    throw Brindle::Vok::ComError(E_FAIL, nullptr, 0, nullptr, "");
}
