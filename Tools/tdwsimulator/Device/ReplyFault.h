#pragma once

#include "Model/Fault.h"
#include "Platform/Values/Value.h"

namespace tdw::simulator {

/// Applies those faults that strike what a reply says. Other faults leave it as it is.
Value withFault(const Fault& fault, const Value& reply);

} // namespace tdw::simulator
