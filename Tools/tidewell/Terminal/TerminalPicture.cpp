#include "Terminal/TerminalPicture.h"

#include "Terminal/Encoding.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace tdw::cli {

namespace {

constexpr std::size_t kBandHeight = 6;

/// Percent, as sixel counts colours.
unsigned percent(std::uint8_t part)
{
    return (part * 100U + 127) / 255;
}

void appendRun(std::string& text, char sixel, std::size_t length)
{
    constexpr std::size_t kWorthCounting = 4;
    if (length >= kWorthCounting)
        text += "!" + std::to_string(length) + sixel;
    else
        text.append(length, sixel);
}

/// One colour's dots of six lines, from left to right.
void appendColour(
    std::string& text, const IndexedPicture& picture, std::size_t top, std::uint8_t colour)
{
    const std::size_t width = picture.size.width;
    const std::size_t bottom = std::min<std::size_t>(top + kBandHeight, picture.size.height);
    char current = 0;
    std::size_t length = 0;
    for (std::size_t x = 0; x < width; ++x) {
        unsigned dots = 0;
        for (std::size_t y = top; y < bottom; ++y)
            dots |= (picture.pixels[y * width + x] == colour ? 1U : 0U) << (y - top);
        const char sixel = static_cast<char>('?' + dots);
        if (sixel != current) {
            appendRun(text, current, length);
            current = sixel;
            length = 0;
        }
        ++length;
    }
    appendRun(text, current, length);
}

} // namespace

std::string kittyPicture(
    std::span<const std::byte> png, PictureSize size, const TerminalFrame& frame)
{
    constexpr std::size_t kChunk = 4096;
    const std::string data = base64(png);
    // The picture is a PNG, to be shown now, and the terminal is to answer nothing. It keeps the
    // proportions where rows or columns alone are given.
    std::string control = "a=T,f=100,q=2,";
    const double tooHigh = static_cast<double>(size.height) / frame.pixels.height;
    const double tooWide = static_cast<double>(size.width) / frame.pixels.width;
    if (tooHigh > 1 && tooHigh >= tooWide)
        control += "r=" + std::to_string(frame.rows) + ",";
    else if (tooWide > 1)
        control += "c=" + std::to_string(frame.columns) + ",";
    std::string text;
    for (std::size_t at = 0; at < data.size(); at += kChunk) {
        const bool isLast = at + kChunk >= data.size();
        text
            += "\x1b_G" + control + (isLast ? "m=0;" : "m=1;") + data.substr(at, kChunk) + "\x1b\\";
        control.clear();
    }
    return text + "\n";
}

std::string sixelPicture(const IndexedPicture& picture)
{
    const auto [width, height] = picture.size;
    // Square dots, and what no colour touches stays as it is.
    std::string text = "\x1bP0;1;0q\"1;1;" + std::to_string(width) + ";" + std::to_string(height);
    for (std::size_t i = 0; i * 3 + 2 < picture.palette.size(); ++i) {
        text += "#" + std::to_string(i) + ";2";
        for (std::size_t part = 0; part < 3; ++part)
            text += ";" + std::to_string(percent(picture.palette[3 * i + part]));
    }
    for (std::size_t top = 0; top < height; top += kBandHeight) {
        const std::size_t end = std::min<std::size_t>(top + kBandHeight, height) * width;
        std::array<bool, 256> isUsed {};
        for (std::size_t i = top * width; i < end; ++i)
            isUsed[picture.pixels[i]] = true;
        for (std::size_t colour = 0; colour < isUsed.size(); ++colour) {
            if (!isUsed[colour])
                continue;
            text += "#" + std::to_string(colour);
            appendColour(text, picture, top, static_cast<std::uint8_t>(colour));
            text += '$';
        }
        text += '-';
    }
    return text + "\x1b\\\n";
}

} // namespace tdw::cli
