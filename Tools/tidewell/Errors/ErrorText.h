#pragma once

#include "Output/Colour.h"
#include "Platform/Error.h"

#include <string>

namespace tdw::cli {

/// An error in words for people: "tidewell: " and the reasons on the first line, then, indented,
/// further causes, the detail, the failed library call, and what can be done about it. Ends with a
/// line end; nothing in it can act on a terminal but our own colours.
std::string errorText(const Error& error, ColourMode colours);

/// The same for what went wrong beside an answer: "tidewell: warning: …"
std::string warningText(const Error& warning, ColourMode colours);

} // namespace tdw::cli
