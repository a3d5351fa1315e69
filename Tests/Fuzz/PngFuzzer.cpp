#include "Fuzz.h"
#include "Terminal/Png.h"
#include "Terminal/TerminalGraphics.h"
#include "Terminal/TerminalPicture.h"

/// A terminal's answer to what it understands, and a device's picture for it.
void fuzz(std::span<const std::byte> bytes)
{
    (void)tdw::cli::graphicsIn(textOf(bytes));
    const auto size = tdw::cli::checkPng(bytes);
    auto picture = tdw::cli::decodePng(bytes);
    if (!picture)
        return;
    const auto [width, height] = picture->size;
    require(picture->pixels.size() == std::size_t { width } * height);
    require(!size || (size->width == width && size->height == height));
    constexpr tdw::cli::PictureSize kFrame { 64, 48 };
    const auto small = tdw::cli::shrunkInto(kFrame, *std::move(picture));
    require(small.size.width <= kFrame.width && small.size.height <= kFrame.height);
    (void)tdw::cli::sixelPicture(small);
    (void)tdw::cli::kittyPicture(bytes, small.size, tdw::cli::TerminalFrame { 80, 24, kFrame });
}
