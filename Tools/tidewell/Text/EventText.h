#pragma once

#include "Interfaces/TDWDeviceEvent.h"
#include "Platform/Values/Value.h"
#include "Terminal/Colour.h"

#include <string>

namespace tdw::cli {

/// An event as a line of text, with its line end and the local time.
std::string eventText(const DeviceEvent& event, Date date, ColourMode colours);

/// An event for programs.
Value eventValue(const DeviceEvent& event, Date date);

} // namespace tdw::cli
