#pragma once

#include "Output/Colour.h"
#include "Platform/Value.h"
#include "tidewell-service/DevicePresence.h"

#include <string>

namespace tdw::cli {

/// An event as a line for people, with its line end and the local time.
std::string eventText(const service::DeviceEvent& event, Date date, ColourMode colours);

/// An event for programs.
Value eventValue(const service::DeviceEvent& event, Date date);

} // namespace tdw::cli
