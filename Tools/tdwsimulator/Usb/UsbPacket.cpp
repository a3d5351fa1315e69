#include "Usb/UsbPacket.h"

namespace tdw::simulator {

namespace {

constexpr std::size_t kPlainHeader = 8;
constexpr std::size_t kNumberedHeader = 16;
constexpr std::size_t kSegmentHeader = 20;
constexpr std::uint32_t kMagic = 0xfeedface;

std::uint32_t bigEndian(std::span<const std::byte> bytes, std::size_t offset, std::size_t size)
{
    std::uint32_t number = 0;
    for (const std::byte byte : bytes.subspan(offset, size))
        number = number << 8 | std::to_integer<std::uint32_t>(byte);
    return number;
}

void append(Data& data, std::uint32_t number, unsigned size)
{
    for (unsigned shift = size * 8; shift > 0; shift -= 8)
        data.push_back(static_cast<std::byte>(number >> (shift - 8) & 0xff));
}

} // namespace

std::optional<UsbPacket> decodeUsbPacket(std::span<const std::byte> bytes, bool isNumbered)
{
    const std::size_t header = isNumbered ? kNumberedHeader : kPlainHeader;
    if (bytes.size() < header || bigEndian(bytes, 4, 4) != bytes.size())
        return std::nullopt;
    if (isNumbered && bigEndian(bytes, 8, 4) != kMagic)
        return std::nullopt;
    const auto content = bytes.subspan(header);
    return UsbPacket { static_cast<UsbProtocol>(bigEndian(bytes, 0, 4)),
        Data(content.begin(), content.end()) };
}

Data encodeUsbPacket(const UsbPacket& packet, const std::optional<UsbCounters>& counters)
{
    const std::size_t header = counters ? kNumberedHeader : kPlainHeader;
    Data data;
    data.reserve(header + packet.content.size());
    append(data, static_cast<std::uint32_t>(packet.protocol), 4);
    append(data, static_cast<std::uint32_t>(header + packet.content.size()), 4);
    if (counters) {
        append(data, kMagic, 4);
        append(data, counters->sent, 2);
        append(data, counters->seen, 2);
    }
    data.insert(data.end(), packet.content.begin(), packet.content.end());
    return data;
}

std::optional<UsbSegment> decodeUsbSegment(std::span<const std::byte> content)
{
    if (content.size() < kSegmentHeader)
        return std::nullopt;
    const std::size_t header = bigEndian(content, 12, 1) / 16 * 4;
    if (header < kSegmentHeader || header > content.size())
        return std::nullopt;
    const auto payload = content.subspan(header);
    return UsbSegment { static_cast<std::uint16_t>(bigEndian(content, 0, 2)),
        static_cast<std::uint16_t>(bigEndian(content, 2, 2)), bigEndian(content, 4, 4),
        bigEndian(content, 8, 4), static_cast<std::uint8_t>(bigEndian(content, 13, 1)),
        static_cast<std::uint16_t>(bigEndian(content, 14, 2)),
        Data(payload.begin(), payload.end()) };
}

Data encodeUsbSegment(const UsbSegment& segment)
{
    Data data;
    data.reserve(kSegmentHeader + segment.payload.size());
    append(data, segment.source, 2);
    append(data, segment.destination, 2);
    append(data, segment.sequence, 4);
    append(data, segment.acknowledged, 4);
    append(data, kSegmentHeader / 4 << 4, 1);
    append(data, segment.flags, 1);
    append(data, segment.window, 2);
    append(data, 0, 4); // no checksum, no urgent data: the bus sees to it
    data.insert(data.end(), segment.payload.begin(), segment.payload.end());
    return data;
}

} // namespace tdw::simulator
