#include "Terminal/Colour.h"

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
    case Colour::Magenta:
        return "\x1b[35m";
    case Colour::Green:
        return "\x1b[32m";
    }
    return "";
}

} // namespace

bool isCapableTerminal(int descriptor)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing in this program changes its environment
    return isCapableTerminal(isatty(descriptor) == 1, std::getenv("TERM"));
}

bool isCapableTerminal(bool isTerminal, const char* termVariable)
{
    const std::string_view term = termVariable ? termVariable : "";
    return isTerminal && !term.empty() && term != "dumb";
}

ColourMode colourMode(bool isCapableTerminal, const char* noColourVariable)
{
    const bool isRefused = noColourVariable && *noColourVariable != '\0';
    return isCapableTerminal && !isRefused ? ColourMode::On : ColourMode::Off;
}

std::string coloured(std::string_view text, Colour colour, ColourMode mode)
{
    if (mode == ColourMode::Off || colour == Colour::None)
        return std::string(text);
    return std::string(escapeSequence(colour)) + std::string(text) + "\x1b[0m";
}

} // namespace tdw::cli
