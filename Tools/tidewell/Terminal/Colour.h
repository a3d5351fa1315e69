#pragma once

#include <string>
#include <string_view>

namespace tdw::cli {

/// Colours that can be read on a black and on a white ground.
enum class Colour { None, Bold, Dim, Red, Magenta, Green };

enum class ColourMode { Off, On };

/// Whether `descriptor` is a terminal that understands escape sequences.
bool isCapableTerminal(int descriptor);

/// The rule behind it, with the value of TERM (null: not set).
bool isCapableTerminal(bool isTerminal, const char* termVariable);

/// Whether what goes to a terminal is coloured.
/// @param noColourVariable the value of NO_COLOR (null: not set)
ColourMode colourMode(bool isCapableTerminal, const char* noColourVariable);

/// `text` in a colour, or as it is.
std::string coloured(std::string_view text, Colour colour, ColourMode mode);

} // namespace tdw::cli
