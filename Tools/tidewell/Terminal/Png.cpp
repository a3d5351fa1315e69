#include "Terminal/Png.h"

#include "Errors/CommandLineError.h"

#include <png.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace tdw::cli {

namespace {

constexpr std::string_view kSignature = "\x89PNG\r\n\x1a\n";
constexpr std::uint32_t kHeaderLength = 13;
constexpr std::uint32_t kLargestSide = 1 << 14;
constexpr std::uint64_t kMostPixels = 1 << 26;

/// Length and type before a chunk's content, and the checksum after it.
constexpr std::size_t kBeforeContent = 8;
constexpr std::size_t kAroundContent = 12;

Error unusable(const std::string& why)
{
    return commandLineError({ .status = ExitStatus::Failure,
        .reason = "The picture that came from the device " + why + "." });
}

std::uint32_t bigEndian(std::span<const std::byte> bytes, std::size_t offset)
{
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < 4; ++i)
        number = number << 8 | std::to_integer<std::uint32_t>(bytes[offset + i]);
    return number;
}

/// The decoder's state, freed with it.
struct Decoder {
    png_image image {};

    Decoder() { image.version = PNG_IMAGE_VERSION; }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
    Decoder(Decoder&&) = delete;
    Decoder& operator=(Decoder&&) = delete;
    ~Decoder() { png_image_free(&image); }
};

} // namespace

Result<PictureSize> checkPng(std::span<const std::byte> bytes)
{
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (!text.starts_with(kSignature))
        return unusable("is no PNG image");
    PictureSize size;
    for (std::size_t at = kSignature.size(); bytes.size() - at >= kAroundContent;) {
        const std::uint32_t length = bigEndian(bytes, at);
        const auto type = text.substr(at + 4, 4);
        if (length > bytes.size() - at - kAroundContent)
            break;
        if (at == kSignature.size()) {
            if (type != "IHDR" || length != kHeaderLength)
                break;
            size = { bigEndian(bytes, at + kBeforeContent),
                bigEndian(bytes, at + kBeforeContent + 4) };
        }
        at += kAroundContent + length;
        if (type == "IEND" && at == bytes.size() && size.width > 0 && size.height > 0)
            return size;
    }
    return unusable("is no whole PNG image");
}

Result<IndexedPicture> decodePng(std::span<const std::byte> bytes)
{
    Decoder decoder;
    png_image& image = decoder.image;
    if (png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()) == 0)
        return unusable(std::string("cannot be decoded: ") + image.message);
    if (image.width > kLargestSide || image.height > kLargestSide
        || std::uint64_t { image.width } * image.height > kMostPixels)
        return unusable("is too large to be shown");
    image.format = PNG_FORMAT_RGB_COLORMAP;
    IndexedPicture picture { { image.width, image.height }, {}, {} };
    picture.pixels.resize(PNG_IMAGE_SIZE(image));
    picture.palette.resize(PNG_IMAGE_COLORMAP_SIZE(image));
    const png_color black {};
    if (png_image_finish_read(&image, &black, picture.pixels.data(), 0, picture.palette.data())
        == 0)
        return unusable(std::string("cannot be decoded: ") + image.message);
    return picture;
}

IndexedPicture shrunkInto(PictureSize frame, IndexedPicture picture)
{
    const auto [width, height] = picture.size;
    const double scale = std::min({ 1.0, static_cast<double>(frame.width) / width,
        static_cast<double>(frame.height) / height });
    if (scale >= 1)
        return picture;
    const auto side = [&](std::uint32_t length) {
        return std::max(1U, static_cast<std::uint32_t>(length * scale));
    };
    IndexedPicture result { { side(width), side(height) }, std::move(picture.palette), {} };
    result.pixels.reserve(std::size_t { result.size.width } * result.size.height);
    for (std::uint32_t y = 0; y < result.size.height; ++y) {
        const std::size_t line = std::size_t { y } * height / result.size.height * width;
        for (std::uint32_t x = 0; x < result.size.width; ++x)
            result.pixels.push_back(
                picture.pixels[line + std::size_t { x } * width / result.size.width]);
    }
    return result;
}

} // namespace tdw::cli
