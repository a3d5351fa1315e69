#pragma once

#include "Platform/Messages/FrameBuffer.h"
#include "Platform/Values/Data.h"
#include "Platform/Values/Result.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace tdw {

/// The largest payload of a frame: several times what the largest picture of a device takes.
inline constexpr std::size_t kMaximumFramePayload = std::size_t { 64 } << 20;

/// What precedes each payload on the wire:
///
///      0        4
///     | length | payload …      length: of the payload, an unsigned 32-bit number, big-endian
inline constexpr std::size_t kFrameHeaderSize = 4;

/// Puts a payload behind its length.
/// Errors: `kPosixErrorDomain`, EMSGSIZE, with the payload's size.
Result<Data> encodeFrame(std::span<const std::byte> payload);

/// Cuts a stream of bytes into payloads. Memory grows with the bytes that arrive, never with the
/// length that a header announces.
class FrameDecoder {
public:
    void append(std::span<const std::byte> bytes) { m_buffer.append(bytes); }

    /// The next whole payload, valid until the next call; none while bytes are missing.
    /// Errors: EMSGSIZE for a length over the limit; nothing after that can be understood.
    Result<std::optional<std::span<const std::byte>>> next();

private:
    FrameBuffer m_buffer;
};

} // namespace tdw
