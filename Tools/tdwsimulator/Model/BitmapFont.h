#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace tdw::simulator {

/// A glyph of dots: rows from the top, each with its leftmost dot in bit 4.
using Glyph = std::array<std::uint8_t, 7>;

inline constexpr std::size_t kGlyphWidth = 5;
inline constexpr std::size_t kGlyphHeight = std::tuple_size_v<Glyph>;

/// The glyphs of a UTF-8 text: of printable ASCII, and a box for any other character. The
/// typographic apostrophe, which is in most devices' names, looks like the plain one.
std::vector<Glyph> glyphsOf(std::string_view text);

} // namespace tdw::simulator
