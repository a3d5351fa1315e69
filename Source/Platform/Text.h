#pragma once

#include "Platform/Export.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tdw {

/// The length of the UTF-8 sequence at the start of `text`, or none where there is no valid one
/// (overlong forms, surrogates and code points over U+10FFFF included).
std::optional<std::size_t> utf8SequenceLength(std::string_view text);

/// Whether all of `text` is UTF-8.
TDW_EXPORT bool isValidUtf8(std::string_view text);

/// `text` with each byte that belongs to no valid UTF-8 sequence replaced by U+FFFD. Device text is
/// untrusted; this makes it fit for everything that takes UTF-8.
TDW_EXPORT std::string withInvalidUtf8Replaced(std::string_view text);

/// `text` made safe to show on a terminal: control characters (C0, DEL and C1) as escapes such as
/// "\n" and "\u009b", invalid UTF-8 as U+FFFD, and the bidirectional overrides, which can make a
/// line read as something else, as escapes too.
TDW_EXPORT std::string withControlCharactersEscaped(std::string_view text);

} // namespace tdw
