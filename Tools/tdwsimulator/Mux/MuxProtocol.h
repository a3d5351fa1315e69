#pragma once

#include "Model/Simulation.h"
#include "Mux/MuxFrame.h"
#include "Mux/MuxRecords.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace tdw::simulator {

/// What a client's request comes to.
struct MuxReply {
    enum class Next {
        /// Wait for the next request.
        Continue,
        /// From now on the client hears of devices.
        Listen,
        /// From now on the client talks to `port` of `target`.
        Connect,
        Close,
    };

    /// Encoded frames, in order.
    Data bytes {};
    Next next = Next::Continue;
    Attachment target {};
    std::uint16_t port = 0;
};

/// The multiplexer's side of one client connection, from the first request to the handing over.
///
/// Given frames, says replies; owns no socket. Behaves as the Linux daemon does, to the point of
/// leaving a message unanswered that is no property list.
class MuxProtocol {
public:
    /// Whether a device accepts connections on a port.
    using AcceptsPort = std::function<bool(const Attachment&, std::uint16_t)>;

    MuxProtocol(Simulation& simulation, AcceptsPort acceptsPort)
        : m_simulation(simulation)
        , m_acceptsPort(std::move(acceptsPort))
    {
    }

    /// The name of a frame's request, for faults and the log: its MessageType, "Binary" for a
    /// message of the protocol's older form.
    struct Request {
        std::string name;
        Dictionary message;
        bool isReadable = false;
    };
    static Request read(const MuxFrame& frame);

    /// @param fault what goes wrong with the content of the answer; the rest is not done here
    MuxReply reply(
        const MuxFrame& frame, const Request& request, const std::optional<Fault>& fault);

    /// The message that tells a listening client of an event.
    /// @param fault what goes wrong with its content
    Data notification(const SimulationEvent& event, const std::optional<Fault>& fault) const;

private:
    Data encoded(const Dictionary& message, std::uint32_t tag) const;
    Data result(MuxResult result, std::uint32_t tag) const;
    MuxReply listen(const std::optional<Fault>& fault, std::uint32_t tag);
    MuxReply connect(const Dictionary& request, std::uint32_t tag);
    Dictionary deviceList(const std::optional<Fault>& fault) const;
    Dictionary listenerList() const;
    Data readPairRecord(const Dictionary& request, std::uint32_t tag);
    Data savePairRecord(const Dictionary& request, std::uint32_t tag);
    Data deletePairRecord(const Dictionary& request, std::uint32_t tag);

    Simulation& m_simulation;
    AcceptsPort m_acceptsPort;
    bool m_isListening = false;
    bool m_speaksPropertyLists = false;
};

} // namespace tdw::simulator
