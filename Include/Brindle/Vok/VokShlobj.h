// The checked wrapper of SHGetKnownFolderPath.
//
//     std::wstring const path = VokSHGetKnownFolderPath(FOLDERID_LocalAppData, KF_FLAG_CREATE, nullptr);
//
// It may be called from any thread.
#pragma once

#include <Brindle/Vok/Error.h>
#include <Brindle/Vok/Platform.h>

#include <string>

namespace Brindle::Vok
{

/// The path of a known folder without a separator at its end. `flags` are the platform's KF_FLAG_ values; `token` says
/// whose folder it is (opened with TOKEN_QUERY and TOKEN_IMPERSONATE), and null means the user that the calling thread
/// acts as. Throws ComError with the platform's code: 0x80070002 for an unknown or missing folder, 0x80070006 for what
/// is no token. KF_FLAG_DONT_VERIFY tells where a missing folder would be, KF_FLAG_CREATE makes it.
VOK_EXPORT std::wstring VokSHGetKnownFolderPath(GUID const& folderId, unsigned long flags, void* token);

/// The same, and on failure it does NOT return: it assigns `error` and then reads through the null pointer that the
/// platform left, which ends the process by a fault. Call it only for folders that are known to be there, or call the
/// overload that throws.
VOK_EXPORT std::wstring VokSHGetKnownFolderPath(GUID const& folderId, Error& error, unsigned long flags, void* token);

} // namespace Brindle::Vok
