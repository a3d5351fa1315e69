#pragma once

#include "Platform/Messages/FrameBuffer.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

#include <cstddef>
#include <optional>
#include <span>

namespace tdw::simulator {

/// A message of a device's services: a property list after its length as a 32-bit big-endian
/// number, which does not count itself.
inline constexpr std::size_t kPropertyListHeaderSize = 4;

/// Longer requests than this are rejected.
inline constexpr std::size_t kPropertyListMaximumFrame = 1u << 20;

enum class PropertyListFormat { Xml, Binary };

/// Cuts a stream of bytes into property lists.
class PropertyListFrameDecoder {
public:
    void append(std::span<const std::byte> bytes) { m_buffer.append(bytes); }

    /// The next whole message, none while bytes are missing, or an error: the length is over
    /// `kPropertyListMaximumFrame`, or the content is no property list.
    Result<std::optional<Value>> next();

    /// Gives up what has arrived after the last message.
    Data takeRest() { return m_buffer.takeAll(); }

private:
    FrameBuffer m_buffer;
};

/// Encodes a message with its length. Errors: what cannot be encoded.
Result<Data> encodePropertyListFrame(const Value& message, PropertyListFormat format);

} // namespace tdw::simulator
