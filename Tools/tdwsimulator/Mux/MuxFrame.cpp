#include "Mux/MuxFrame.h"

#include "Model/SimulatorError.h"

#include <string>

namespace tdw::simulator {

namespace {

std::uint32_t littleEndian(std::span<const std::byte> bytes)
{
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < 4; ++i)
        number |= std::to_integer<std::uint32_t>(bytes[i]) << (8 * i);
    return number;
}

void appendLittleEndian(Data& data, std::uint32_t number)
{
    for (unsigned shift = 0; shift < 32; shift += 8)
        data.push_back(static_cast<std::byte>(number >> shift & 0xff));
}

} // namespace

Result<std::optional<MuxFrame>> MuxFrameDecoder::next()
{
    const std::span<const std::byte> bytes = m_buffer.bytes();
    if (bytes.size() < kMuxHeaderSize)
        return std::optional<MuxFrame>();
    const std::size_t length = littleEndian(bytes);
    if (length < kMuxHeaderSize || length > kMuxMaximumFrame)
        return simulatorError("a multiplexer frame of " + std::to_string(length) + " bytes");
    if (bytes.size() < length)
        return std::optional<MuxFrame>();
    MuxFrame frame;
    frame.version = littleEndian(bytes.subspan(4));
    frame.message = littleEndian(bytes.subspan(8));
    frame.tag = littleEndian(bytes.subspan(12));
    const auto payload = bytes.subspan(kMuxHeaderSize, length - kMuxHeaderSize);
    frame.payload.assign(payload.begin(), payload.end());
    m_buffer.drop(length);
    return std::optional(std::move(frame));
}

Data encodeMuxFrame(const MuxFrame& frame)
{
    Data data;
    data.reserve(kMuxHeaderSize + frame.payload.size());
    appendLittleEndian(data, static_cast<std::uint32_t>(kMuxHeaderSize + frame.payload.size()));
    appendLittleEndian(data, frame.version);
    appendLittleEndian(data, frame.message);
    appendLittleEndian(data, frame.tag);
    data.insert(data.end(), frame.payload.begin(), frame.payload.end());
    return data;
}

} // namespace tdw::simulator
