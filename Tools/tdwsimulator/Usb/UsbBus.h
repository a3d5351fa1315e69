#pragma once

#include "Device/LocalListener.h"
#include "Device/PortConnector.h"
#include "Model/Simulation.h"
#include "Platform/Values/Result.h"
#include "Usb/UsbDevice.h"

#include <asio/io_context.hpp>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>

namespace tdw::simulator {

/// The virtual bus: tells the stand-in for libusb, inside the multiplexer daemon, what is plugged
/// in, and carries transfers.
///
/// One stand-in at a time: a daemon that is started again finds everything plugged in as for the
/// first time. Used by the thread that runs the context; must not outlive simulation and ports.
class UsbBus {
public:
    /// @param daemonCame called when a daemon has come: by then its socket listens
    UsbBus(asio::io_context& context, Simulation& simulation, PortConnector& ports,
        std::function<void()> daemonCame);
    UsbBus(const UsbBus&) = delete;
    UsbBus& operator=(const UsbBus&) = delete;
    ~UsbBus();

    /// Errors name the path.
    Result<void> open(const std::filesystem::path& path);

private:
    class Link;

    void take(asio::local::stream_protocol::socket socket);
    void attach(const Attachment& attachment);
    void detach(const Attachment& attachment);
    void send(UsbHeader header, std::span<const std::byte> payload);
    void follow(const SimulationEvent& event);

    asio::io_context& m_context;
    Simulation& m_simulation;
    PortConnector& m_ports;
    std::function<void()> m_daemonCame;
    LocalListener m_listener;
    /// To the stand-in, while there is one.
    std::shared_ptr<Channel> m_channel;
    /// By bus and address.
    std::map<std::uint16_t, std::shared_ptr<UsbDevice>> m_devices;
};

} // namespace tdw::simulator
