#pragma once

#include "Device/Channel.h"
#include "Device/PortConnector.h"
#include "Model/Simulation.h"
#include "Usb/UsbMux.h"
#include "Usb/UsbWire.h"

#include <asio/io_context.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>

namespace tdw::simulator {

/// One plugged-in device as the daemon sees it: descriptors, control transfers, and the
/// multiplexer's streams, each of which is a connection to one of the device's services.
class UsbDevice final : public UsbMuxHost, public std::enable_shared_from_this<UsbDevice> {
public:
    using Send = std::function<void(UsbHeader, std::span<const std::byte> payload)>;

    UsbDevice(asio::io_context& context, Simulation& simulation, PortConnector& ports,
        const Attachment& attachment, Send send);
    ~UsbDevice() override;

    /// The message by which it arrives.
    void arrive();

    /// What the stand-in has sent for this device.
    void handle(const UsbHeader& header, std::span<const std::byte> payload);

private:
    class StreamHandler;

    void transmit(Data packet) override;
    bool greets() override;
    bool opened(UsbStream stream, std::uint16_t port) override;
    void received(UsbStream stream, std::span<const std::byte> bytes) override;
    void ended(UsbStream stream) override;

    void control(const UsbHeader& header, std::span<const std::byte> payload);
    UsbHeader header(UsbMessage kind) const;
    std::optional<FaultKind> strike(std::string_view request, const Dictionary* message = nullptr);

    asio::io_context& m_context;
    Simulation& m_simulation;
    PortConnector& m_ports;
    Attachment m_attachment;
    Send m_send;
    UsbMux m_mux;
    std::map<UsbStream, std::shared_ptr<Channel>> m_streams;
};

} // namespace tdw::simulator
