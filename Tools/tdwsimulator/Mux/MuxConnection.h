#pragma once

#include "Device/Channel.h"
#include "Device/WireFault.h"
#include "Mux/MuxProtocol.h"

#include <cstdint>
#include <memory>

namespace tdw::simulator {

class MuxServer;

/// One client of the multiplexer, until it is handed over to a device.
class MuxConnection final : public ChannelHandler,
                            public std::enable_shared_from_this<MuxConnection> {
public:
    MuxConnection(MuxServer& server, const std::shared_ptr<Channel>& channel, std::uint64_t number);

    void received(std::span<const std::byte> bytes) override;
    void ended() override;

    /// Tells a listening client of an event.
    void notify(const SimulationEvent& event);

    /// What a fault makes of the connection before any request, where one strikes.
    void greet();

private:
    void handleFrames();
    void handle(const MuxFrame& frame);
    void deliverAnswer(const MuxReply& reply, const Delivery& delivery);
    void finish(const MuxReply& reply, Delivery::After after);
    std::string concernedDevice(const MuxProtocol::Request& request) const;

    MuxServer& m_server;
    std::weak_ptr<Channel> m_channel;
    std::uint64_t m_number;
    MuxProtocol m_protocol;
    MuxFrameDecoder m_decoder;
    Dictionary m_description;
    enum class State { Open, Waiting, Ignoring, HandedOver } m_state = State::Open;
};

} // namespace tdw::simulator
