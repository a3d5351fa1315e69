#pragma once

#include <cstddef>
#include <vector>

namespace tdw {

/// Bytes with an owner.
using Data = std::vector<std::byte>;

} // namespace tdw
