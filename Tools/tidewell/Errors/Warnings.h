#pragma once

#include "Platform/Values/Error.h"
#include "Platform/Values/Value.h"

#include <vector>

namespace tdw::cli {

/// The warnings of a payload, as errors; none where it has none.
std::vector<Error> warningsIn(const Value& payload);

} // namespace tdw::cli
