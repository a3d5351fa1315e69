#pragma once

#include <sys/resource.h>

#include <cstddef>
#include <optional>

namespace tdw {

/// Raises the number of descriptors that this process may have as far as the system allows.
/// Children that are launched from then on keep the number that it was: some programs close every
/// descriptor up to it one by one. To be called before there are other threads.
void raiseDescriptorLimit();

/// How many descriptors this process may have.
std::size_t descriptorLimit();

/// What children get instead of this process's own limit; none before `raiseDescriptorLimit`.
std::optional<rlimit> descriptorLimitOfChildren();

} // namespace tdw
