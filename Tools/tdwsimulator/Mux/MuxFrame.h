#pragma once

#include "Platform/FrameBuffer.h"
#include "Platform/Result.h"
#include "Platform/Value.h"

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

inline constexpr std::uint32_t kMuxResultMessage = 1;
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

} // namespace tdw::simulator
