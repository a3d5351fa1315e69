#pragma once

#include "Platform/Values/Error.h"
#include "Terminal/Colour.h"

#include <string>

namespace tdw::cli {

/// How much of an error is shown: the reasons, or also what caused it, down to the
/// failed library call.
enum class ErrorDetail { Usual, Everything };

inline ErrorDetail detailOf(bool isVerbose)
{
    return isVerbose ? ErrorDetail::Everything : ErrorDetail::Usual;
}

struct ErrorStyle {
    ColourMode colours = ColourMode::Off;
    ErrorDetail detail = ErrorDetail::Usual;
};

/// An error in words: "tidewell: " and the reasons on the first line, then, indented,
/// the detail, what can be done about it, and where everything is wanted, further causes and the
/// failed library call. Ends with a line end; nothing in it can act on a terminal but our own
/// colours.
std::string errorText(const Error& error, const ErrorStyle& style);

/// The same for what went wrong beside an answer: "tidewell: warning: …"
std::string warningText(const Error& warning, const ErrorStyle& style);

} // namespace tdw::cli
