#include <Brindle/Vok/Log.h>

using namespace Brindle::Vok;

bool AsksForErrors()
{
#ifdef MUST_NOT_COMPILE
    return Detail::ShouldLog(1);
#else
    return Detail::ShouldLog(VokLogSeverity::error);
#endif
}
