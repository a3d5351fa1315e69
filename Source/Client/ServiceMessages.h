#pragma once

#include "Client/TidewellServiceProtocol.h"
#include "Platform/Messages/Connection.h"

#include <functional>
#include <memory>

namespace tdw {

/// Which service it is, and what to start for it.
ServiceIdentity tidewellService();

/// The service at the other end of a connection.
///
/// What cannot be delivered, or is answered by something else than the protocol says, reaches the
/// error handler; then the reply is not called. Both run on the connection's queue.
class ServiceProxy final : public TidewellServiceProtocol {
public:
    using ErrorHandler = std::function<void(const Error&)>;

    /// @param errorHandler may be null
    ServiceProxy(std::shared_ptr<Connection> connection, ErrorHandler errorHandler);

    void invokeServer(const std::string& server, const std::vector<std::string>& arguments,
        double timeout, std::function<void(const Value& response)> reply) override;
    void subscribeToDeviceEvents(std::function<void(const std::optional<Error>&)> reply) override;

    /// Does not start a service for the sake of ending it.
    void terminate() override;
    void getServiceConnectionEndpoint(std::function<void(const Endpoint&)> reply) override;

    /// An older service does not know this message, which reaches the error handler.
    void status(std::function<void(const Value& status)> reply) override;

private:
    void send(std::string_view selector, Array arguments, std::function<bool(const Array&)> reply);

    std::shared_ptr<Connection> m_connection;
    ErrorHandler m_errorHandler;
};

/// The client at the other end of a connection.
class ClientProxy final : public TidewellClientProtocol {
public:
    explicit ClientProxy(std::shared_ptr<Connection> connection)
        : m_connection(std::move(connection))
    {
    }

    void serviceReachedResourceLimitWithUptime(const Value& uptime) override;
    void serviceDidReceiveDeviceEvent(const std::string& event) override;

private:
    std::shared_ptr<Connection> m_connection;
};

/// Hands a message to what it is meant for. A message that the protocol does not know, or whose
/// arguments are of other types, is answered with an error that says so.
void dispatch(const IncomingMessage& message, TidewellServiceProtocol& service);
void dispatch(const IncomingMessage& message, TidewellClientProtocol& client);

} // namespace tdw
