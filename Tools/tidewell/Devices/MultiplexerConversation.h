#pragma once

#include "Platform/Value.h"

#include <cstddef>
#include <span>

namespace tdw::cli {

/// The request for the device list in the multiplexer's protocol:
///
///     length of all | version 1 | message type 8 | tag     four times 32 bits, little-endian
///     XML property list
Data deviceListRequest();

/// Recognises the reply to that request, byte by byte. Knows no socket.
class MultiplexerReply {
public:
    enum class State {
        /// More bytes are needed.
        Incomplete,
        /// It is a device list, be it empty.
        DeviceList,
        /// It is something else.
        Other,
    };

    void append(std::span<const std::byte> bytes);
    State state() const { return m_state; }

private:
    State examine() const;

    Data m_bytes;
    State m_state = State::Incomplete;
};

} // namespace tdw::cli
