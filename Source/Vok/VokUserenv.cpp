#include <Brindle/Vok/VokUserenv.h>

namespace Brindle::Vok
{

using BlockOwner = HandleOwner<Detail::EnvironmentBlockHandleTraits>;

BlockOwner VokCreateEnvironmentBlock(void* token, bool inherit)
{
    void* block = nullptr;
    if (!CreateEnvironmentBlock(&block, token, inherit))
        VOK_THROW_LAST_ERROR("CreateEnvironmentBlock");
    return BlockOwner(block);
}

BlockOwner VokCreateEnvironmentBlock(void* token, bool inherit, Error& error)
{
    void* block = nullptr;
    if (!CreateEnvironmentBlock(&block, token, inherit))
        VOK_SET_LAST_ERROR(error, "CreateEnvironmentBlock");
    return BlockOwner(block);
}

} // namespace Brindle::Vok
