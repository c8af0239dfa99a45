// The checked wrapper of CreateEnvironmentBlock.
//
//     auto const block = VokCreateEnvironmentBlock(token, false);
//     auto const* entry = static_cast<wchar_t const*>(block.Get());       // "NAME=value", NUL, …, NUL
//
// It may be called from any thread.
#pragma once

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/HandleOwner.h>
#include <Brindle/Vok/Platform.h>

namespace Brindle::Vok
{

/// A block of variables: the system's, those of the token's user, and with `inherit` the process's below them. A null
/// `token` leaves the user's out; any other was opened with TOKEN_QUERY and TOKEN_DUPLICATE. Throws WindowsError:
/// ERROR_INVALID_HANDLE or ERROR_ACCESS_DENIED for the token, ERROR_NO_SUCH_USER for one whose user the host doesn't
/// know.
VOK_EXPORT HandleOwner<Detail::EnvironmentBlockHandleTraits> VokCreateEnvironmentBlock(void* token, bool inherit);
/// The same; on failure it assigns that error and returns an owner that holds null.
VOK_EXPORT HandleOwner<Detail::EnvironmentBlockHandleTraits> VokCreateEnvironmentBlock(void* token, bool inherit,
                                                                                       Error& error);

} // namespace Brindle::Vok
