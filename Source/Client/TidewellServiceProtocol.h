#pragma once

#include "Platform/Export.h"
#include "Platform/Messages/Endpoint.h"
#include "Platform/Values/Error.h"
#include "Platform/Values/Value.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

extern "C" {

/// The name under which the service of a user is reached.
TDW_EXPORT extern const std::string_view kTidewellServiceName;
}

/// What a client asks of the service. Each reply is called once, by the other side.
class TDW_EXPORT TidewellServiceProtocol {
public:
    TidewellServiceProtocol() = default;
    TidewellServiceProtocol(const TidewellServiceProtocol&) = delete;
    TidewellServiceProtocol& operator=(const TidewellServiceProtocol&) = delete;
    virtual ~TidewellServiceProtocol() = default;

    /// Runs a server to its end.
    /// @param timeout in seconds; a server that outlives it is killed a little later
    /// @param reply takes the response envelope
    virtual void invokeServer(const std::string& server, const std::vector<std::string>& arguments,
        double timeout, std::function<void(const tdw::Value& response)> reply)
        = 0;

    /// From now on the client is told of device events, beginning with the devices that are there.
    /// @param reply takes the reason why there are none
    virtual void subscribeToDeviceEvents(
        std::function<void(const std::optional<tdw::Error>&)> reply)
        = 0;

    /// Ends the service.
    virtual void terminate() = 0;

    /// @param reply takes the address of a listener with the same service behind it
    virtual void getServiceConnectionEndpoint(std::function<void(const tdw::Endpoint&)> reply) = 0;

    /// @param reply takes a dictionary about the service's process: "pid", "uptime" (seconds),
    ///        "memory" (resident bytes), "multiplexer" (its address), "requests" (running or
    ///        waiting), "subscribers", "version"
    virtual void status(std::function<void(const tdw::Value& status)> reply) = 0;
};

/// What the service tells a client.
class TDW_EXPORT TidewellClientProtocol {
public:
    TidewellClientProtocol() = default;
    TidewellClientProtocol(const TidewellClientProtocol&) = delete;
    TidewellClientProtocol& operator=(const TidewellClientProtocol&) = delete;
    virtual ~TidewellClientProtocol() = default;

    /// The service has reached a resource limit and does well to be ended.
    /// @param uptime in seconds
    virtual void serviceReachedResourceLimitWithUptime(const tdw::Value& uptime) = 0;

    /// One line of the events server: "type,connection,UDID" without its newline.
    virtual void serviceDidReceiveDeviceEvent(const std::string& event) = 0;
};
