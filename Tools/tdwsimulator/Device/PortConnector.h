#pragma once

#include "Device/Channel.h"
#include "Model/Simulation.h"

#include <cstdint>
#include <memory>
#include <span>

namespace tdw::simulator {

/// Connects the multiplexer and the virtual bus to the services of devices.
class PortConnector {
public:
    PortConnector() = default;
    PortConnector(const PortConnector&) = delete;
    PortConnector& operator=(const PortConnector&) = delete;
    virtual ~PortConnector() = default;

    /// Whether anything listens on this port of the device.
    virtual bool accepts(const Attachment& attachment, std::uint16_t port) const = 0;

    /// Connects a channel to the service on this port. Closes the channel where the device has left
    /// or the port is taken by now.
    /// @param bytes what the client has sent already
    virtual void connect(const std::shared_ptr<Channel>& channel, const Attachment& attachment,
        std::uint16_t port, std::span<const std::byte> bytes)
        = 0;
};

} // namespace tdw::simulator
