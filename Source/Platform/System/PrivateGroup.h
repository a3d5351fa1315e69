#pragma once

#include <sys/types.h>

namespace tdw {

/// Whether `owner` is the one member of `group`, so that what the group may do only its owner may.
/// Debian gives each user such a group. A group without members is none: a program may run with it.
///
/// Asks the system's user database, which may take a while where that is on a network.
bool isGroupOfOneUser(gid_t group, uid_t owner);

} // namespace tdw
