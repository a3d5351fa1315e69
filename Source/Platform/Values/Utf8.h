#pragma once

#include "Platform/Export.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tdw {

/// The length of the UTF-8 sequence at the start of `text`, or none where there is no valid one
/// (overlong forms, surrogates and code points over U+10FFFF included).
TDW_EXPORT std::optional<std::size_t> utf8SequenceLength(std::string_view text);

/// Whether all of `text` is UTF-8.
TDW_EXPORT bool isValidUtf8(std::string_view text);

/// `text` with each byte that belongs to no valid UTF-8 sequence replaced by U+FFFD. Device text is
/// untrusted; this makes it fit for everything that takes UTF-8.
TDW_EXPORT std::string withInvalidUtf8Replaced(std::string_view text);

/// Appends `codePoint` in UTF-8; U+FFFD for what is no character (surrogates and beyond U+10FFFF).
TDW_EXPORT void appendUtf8(std::string& text, std::uint32_t codePoint);

/// Whether a terminal shows nothing for `codePoint`, or something other than a character: control
/// characters (C0, DEL, C1), line and paragraph separators, what changes the reading direction, and
/// what takes no room (zero-width spaces, the byte order mark, tags, variation selectors). Text
/// that holds one can read as something else than it is.
///
/// The joiners U+200C and U+200D and the emoji style U+FE0F are left out: names are written with
/// them.
TDW_EXPORT bool isInvisible(std::uint32_t codePoint);

/// `text` made safe to show on a terminal: what `isInvisible` names as escapes such as "\n",
/// "\u009b" and "\u{e0041}", and invalid UTF-8 as U+FFFD.
TDW_EXPORT std::string withControlCharactersEscaped(std::string_view text);

} // namespace tdw
