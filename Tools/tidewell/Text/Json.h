#pragma once

#include <string>

namespace tdw {
class Value;
} // namespace tdw

namespace tdw::cli {

/// A value as one line of JSON with its line end, in ASCII alone, so that it is safe on a terminal
/// and in any locale.
///
/// Dictionaries keep the order of their keys. Integers that a double cannot hold exactly (beyond
/// 2^53 - 1 either way) become strings, since many readers would round them without a word. Dates
/// become ISO 8601 texts in UTC, data becomes base64, and errors become error dictionaries. Bytes
/// that are no UTF-8 become U+FFFD.
std::string jsonLine(const Value& value);

} // namespace tdw::cli
