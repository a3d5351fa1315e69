#pragma once

#include "Platform/Values/Value.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::cli {

/// A request in the multiplexer's protocol:
///
///     length of all | version 1 | message type 8 | tag     four times 32 bits, little-endian
///     XML property list
Data multiplexerRequest(Dictionary body);

/// Asks which devices there are.
Data deviceListRequest();

/// Asks for what this computer holds of its pairing with a device.
Data pairRecordRequest(std::string_view udid);

/// Takes one reply apart, byte by byte. Knows no socket.
class MultiplexerReply {
public:
    enum class State {
        /// More bytes are needed.
        Incomplete,
        /// The reply is there.
        Complete,
        /// It is no reply of a multiplexer.
        Malformed,
    };

    void append(std::span<const std::byte> bytes);
    State state() const { return m_state; }

    /// The reply, once it is complete.
    const Dictionary& body() const { return m_body; }

private:
    State examine();

    Data m_bytes;
    Dictionary m_body;
    State m_state = State::Incomplete;
};

/// The UDIDs in a device list, or none where the reply is no list.
std::optional<std::vector<std::string>> udidsIn(const Dictionary& reply);

/// Whether a reply holds a pairing that the device libraries can use. Where it does not, they pair,
/// and make the device ask its user.
bool isUsablePairRecord(const Dictionary& reply);

} // namespace tdw::cli
