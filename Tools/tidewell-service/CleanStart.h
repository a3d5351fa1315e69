#pragma once

#include <string>
#include <utility>
#include <vector>

namespace tdw::service {

/// The variables that a service which is started for a client has, and its servers after it: the
/// few of the client's that name the user and the places of things, and a search path of its own.
std::vector<std::pair<std::string, std::string>> cleanEnvironment();

/// Gives this process, and what it starts, what a service has at a login: limits, niceness,
/// scheduling, processors and file mode mask, none of them the client's. Hard limits and niceness
/// stay as they are where the system does not let this user undo them.
void resetInheritedLimits();

} // namespace tdw::service
