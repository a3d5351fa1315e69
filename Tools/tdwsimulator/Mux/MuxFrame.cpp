#include "Mux/MuxFrame.h"

#include "Model/SimulatorError.h"

#include <string>

namespace tdw::simulator {

std::uint32_t numberAt(std::span<const std::byte> bytes, std::size_t offset, std::size_t size)
{
    std::uint32_t number = 0;
    for (std::size_t i = size; i > 0; --i) {
        const std::size_t position = offset + i - 1;
        number = number << 8
            | (position < bytes.size() ? std::to_integer<std::uint32_t>(bytes[position]) : 0);
    }
    return number;
}

void appendNumber(Data& data, std::uint32_t number, std::size_t size)
{
    for (std::size_t i = 0; i < size; ++i)
        data.push_back(static_cast<std::byte>(number >> (8 * i) & 0xff));
}

Result<std::optional<MuxFrame>> MuxFrameDecoder::next()
{
    const std::span<const std::byte> bytes = m_buffer.bytes();
    if (bytes.size() < kMuxHeaderSize)
        return std::optional<MuxFrame>();
    const std::size_t length = numberAt(bytes, 0, 4);
    if (length < kMuxHeaderSize || length > kMuxMaximumFrame)
        return simulatorError("a multiplexer frame of " + std::to_string(length) + " bytes");
    if (bytes.size() < length)
        return std::optional<MuxFrame>();
    MuxFrame frame;
    frame.version = numberAt(bytes, 4, 4);
    frame.message = numberAt(bytes, 8, 4);
    frame.tag = numberAt(bytes, 12, 4);
    const auto payload = bytes.subspan(kMuxHeaderSize, length - kMuxHeaderSize);
    frame.payload.assign(payload.begin(), payload.end());
    m_buffer.drop(length);
    return std::optional(std::move(frame));
}

Data encodeMuxFrame(const MuxFrame& frame)
{
    Data data;
    data.reserve(kMuxHeaderSize + frame.payload.size());
    appendNumber(data, static_cast<std::uint32_t>(kMuxHeaderSize + frame.payload.size()), 4);
    appendNumber(data, frame.version, 4);
    appendNumber(data, frame.message, 4);
    appendNumber(data, frame.tag, 4);
    data.insert(data.end(), frame.payload.begin(), frame.payload.end());
    return data;
}

} // namespace tdw::simulator
