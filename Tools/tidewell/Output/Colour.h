#pragma once

#include <string>
#include <string_view>

namespace tdw::cli {

enum class Colour { None, Bold, Dim, Red, Yellow, Green };

enum class ColourMode { Off, On };

/// Whether output to `descriptor` is coloured: on a terminal that can show it, unless the user said
/// no (NO_COLOR, or TERM=dumb).
ColourMode colourModeFor(int descriptor);

/// The rule behind it. Null: the variable is not set.
ColourMode colourMode(bool isTerminal, const char* noColourVariable, const char* termVariable);

/// `text` in a colour, or as it is.
std::string coloured(std::string_view text, Colour colour, ColourMode mode);

} // namespace tdw::cli
