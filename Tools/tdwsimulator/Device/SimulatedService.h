#pragma once

#include "Device/PropertyListFrame.h"
#include "Model/Simulation.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"
#include "Trust/Pairing.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tdw::simulator {

/// What a service does upon a request.
struct ServiceReply {
    enum class Next {
        Continue,
        /// After the messages, with `pairing`.
        StartTls,
        /// After the messages.
        StopTls,
        /// After the messages.
        Close,
        /// After the messages the device leaves and comes back.
        Reattach,
    };

    std::vector<Value> messages {};
    Next next = Next::Continue;
    std::shared_ptr<const Pairing> pairing {};
};

/// One connection's side of a device's service: given decoded requests, says the replies. Knows
/// no socket, no framing and no TLS; faults strike around it.
class SimulatedService {
public:
    SimulatedService() = default;
    SimulatedService(const SimulatedService&) = delete;
    SimulatedService& operator=(const SimulatedService&) = delete;
    virtual ~SimulatedService() = default;

    virtual ServiceReply handle(const Dictionary& request) = 0;

    /// The name of a request, for faults and the log.
    virtual std::string requestName(const Dictionary& request) const;

    /// How this service says that it refuses.
    virtual Dictionary refusal(const Dictionary& request, std::string_view error) const;

    virtual PropertyListFormat format() const { return PropertyListFormat::Xml; }
};

/// A service that is to listen on a port of its own.
struct ServiceLaunch {
    /// Also the place of its faults and log entries.
    std::string name;
    /// Set: the connection begins with TLS.
    std::shared_ptr<const Pairing> pairing {};
};

/// What a service may reach beyond its own connection.
struct ServiceContext {
    Simulation& simulation;
    Attachment attachment;

    /// Opens a port for a service, for one connection. Errors: no port is to be had.
    std::function<Result<std::uint16_t>(const ServiceLaunch&)> launch;

    /// Sends a message that is no reply to a request.
    std::function<void(const Value&)> push {};
};

/// The services that devices offer beside lockdown.
bool isKnownService(std::string_view name);

/// Makes the service for one connection, which must be lockdown or a known one.
std::unique_ptr<SimulatedService> makeService(std::string_view name, const ServiceContext& context);

} // namespace tdw::simulator
