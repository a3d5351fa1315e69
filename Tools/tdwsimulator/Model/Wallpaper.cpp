#include "Model/Wallpaper.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <span>

namespace tdw::simulator {

namespace {

constexpr std::uint32_t kWidth = 195;
constexpr std::uint32_t kHeight = 422;
constexpr std::size_t kColours = 256;
constexpr unsigned kFirstHillColour = 192;

void appendBigEndian(Data& data, std::uint32_t number)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        data.push_back(static_cast<std::byte>(number >> shift & 0xff));
}

std::uint32_t crc32(std::span<const std::byte> bytes)
{
    std::uint32_t crc = 0xffffffff;
    for (const std::byte byte : bytes) {
        crc ^= std::to_integer<std::uint32_t>(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xedb88320u : 0u);
    }
    return ~crc;
}

std::uint32_t adler32(std::span<const std::byte> bytes)
{
    std::uint32_t low = 1;
    std::uint32_t high = 0;
    for (const std::byte byte : bytes) {
        low = (low + std::to_integer<std::uint32_t>(byte)) % 65521;
        high = (high + low) % 65521;
    }
    return high << 16 | low;
}

void appendChunk(Data& image, std::string_view type, std::span<const std::byte> content)
{
    appendBigEndian(image, static_cast<std::uint32_t>(content.size()));
    const std::size_t start = image.size();
    const auto name = std::as_bytes(std::span(type));
    image.insert(image.end(), name.begin(), name.end());
    image.insert(image.end(), content.begin(), content.end());
    appendBigEndian(image, crc32(std::span(image).subspan(start)));
}

/// A zlib stream of stored blocks: no compression, and so no compression library.
Data stored(std::span<const std::byte> bytes)
{
    constexpr std::size_t kBlock = 65535;
    Data stream { std::byte { 0x78 }, std::byte { 0x01 } };
    for (std::size_t start = 0; start < bytes.size(); start += kBlock) {
        const auto block = bytes.subspan(start, std::min(kBlock, bytes.size() - start));
        const auto size = static_cast<std::uint16_t>(block.size());
        const bool isLast = start + kBlock >= bytes.size();
        stream.push_back(isLast ? std::byte { 1 } : std::byte { 0 });
        for (const std::uint16_t number : { size, static_cast<std::uint16_t>(~size) }) {
            stream.push_back(static_cast<std::byte>(number & 0xff));
            stream.push_back(static_cast<std::byte>(number >> 8));
        }
        stream.insert(stream.end(), block.begin(), block.end());
    }
    appendBigEndian(stream, adler32(bytes));
    return stream;
}

/// A smooth ramp of colours, shifted by the device's own hue; the hills are the dark end.
Data palette(std::uint32_t hue, WallpaperPlace place)
{
    constexpr double kTurn = 6.283185307179586;
    const double start
        = static_cast<double>(hue % 360) / 360 + (place == WallpaperPlace::LockScreen ? 0.3 : 0.0);
    Data colours;
    for (std::size_t i = 0; i < kColours; ++i) {
        const double along = static_cast<double>(i) / kColours;
        const double light = i < kFirstHillColour ? 0.95 - along / 2 : 0.45 - along / 4;
        for (const double phase : { 0.0, 1.0 / 3, 2.0 / 3 }) {
            const double wave = 0.5 + 0.5 * std::cos(kTurn * (start + along / 4 + phase));
            colours.push_back(static_cast<std::byte>(255 * light * (0.45 + 0.55 * wave)));
        }
    }
    return colours;
}

/// Where a hill begins; the nearer, the lower.
double crestOf(unsigned hill, std::uint32_t x, double shift)
{
    return kHeight * (0.62 + 0.12 * hill)
        - 26 * std::sin(x / (24.0 + 11 * hill) + shift * (hill + 1));
}

unsigned colourAt(std::uint32_t x, std::uint32_t y, double shift)
{
    for (unsigned hill = 3; hill > 0; --hill) {
        if (y > crestOf(hill - 1, x, shift))
            return kFirstHillColour + 16 * hill;
    }
    return y * (kFirstHillColour - 1) / kHeight;
}

} // namespace

Data drawWallpaper(std::string_view udid, WallpaperPlace place)
{
    const std::uint32_t seed = crc32(std::as_bytes(std::span(udid)));
    Data pixels;
    pixels.reserve((kWidth + 1) * kHeight);
    for (std::uint32_t y = 0; y < kHeight; ++y) {
        pixels.push_back(std::byte { 0 }); // each line says that it is not filtered
        for (std::uint32_t x = 0; x < kWidth; ++x)
            pixels.push_back(static_cast<std::byte>(colourAt(x, y, seed % 7)));
    }

    Data image;
    for (const unsigned byte : { 0x89u, 0x50u, 0x4eu, 0x47u, 0x0du, 0x0au, 0x1au, 0x0au })
        image.push_back(static_cast<std::byte>(byte));
    Data header;
    appendBigEndian(header, kWidth);
    appendBigEndian(header, kHeight);
    for (const unsigned byte : { 8u, 3u, 0u, 0u, 0u }) // eight bits, each a palette's index
        header.push_back(static_cast<std::byte>(byte));
    appendChunk(image, "IHDR", header);
    appendChunk(image, "PLTE", palette(seed, place));
    appendChunk(image, "IDAT", stored(pixels));
    appendChunk(image, "IEND", {});
    return image;
}

} // namespace tdw::simulator
