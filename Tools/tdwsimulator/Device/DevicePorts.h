#pragma once

#include "Device/NetworkListener.h"
#include "Device/PortConnector.h"
#include "Device/SimulatedService.h"

#include <asio/io_context.hpp>

#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace tdw::simulator {

/// Where a device's lockdown service listens, on any connection.
inline constexpr std::uint16_t kLockdownPort = 62078;

/// All ports of all devices: the multiplexer's clients come in through `PortConnector`, and devices
/// on the network have addresses and TCP ports of their own.
///
/// Used by the thread that runs the context; must not outlive the simulation.
class DevicePorts final : public PortConnector {
public:
    DevicePorts(asio::io_context& context, Simulation& simulation);

    bool accepts(const Attachment& attachment, std::uint16_t port) const override;
    void connect(const std::shared_ptr<Channel>& channel, const Attachment& attachment,
        std::uint16_t port, std::span<const std::byte> bytes) override;

    /// Opens an address of the device's own for its lockdown service, until the device leaves the
    /// network. Errors: none is to be had.
    Result<std::string> openNetwork(const SimulatedDevice& device);

private:
    /// Launched services wait for their one connection under the attachment that asked for them.
    using PortKey = std::pair<std::uint32_t, std::uint16_t>;

    Result<std::string> openAddress(const SimulatedDevice& device, const std::string& address);
    Result<std::uint16_t> launch(const Attachment& attachment, const ServiceLaunch& launch);
    std::uint16_t freeUsbPort(const Attachment& attachment);
    void acceptFromNetwork(const SimulatedDevice& device, std::uint16_t port, StreamSocket socket);
    void forget(const Attachment& attachment);

    asio::io_context& m_context;
    Simulation& m_simulation;
    std::map<PortKey, ServiceLaunch> m_launches;
    std::map<PortKey, std::shared_ptr<NetworkListener>> m_serviceListeners;
    std::map<const SimulatedDevice*, std::shared_ptr<NetworkListener>> m_lockdownListeners;
    std::multimap<std::uint32_t, std::weak_ptr<Channel>> m_channels;
    std::uint16_t m_lastUsbPort = 49152;
};

} // namespace tdw::simulator
