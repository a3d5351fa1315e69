#pragma once

#include "Platform/Values/Value.h"
#include "Terminal/Table.h"

#include <cstdint>
#include <string>

namespace tdw::cli {

/// Which characters a terminal is given.
enum class Glyphs { Ascii, Unicode };

/// What the user's locale can show.
Glyphs glyphsOfLocale();

/// A battery's charge as a bar with its percentage, coloured by how urgent it is. A charge that is
/// missing, or no percentage, is shown as unknown and never as a number.
/// @param battery the values of the battery server
/// @param cells how long the bar is; 0: the percentage alone
Cell batteryBar(const Value& battery, Glyphs glyphs, std::int64_t cells = 20);

/// What the battery is doing: "charging", "fully charged", …; empty where the device does not say.
std::string batteryState(const Value& battery);

} // namespace tdw::cli
