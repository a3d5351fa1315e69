#include "Model/Wallpaper.h"

#include "Model/BitmapFont.h"

#include <png.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <vector>

namespace tdw::simulator {

namespace {

constexpr std::size_t kWidest = 4096;
constexpr std::size_t kColours = 256;
constexpr std::size_t kTextColour = kColours - 1;
constexpr std::size_t kShadowColour = kColours - 2;
constexpr std::size_t kSkyColours = kColours - 2;

/// Names that are longer are broken between words where they can be.
constexpr std::size_t kLongestLine = 16;
constexpr std::size_t kMostLines = 5;

struct Size {
    std::size_t width;
    std::size_t height;
};

/// The screen of a class of devices, in the points that its system counts by.
Size screenOf(std::string_view deviceClass)
{
    return deviceClass == "iPad" ? Size { 768, 1024 } : Size { 393, 852 };
}

Size sizeOf(std::string_view deviceClass, double widthPixels)
{
    const Size screen = screenOf(deviceClass);
    if (!std::isfinite(widthPixels) || widthPixels <= 0)
        return screen;
    const double bounded = std::clamp(widthPixels, 1.0, static_cast<double>(kWidest));
    const auto width = static_cast<std::size_t>(std::lround(bounded));
    return { width, std::max<std::size_t>(1, width * screen.height / screen.width) };
}

/// A picture whose pixels are indices of its palette.
struct Picture {
    Size size;
    std::vector<std::uint8_t> pixels;
    std::array<std::uint8_t, 3 * kColours> palette {};

    explicit Picture(Size extent)
        : size(extent)
        , pixels(extent.width * extent.height)
    {
    }

    void fill(std::size_t left, std::size_t top, std::size_t side, std::size_t colour)
    {
        const std::size_t right = std::min(left + side, size.width);
        for (std::size_t y = top; y < std::min(top + side, size.height); ++y) {
            for (std::size_t x = left; x < right; ++x)
                pixels[y * size.width + x] = static_cast<std::uint8_t>(colour);
        }
    }
};

/// From one hue at the top to a darker one at the bottom; the lock screen's differ from the home
/// screen's.
void mixColours(Picture& picture, std::string_view udid, WallpaperPlace place)
{
    constexpr double kTurn = 6.283185307179586;
    const unsigned seed
        = std::accumulate(udid.begin(), udid.end(), 0U, [](unsigned sum, char character) {
              return sum * 31 + static_cast<unsigned char>(character);
          });
    const double start = seed % 360 / 360.0 + (place == WallpaperPlace::LockScreen ? 0.4 : 0.0);
    for (std::size_t i = 0; i < kSkyColours; ++i) {
        const double along = static_cast<double>(i) / kSkyColours;
        for (std::size_t part = 0; part < 3; ++part) {
            const double phase = static_cast<double>(part) / 3;
            const double wave = 0.5 + 0.5 * std::cos(kTurn * (start + along / 5 + phase));
            picture.palette[3 * i + part]
                = static_cast<std::uint8_t>(255 * (0.95 - 0.6 * along) * (0.4 + 0.6 * wave));
        }
    }
    for (std::size_t part = 0; part < 3; ++part) {
        picture.palette[3 * kTextColour + part] = 255;
        picture.palette[3 * kShadowColour + part] = 24;
    }
}

void paintSky(Picture& picture)
{
    const auto [width, height] = picture.size;
    for (std::size_t y = 0; y < height; ++y) {
        const auto colour = static_cast<std::uint8_t>(y * kSkyColours / height);
        std::fill_n(picture.pixels.begin() + static_cast<std::ptrdiff_t>(y * width), width, colour);
    }
}

std::vector<std::vector<Glyph>> linesOf(std::string_view name)
{
    std::vector<std::vector<Glyph>> lines;
    while (!name.empty() && lines.size() < kMostLines) {
        std::size_t length = name.size();
        if (length > kLongestLine) {
            const std::size_t blank = name.rfind(' ', kLongestLine);
            length = std::min(blank == name.npos ? name.find(' ') : blank, length);
        }
        lines.push_back(glyphsOf(name.substr(0, length)));
        name.remove_prefix(std::min(length + 1, name.size()));
    }
    return lines;
}

/// One glyph of square dots over its own shadow.
void writeGlyph(
    Picture& picture, const Glyph& glyph, std::size_t left, std::size_t top, std::size_t dot)
{
    for (const std::size_t colour : { kShadowColour, kTextColour }) {
        const std::size_t shift = colour == kShadowColour ? (dot + 1) / 2 : 0;
        for (std::size_t i = 0; i < kGlyphHeight * kGlyphWidth; ++i) {
            const std::size_t row = i / kGlyphWidth;
            const std::size_t column = i % kGlyphWidth;
            if ((glyph[row] >> (kGlyphWidth - 1 - column) & 1) != 0)
                picture.fill(left + column * dot + shift, top + row * dot + shift, dot, colour);
        }
    }
}

/// Writes lines in the middle, as large as nine tenths of the width allow.
void writeLines(Picture& picture, const std::vector<std::vector<Glyph>>& lines)
{
    constexpr std::size_t kAdvance = kGlyphWidth + 1;
    std::size_t longest = 1;
    for (const auto& line : lines)
        longest = std::max(longest, line.size());
    const auto [width, height] = picture.size;
    const std::size_t dot
        = std::clamp<std::size_t>(width * 9 / 10 / (longest * kAdvance), 1, width / 64 + 1);
    const std::size_t lineHeight = dot * (kGlyphHeight + 3);
    std::size_t top = (height - std::min(height, lines.size() * lineHeight)) / 2;
    for (const auto& line : lines) {
        std::size_t left = (width - std::min(width, line.size() * kAdvance * dot)) / 2;
        for (const Glyph& glyph : line) {
            writeGlyph(picture, glyph, left, top, dot);
            left += kAdvance * dot;
        }
        top += lineHeight;
    }
}

Data encode(const Picture& picture)
{
    png_image image {};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(picture.size.width);
    image.height = static_cast<png_uint_32>(picture.size.height);
    image.format = PNG_FORMAT_RGB_COLORMAP;
    image.flags = PNG_IMAGE_FLAG_FAST;
    image.colormap_entries = kColours;
    // The largest size that there can be, because asking for the size compresses as well.
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    Data bytes(size);
    if (png_image_write_to_memory(
            &image, bytes.data(), &size, 0, picture.pixels.data(), 0, picture.palette.data())
        == 0)
        size = 0;
    bytes.resize(size);
    return bytes;
}

} // namespace

Data drawWallpaper(const WallpaperSubject& subject, WallpaperPlace place, double widthPixels)
{
    Picture picture(sizeOf(subject.deviceClass, widthPixels));
    mixColours(picture, subject.udid, place);
    paintSky(picture);
    writeLines(picture, linesOf(subject.name));
    return encode(picture);
}

} // namespace tdw::simulator
