#include "Session.h"

#include "Service.h"

#include <utility>

namespace tdw::service {

Session::Session(std::weak_ptr<Service> service, std::shared_ptr<Connection> connection,
    std::uint64_t identifier)
    : m_service(std::move(service))
    , m_connection(std::move(connection))
    , m_identifier(identifier)
{
}

void Session::activate()
{
    // The service holds the session, and nothing else does: its end is seen in the weak ones.
    m_connection->activate({
        .message =
            [weak = weak_from_this()](const IncomingMessage& message) {
                const auto self = weak.lock();
                if (!self)
                    return;
                self->m_lastMessage = std::chrono::steady_clock::now();
                self->m_trace = message.trace;
                dispatch(message, *self);
            },
        .interruption = {},
        .invalidation =
            [service = m_service, identifier = m_identifier] {
                if (const auto owner = service.lock())
                    owner->sessionEnded(identifier);
            },
    });
}

void Session::invokeServer(const std::string& server, const std::vector<std::string>& arguments,
    double timeout, std::function<void(const Value& response)> reply)
{
    if (const auto service = m_service.lock())
        service->m_requests->add({ .client = m_identifier,
            .server = server,
            .arguments = arguments,
            .timeoutSeconds = timeout,
            .trace = m_trace,
            .reply = std::move(reply) });
}

void Session::subscribeToDeviceEvents(std::function<void(const std::optional<Error>&)> reply)
{
    if (const auto service = m_service.lock())
        service->m_events->subscribe(
            m_identifier,
            [connection = m_connection](const DeviceEvent& event) {
                ClientProxy(connection).serviceDidReceiveDeviceEvent(deviceEventText(event));
            },
            std::move(reply));
}

void Session::terminate()
{
    if (const auto service = m_service.lock())
        service->terminate();
}

void Session::getServiceConnectionEndpoint(std::function<void(const Endpoint&)> reply)
{
    const auto service = m_service.lock();
    if (!service)
        return;
    // Where there is none, the reply goes unanswered, and the client learns that it did.
    if (const auto endpoint = service->endpoint())
        reply(*endpoint);
    else
        service->m_log.error("Cannot make an endpoint: " + endpoint.error().debugDescription());
}

void Session::status(std::function<void(const Value& status)> reply)
{
    if (const auto service = m_service.lock())
        reply(service->status());
}

} // namespace tdw::service
