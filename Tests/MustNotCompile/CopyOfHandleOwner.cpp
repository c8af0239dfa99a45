#include <Brindle/Vok/HandleOwner.h>

using namespace Brindle::Vok;

HandleOwner<Detail::NullHandleTraits> Pass(HandleOwner<Detail::NullHandleTraits>& owner)
{
#ifdef MUST_NOT_COMPILE
    return HandleOwner<Detail::NullHandleTraits>(owner);
#else
    return HandleOwner<Detail::NullHandleTraits>(std::move(owner));
#endif
}
