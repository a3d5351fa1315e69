#pragma once

#include "Model/Simulation.h"

#include <cstdint>

namespace tdw {
class Dictionary;
} // namespace tdw

namespace tdw::simulator {

/// The multiplexer's message for an attached device: its record is under "Properties".
Dictionary attachedMessage(const Attachment& attachment, AddressLayout layout);

/// "Detached" and "Paired" messages.
Dictionary deviceMessage(std::string_view type, std::uint32_t identifier);

/// The result codes that clients act upon.
enum class MuxResult : std::uint32_t {
    Ok = 0,
    BadCommand = 1,
    BadDevice = 2,
    /// A record that cannot be written gets this as well.
    NoSuchRecord = 2,
    ConnectionRefused = 3,
    BadVersion = 6,
    InvalidArgument = 22,
};

Dictionary resultMessage(MuxResult result);

} // namespace tdw::simulator
