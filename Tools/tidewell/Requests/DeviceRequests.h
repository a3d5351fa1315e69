#pragma once

#include "Client/RequestArguments.h"
#include "Multiplexer/MultiplexerClient.h"
#include "Platform/Queues/EventLoop.h"
#include "Platform/Values/Result.h"
#include "Platform/Values/Value.h"

#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace tdw::cli {

/// Runs the loop until an answer is there.
/// @param start asks for it: takes a handler that is called once, on the loop, within a bounded
/// time
template <typename Answer>
Answer waitFor(EventLoop& loop, const std::function<void(std::function<void(Answer)>)>& start)
{
    // Shared, because the handler may outlive a start that answers twice or late.
    const auto answer = std::make_shared<std::optional<Answer>>();
    start([answer](Answer value) { answer->emplace(std::move(value)); });
    loop.runUntil([&] { return answer->has_value(); });
    return std::move(**answer);
}

/// Carries requests out, and holds the loop on which they are answered.
///
/// A device is never touched by this process: a server does that, which either the service starts,
/// as for every application, or the host code in this process. Belongs to one thread. Nothing is
/// connected or started before it is needed.
class DeviceRequests {
public:
    enum class Transport { Service, Direct };
    using Handler = std::function<void(Result<Value> payload)>;

    DeviceRequests(Transport transport, EventLoop loop);
    DeviceRequests(const DeviceRequests&) = delete;
    DeviceRequests& operator=(const DeviceRequests&) = delete;
    ~DeviceRequests();

    Transport transport() const { return m_transport; }
    EventLoop& loop() { return m_loop; }

    /// The multiplexer itself, for what it knows without a device being asked.
    MultiplexerClient& multiplexer();

    /// Sends a request. A reading one is sent once more where the service ended under it.
    /// @param handler runs on the loop, once, in little more time than the server may take.
    ///        Errors: the server's own; `ExitStatus::ServerNotRun`;
    ///        `ExitStatus::ServiceUnavailable`
    void send(DeviceQuery query, Handler handler);

    /// Sends a request and waits for its answer.
    Result<Value> ask(DeviceQuery query);

    /// Ends the servers that this process has started itself and that still run.
    void endServers();

private:
    class Sender;
    class ServiceSender;
    class DirectSender;

    const Transport m_transport;
    EventLoop m_loop;
    std::unique_ptr<MultiplexerClient> m_multiplexer;
    std::unique_ptr<Sender> m_sender;
};

} // namespace tdw::cli
