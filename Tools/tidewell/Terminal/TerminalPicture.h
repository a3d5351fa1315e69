#pragma once

#include "Terminal/Png.h"

#include <cstddef>
#include <span>
#include <string>

namespace tdw::cli {

/// How much of a terminal a picture may take.
struct TerminalFrame {
    unsigned columns = 0;
    unsigned rows = 0;
    PictureSize pixels;
};

/// A PNG image for terminals with kitty's graphics protocol, which decode it themselves.
/// @param size the image's own
std::string kittyPicture(
    std::span<const std::byte> png, PictureSize size, const TerminalFrame& frame);

/// A picture for terminals with sixel graphics.
std::string sixelPicture(const IndexedPicture& picture);

} // namespace tdw::cli
