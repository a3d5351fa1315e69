#include "Fuzz.h"
#include "Mux/MuxProtocol.h"
#include "SimulatedWorld.h"

/// A client of the multiplexer: every frame is understood, refused or passed over, and every reply
/// is made of frames.
void fuzz(std::span<const std::byte> bytes)
{
    auto simulation = simulatedWorld();
    tdw::simulator::MuxProtocol protocol(
        simulation, [](const auto&, std::uint16_t port) { return port % 2 == 0; });
    tdw::simulator::MuxFrameDecoder decoder;
    decoder.append(bytes);
    while (true) {
        const auto frame = decoder.next();
        if (!frame || !*frame)
            return;
        const auto request = tdw::simulator::MuxProtocol::read(**frame);
        const auto reply = protocol.reply(**frame, request, std::nullopt);
        tdw::simulator::MuxFrameDecoder replies;
        replies.append(reply.bytes);
        auto next = replies.next();
        while (next && *next)
            next = replies.next();
        require(next.hasValue() && replies.takeRest().empty());
    }
}
