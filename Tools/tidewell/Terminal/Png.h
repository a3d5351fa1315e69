#pragma once

#include "Platform/Values/Result.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tdw::cli {

struct PictureSize {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
};

/// The size of a PNG image, after a look at whether it is one and whole: its chunks, from the
/// header to the end. Errors: `ExitStatus::Failure`
Result<PictureSize> checkPng(std::span<const std::byte> bytes);

/// A picture of at most 256 colours.
struct IndexedPicture {
    PictureSize size;
    /// Red, green and blue of each colour.
    std::vector<std::uint8_t> palette;
    /// Colours, line by line from the top left.
    std::vector<std::uint8_t> pixels;
};

/// Decodes a PNG image, with fewer colours where it has many. What a device sends is untrusted, so
/// an image that is larger than any screen is refused before anything is allocated for it.
/// Errors: `ExitStatus::Failure`
Result<IndexedPicture> decodePng(std::span<const std::byte> bytes);

/// The picture made smaller, with its proportions, where it is larger than a frame.
IndexedPicture shrunkInto(PictureSize frame, IndexedPicture picture);

} // namespace tdw::cli
