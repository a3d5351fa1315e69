#include "Model/Wallpaper.h"

#include "Support/Testing.h"

#include <png.h>

#include <limits>

using namespace tdw;
using namespace tdw::simulator;

namespace {

/// The size of a picture that can be decoded to its last pixel; nothing for any other.
std::pair<unsigned, unsigned> decodedSize(const Data& bytes)
{
    png_image image {};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()) == 0)
        return {};
    image.format = PNG_FORMAT_RGB;
    std::vector<std::uint8_t> pixels(PNG_IMAGE_SIZE(image));
    if (png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr) == 0)
        return {};
    return { image.width, image.height };
}

} // namespace

TEST(Wallpaper, HasTheWidthThatIsAskedForAndTheShapeOfTheDevice)
{
    const std::tuple<const char*, double, std::pair<unsigned, unsigned>> rows[] = {
        { "iPhone", 390, { 390, 845 } },
        { "iPad", 300, { 300, 400 } },
        { "iPhone", 320.5, { 321, 695 } },
        { "iPhone", 0, { 393, 852 } },
        { "iPad", -5, { 768, 1024 } },
        { "iPhone", std::numeric_limits<double>::quiet_NaN(), { 393, 852 } },
        { "iPad", 0.1, { 1, 1 } },
        { "iPad", 1e300, { 4096, 5461 } },
    };
    for (const auto& [deviceClass, width, size] : rows)
        EXPECT_EQ(
            decodedSize(drawWallpaper({ "udid", deviceClass }, WallpaperPlace::LockScreen, width)),
            size)
            << deviceClass << " " << width;
}
