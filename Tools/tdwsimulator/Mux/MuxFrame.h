#pragma once

#include "Platform/Messages/FrameBuffer.h"
#include "Platform/Values/Data.h"
#include "Platform/Values/Result.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace tdw::simulator {

/// One message of the multiplexer's protocol.
///
///      0        4         8         12      16
///     | length | version | message | tag   | payload …     numbers are little-endian,
///     |<-------------- length --------------------->|      length counts the header too
struct MuxFrame {
    std::uint32_t version = 1;
    std::uint32_t message = 8;
    std::uint32_t tag = 0;
    Data payload;
    bool operator==(const MuxFrame&) const = default;
};

inline constexpr std::size_t kMuxHeaderSize = 16;

/// As much as the daemon itself takes.
inline constexpr std::size_t kMuxMaximumFrame = 0x10000;

/// The messages of the older form, which carry structures instead of property lists.
inline constexpr std::uint32_t kMuxResultMessage = 1;
inline constexpr std::uint32_t kMuxConnectMessage = 2;
inline constexpr std::uint32_t kMuxListenMessage = 3;
inline constexpr std::uint32_t kMuxAttachedMessage = 4;
inline constexpr std::uint32_t kMuxDetachedMessage = 5;
inline constexpr std::uint32_t kMuxPairedMessage = 6;
inline constexpr std::uint32_t kMuxPropertyListMessage = 8;

/// Cuts a stream of bytes into frames.
class MuxFrameDecoder {
public:
    void append(std::span<const std::byte> bytes) { m_buffer.append(bytes); }

    /// The next whole frame, none while bytes are missing, or an error when the length is shorter
    /// than a header or longer than `kMuxMaximumFrame`: nothing after that can be understood.
    Result<std::optional<MuxFrame>> next();

    /// Gives up what has arrived after the last frame.
    Data takeRest() { return m_buffer.takeAll(); }

private:
    FrameBuffer m_buffer;
};

Data encodeMuxFrame(const MuxFrame& frame);

/// Little-endian numbers of a structure; bytes that are missing read as zero.
std::uint32_t numberAt(std::span<const std::byte> bytes, std::size_t offset, std::size_t size);
void appendNumber(Data& data, std::uint32_t number, std::size_t size);

} // namespace tdw::simulator
