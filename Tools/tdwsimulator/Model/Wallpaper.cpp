#include "Model/Wallpaper.h"

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

using Size = PictureSize;

/// The screen of a class of devices, in the points that its system counts by.
Size screenOf(std::string_view deviceClass)
{
    return deviceClass == "iPad" ? Size { 768, 1024 } : Size { 393, 852 };
}

Size sizeOf(const WallpaperSubject& subject, double widthPixels)
{
    const Size screen = subject.size ? *subject.size : screenOf(subject.deviceClass);
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
    for (std::size_t i = 0; i < kColours; ++i) {
        const double along = static_cast<double>(i) / kColours;
        for (std::size_t part = 0; part < 3; ++part) {
            const double phase = static_cast<double>(part) / 3;
            const double wave = 0.5 + 0.5 * std::cos(kTurn * (start + along / 5 + phase));
            picture.palette[3 * i + part]
                = static_cast<std::uint8_t>(255 * (0.95 - 0.6 * along) * (0.4 + 0.6 * wave));
        }
    }
}

void paintSky(Picture& picture)
{
    const auto [width, height] = picture.size;
    for (std::size_t y = 0; y < height; ++y) {
        const auto colour = static_cast<std::uint8_t>(y * kColours / height);
        std::fill_n(picture.pixels.begin() + static_cast<std::ptrdiff_t>(y * width), width, colour);
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
    Picture picture(sizeOf(subject, widthPixels));
    mixColours(picture, subject.udid, place);
    paintSky(picture);
    return encode(picture);
}

} // namespace tdw::simulator
