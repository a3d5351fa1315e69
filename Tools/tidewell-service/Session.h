#pragma once

#include "Client/ServiceMessages.h"
#include "Client/TidewellServiceProtocol.h"
#include "Platform/Messages/Connection.h"

#include <chrono>
#include <cstdint>
#include <memory>

namespace tdw::service {

class Service;

/// One client, from its connection to that one's end. Belongs to the service's queue.
class Session final : public TidewellServiceProtocol, public std::enable_shared_from_this<Session> {
public:
    Session(std::weak_ptr<Service> service, std::shared_ptr<Connection> connection,
        std::uint64_t identifier);

    /// Begins to answer.
    void activate();

    /// Drops the connection, which the client makes again when it needs one.
    void end() { m_connection->invalidate(); }

    std::uint64_t identifier() const { return m_identifier; }

    /// When the client asked for something last; the earliest time there is for one that never did.
    std::chrono::steady_clock::time_point lastMessage() const { return m_lastMessage; }

    ClientProxy client() const { return ClientProxy(m_connection); }

    void invokeServer(const std::string& server, const std::vector<std::string>& arguments,
        double timeout, std::function<void(const Value& response)> reply) override;
    void subscribeToDeviceEvents(std::function<void(const std::optional<Error>&)> reply) override;
    void terminate() override;
    void getServiceConnectionEndpoint(std::function<void(const Endpoint&)> reply) override;
    void status(std::function<void(const Value& status)> reply) override;

private:
    const std::weak_ptr<Service> m_service;
    const std::shared_ptr<Connection> m_connection;
    const std::uint64_t m_identifier;
    std::chrono::steady_clock::time_point m_lastMessage
        = std::chrono::steady_clock::time_point::min();
    /// Where the client wants to be told about the message that is being handled.
    std::string m_trace;
};

} // namespace tdw::service
