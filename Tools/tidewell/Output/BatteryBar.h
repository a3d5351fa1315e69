#pragma once

#include "Output/Table.h"
#include "Platform/Value.h"

namespace tdw::cli {

/// Which characters a terminal is given.
enum class Glyphs { Ascii, Unicode };

/// What the user's locale can show.
Glyphs glyphsOfLocale();

/// A battery's charge as a bar with its percentage, coloured by how urgent it is. A charge that is
/// missing, or no percentage, is said to be unknown: it is never shown as a number.
/// @param battery the values of the battery server
Cell batteryBar(const Value& battery, Glyphs glyphs);

/// What the battery is doing: "charging", "fully charged", …; empty where the device does not say.
std::string batteryState(const Value& battery);

} // namespace tdw::cli
