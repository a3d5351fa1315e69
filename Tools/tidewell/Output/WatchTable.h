#pragma once

#include "Output/BatteryBar.h"
#include "Output/Colour.h"
#include "Platform/Value.h"

#include <string>

namespace tdw::cli {

/// Watches as a table for people.
/// @param entries those of the companion server
std::string watchTable(const Array& entries, Glyphs glyphs, ColourMode colours);

/// The same with the batteries alone.
/// @param entries those of the companion server or the companion battery server
std::string watchBatteryTable(const Array& entries, Glyphs glyphs, ColourMode colours);

} // namespace tdw::cli
