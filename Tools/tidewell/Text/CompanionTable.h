#pragma once

#include "Platform/Values/Value.h"
#include "Terminal/Colour.h"
#include "Text/BatteryBar.h"

#include <string>

namespace tdw::cli {

/// Watches as a table.
/// @param entries those of the companion server
std::string companionTable(const Array& entries, Glyphs glyphs, ColourMode colours);

/// The same with the batteries alone.
/// @param entries those of the companion server or the companion battery server
std::string companionBatteryTable(const Array& entries, Glyphs glyphs, ColourMode colours);

} // namespace tdw::cli
