#include "Client/TidewellServiceClient.h"

#include "Client/ClientState.h"

#include <utility>

using tdw::Endpoint;
using tdw::Error;
using tdw::Value;

std::shared_ptr<TidewellServiceClient> TidewellServiceClient::initWithEndpoint(
    std::optional<Endpoint> endpoint, std::optional<tdw::CallbackQueue> queue)
{
    std::shared_ptr<TidewellServiceClient> client(new TidewellServiceClient(std::make_unique<State>(
        std::move(endpoint), queue ? *std::move(queue) : tdw::CallbackQueue())));
    client->m_state->client = client;
    return client;
}

std::shared_ptr<TidewellServiceClient> TidewellServiceClient::initWithQueue(
    tdw::CallbackQueue queue)
{
    return initWithEndpoint(std::nullopt, std::move(queue));
}

std::shared_ptr<TidewellServiceClient> TidewellServiceClient::initWithClient(
    const TidewellServiceClient& client)
{
    return initWithEndpoint(client.endpoint(), client.callbackQueue());
}

TidewellServiceClient::TidewellServiceClient(std::unique_ptr<State> state)
    : m_state(std::move(state))
{
}

TidewellServiceClient::~TidewellServiceClient() = default;

const std::optional<Endpoint>& TidewellServiceClient::endpoint() const
{
    return m_state->endpoint;
}

const tdw::CallbackQueue& TidewellServiceClient::callbackQueue() const
{
    return m_state->callbackQueue;
}

TidewellServiceClient::ResourceLimitHandler
TidewellServiceClient::serviceReachedResourceLimit() const
{
    const auto handler = m_state->resourceLimitHandler();
    return handler ? *handler : nullptr;
}

void TidewellServiceClient::setServiceReachedResourceLimit(ResourceLimitHandler handler)
{
    m_state->setResourceLimitHandler(std::move(handler));
}

void TidewellServiceClient::invalidate()
{
    invalidateTerminatingService(true);
}

void TidewellServiceClient::invalidateTerminatingService(bool terminatesService)
{
    m_state->invalidate(terminatesService);
}

void TidewellServiceClient::send(const tdw::DeviceQuery& query, CompletionHandler handler)
{
    m_state->_invokeServer(query, std::move(handler));
}

void TidewellServiceClient::getServiceEndpointWithCompletionHandler(
    std::function<void(const std::optional<Endpoint>&, const std::optional<Error>&)> handler)
{
    m_state->getServiceEndpoint(std::move(handler));
}

void TidewellServiceClient::subscribeToDeviceEventsWithEventHandler(
    EventHandler eventHandler, ErrorHandler handler)
{
    m_state->_subscribeToDeviceEventsWithEventHandler(std::move(eventHandler), std::move(handler));
}

void TidewellServiceClient::serviceDidReceiveDeviceEvent(const std::string& event)
{
    if (!m_state->hasEventHandler())
        return;
    m_state->callbackQueue.async([self = shared_from_this(), event]() noexcept {
        if (const auto handler = self->m_state->eventHandler())
            (*handler)(event);
    });
}

void TidewellServiceClient::serviceReachedResourceLimitWithUptime(const Value& uptime)
{
    m_state->log.debug("serviceReachedResourceLimitWithUptime: " + uptime.debugDescription());
    if (!m_state->hasResourceLimitHandler())
        return;
    m_state->callbackQueue.async([self = shared_from_this(), uptime]() noexcept {
        if (const auto handler = self->m_state->resourceLimitHandler())
            (*handler)(uptime);
    });
}
