// Deleting what other handles may have open.
#pragma once

#include "Sharing.h"

namespace Brindle::Vok::Platform
{

class HostPath;
class Place;

/// Opens what is to be deleted and holds it against openings that don't share deletion. That needs a descriptor that
/// reads or writes: what its owner may do neither with is not deleted, as nobody could say whether it is in use.
/// kindFlags is O_DIRECTORY for a directory, otherwise 0. False with the last error set.
bool HoldForDeletion(HostPath const& path, Place const& place, int kindFlags, SharedDescriptor& held) noexcept;

} // namespace Brindle::Vok::Platform
