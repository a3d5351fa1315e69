#pragma once

#include "Model/Json.h"
#include "Platform/Values/Value.h"
#include "Recording/Replacement.h"

#include <vector>

namespace tdw::simulator {

/// Makes a scenario of what devices told (`Recording/Reading.h`), each with its "Connections".
///
/// Values that the allow list names stay as they are; all others are replaced. A refusal, an ended
/// connection and a reply without its value become faults, so that the simulator answers as the
/// device did.
Json recordedScenario(const std::vector<Dictionary>& readings, Replacement& replacement);

} // namespace tdw::simulator
