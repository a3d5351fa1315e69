#include "Output/Colour.h"

#include <unistd.h>

#include <cstdlib>

namespace tdw::cli {

namespace {

std::string_view escapeSequence(Colour colour)
{
    switch (colour) {
    case Colour::None:
        return "";
    case Colour::Bold:
        return "\x1b[1m";
    case Colour::Dim:
        return "\x1b[2m";
    case Colour::Red:
        return "\x1b[1;31m";
    case Colour::Yellow:
        return "\x1b[33m";
    case Colour::Green:
        return "\x1b[32m";
    }
    return "";
}

} // namespace

ColourMode colourModeFor(int descriptor)
{
    // NOLINTBEGIN(concurrency-mt-unsafe): nothing in this program changes its environment
    return colourMode(isatty(descriptor) == 1, std::getenv("NO_COLOR"), std::getenv("TERM"));
    // NOLINTEND(concurrency-mt-unsafe)
}

ColourMode colourMode(bool isTerminal, const char* noColourVariable, const char* termVariable)
{
    const bool isRefused = noColourVariable && *noColourVariable != '\0';
    const bool isAble
        = termVariable && *termVariable != '\0' && termVariable != std::string_view("dumb");
    return isTerminal && isAble && !isRefused ? ColourMode::On : ColourMode::Off;
}

std::string coloured(std::string_view text, Colour colour, ColourMode mode)
{
    if (mode == ColourMode::Off || colour == Colour::None)
        return std::string(text);
    return std::string(escapeSequence(colour)) + std::string(text) + "\x1b[0m";
}

} // namespace tdw::cli
