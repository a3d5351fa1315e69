#pragma once

#include <string_view>

namespace tdw {

/// Writes "[ERROR] (file:line) message" and a line end to standard error, in one piece. The place
/// is the caller's own, relative to the repository.
///
/// `std::source_location` would say the same, but clang 14 does not know it.
void reportError(
    std::string_view message, const char* file = __builtin_FILE(), int line = __builtin_LINE());

/// Writes a line and a line end to standard error, in one piece.
void reportLine(std::string_view line);

/// Writes "WARN: message" and a line end to standard error, in one piece.
void reportWarning(std::string_view message);

} // namespace tdw
