#pragma once

#include <cstddef>
#include <string_view>

namespace tdw::cli {

/// How many columns UTF-8 text takes on a terminal: two for East Asian wide characters and emoji,
/// none for combining marks. The user's locale does not matter.
std::size_t displayWidth(std::string_view text);

} // namespace tdw::cli
