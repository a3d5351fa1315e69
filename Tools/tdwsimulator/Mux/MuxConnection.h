#pragma once

#include "Device/Channel.h"
#include "Device/PortConnector.h"
#include "Device/WireFault.h"
#include "Mux/MuxProtocol.h"

#include <cstdint>
#include <memory>

namespace tdw::simulator {

/// One client of the multiplexer, until it is handed over to a device.
class MuxConnection final : public ChannelHandler,
                            public std::enable_shared_from_this<MuxConnection> {
public:
    /// @param number the client's among those of the multiplexer
    MuxConnection(Simulation& simulation, PortConnector& ports,
        const std::shared_ptr<Channel>& channel, std::uint64_t number);

    void received(std::span<const std::byte> bytes) override;
    void ended() override;

    /// Tells the client of an event, if it listens.
    void notify(const SimulationEvent& event);

    /// What a fault makes of the connection before any request, where one strikes.
    void applyAcceptFault();

private:
    void handleFrames();
    void handle(const MuxFrame& frame);
    void deliverAnswer(const MuxReply& reply, const FaultedReply& faulted);
    void finish(const MuxReply& reply, FaultedReply::After after);
    std::string concernedDevice(const MuxProtocol::Request& request) const;

    Simulation& m_simulation;
    PortConnector& m_ports;
    std::weak_ptr<Channel> m_channel;
    std::uint64_t m_number;
    MuxProtocol m_protocol;
    MuxFrameDecoder m_decoder;
    Dictionary m_description;
    bool m_isListening = false;
    enum class State { Open, Waiting, Ignoring, HandedOver } m_state = State::Open;
};

} // namespace tdw::simulator
