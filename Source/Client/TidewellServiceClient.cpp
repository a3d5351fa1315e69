#include "Client/TidewellServiceClient.h"

#include "Client/ServiceMessages.h"
#include "Interfaces/TDWResponse.h"
#include "Platform/Connection.h"
#include "Platform/Log.h"
#include "Support/TDWErrorHelpers.h"

#include <utility>

using tdw::Connection;
using tdw::Endpoint;
using tdw::Error;
using tdw::Value;

namespace {

constexpr std::int32_t kNoConnectionCode = -2;
constexpr std::int32_t kSubscribedAlreadyCode = 33;
constexpr std::int32_t kCommunicationCode = 34;

} // namespace

std::shared_ptr<TidewellServiceClient> TidewellServiceClient::initWithEndpoint(
    std::optional<Endpoint> endpoint, std::optional<tdw::CallbackQueue> queue)
{
    return std::shared_ptr<TidewellServiceClient>(new TidewellServiceClient(
        std::move(endpoint), queue ? *std::move(queue) : tdw::CallbackQueue()));
}

std::shared_ptr<TidewellServiceClient> TidewellServiceClient::initWithQueue(
    tdw::CallbackQueue queue)
{
    return initWithEndpoint(std::nullopt, std::move(queue));
}

std::shared_ptr<TidewellServiceClient> TidewellServiceClient::initWithClient(
    const TidewellServiceClient& client)
{
    return initWithEndpoint(client.m_endpoint, client.m_callbackQueue);
}

TidewellServiceClient::TidewellServiceClient(
    std::optional<Endpoint> endpoint, tdw::CallbackQueue queue)
    : m_endpoint(std::move(endpoint))
    , m_callbackQueue(std::move(queue))
    , m_log(std::make_unique<tdw::Log>(std::string(kTidewellErrorDomain), "TidewellServiceClient"))
{
}

TidewellServiceClient::~TidewellServiceClient()
{
    m_log->debug("deinit");
    // The connection's handlers hold this client weakly, and find it gone.
    if (m_connection)
        m_connection->invalidate();
}

void TidewellServiceClient::setServiceReachedResourceLimit(
    std::function<void(const Value& uptime)> handler)
{
    const std::lock_guard lock(m_handlersLock);
    m_serviceReachedResourceLimit = std::move(handler);
}

TidewellServiceClient::EventHandler TidewellServiceClient::eventHandler() const
{
    const std::lock_guard lock(m_handlersLock);
    return m_eventHandler;
}

void TidewellServiceClient::setEventHandler(EventHandler handler)
{
    const std::lock_guard lock(m_handlersLock);
    m_eventHandler.swap(handler);
}

void TidewellServiceClient::invalidate()
{
    invalidateTerminatingService(true);
}

void TidewellServiceClient::invalidateTerminatingService(bool terminatesService)
{
    const std::lock_guard lock(m_connectionLock);
    if (terminatesService && m_connection)
        tdw::ServiceProxy(m_connection, nullptr).terminate();
    setEventHandler(nullptr);
    // Its invalidation handler clears the connection.
    if (m_connection)
        m_connection->invalidate();
}

std::shared_ptr<Connection> TidewellServiceClient::_ensureConnection()
{
    const std::lock_guard lock(m_connectionLock);
    if (!m_connection)
        createConnection();
    return m_connection;
}

void TidewellServiceClient::createConnection()
{
    m_log->info("Creating service connection.");
    m_connection = m_endpoint ? Connection::toEndpoint(*m_endpoint)
                              : Connection::toService(tdw::tidewellService());
    // A connection's end is told by the one that ended, which may not be the current one any more.
    const auto whenEnded
        = [weak = weak_from_this(), ended = std::weak_ptr(m_connection)](const auto& report) {
              if (const auto self = weak.lock()) {
                  report(*self->m_log);
                  self->forget(ended);
              }
          };
    m_connection->activate({
        .message = [self = shared_from_this()](
                       const tdw::IncomingMessage& message) { tdw::dispatch(message, *self); },
        .interruption =
            [whenEnded] {
                whenEnded([](const tdw::Log& log) { log.error("Connection interrupted."); });
            },
        .invalidation =
            [whenEnded] {
                whenEnded([](const tdw::Log& log) { log.normal("Connection invalidated."); });
            },
    });
    _resubscribeToDeviceEventsIfNeeded();
}

void TidewellServiceClient::forget(const std::weak_ptr<Connection>& connection)
{
    // The lock is not held while the connection goes, because that may wait for the thread of a
    // handler which wants the lock.
    const auto ended = connection.lock();
    const std::lock_guard lock(m_connectionLock);
    if (ended == m_connection)
        m_connection.reset();
}

void TidewellServiceClient::_performWithServiceObject(const ServiceBlock& block)
{
    performWithServiceObject(block, true);
}

void TidewellServiceClient::performWithServiceObject(const ServiceBlock& block, bool isFirstAttempt)
{
    const auto connection = _ensureConnection();
    if (!connection)
        return block(nullptr,
            TDWErrorCreateWithMessage(
                "Connection to XPC service is not available.", kNoConnectionCode));
    tdw::ServiceProxy service(
        connection, [weak = weak_from_this(), block, isFirstAttempt](const Error& error) {
            // The connection ended in the moment between asking for it and using it. Nothing was
            // sent, so that asking again is what the caller would do.
            const auto self = isFirstAttempt && error.code() == tdw::kConnectionSpentError
                ? weak.lock()
                : nullptr;
            if (self)
                self->performWithServiceObject(block, false);
            else
                block(nullptr, error);
        });
    block(&service, std::nullopt);
}

void TidewellServiceClient::getServiceEndpointWithCompletionHandler(
    std::function<void(const std::optional<Endpoint>&, const std::optional<Error>&)> handler)
{
    _performWithServiceObject([weak = weak_from_this(), handler = std::move(handler)](
                                  TidewellServiceProtocol* service,
                                  const std::optional<Error>& error) {
        const auto self = weak.lock();
        if (!self)
            return;
        if (!service)
            return self->m_callbackQueue.async([handler, error] { handler(std::nullopt, error); });
        service->getServiceConnectionEndpoint([self, handler](const Endpoint& endpoint) {
            self->m_callbackQueue.async([handler, endpoint] { handler(endpoint, std::nullopt); });
        });
    });
}

void TidewellServiceClient::subscribeToDeviceEventsWithEventHandler(
    EventHandler handler, ErrorHandler completion)
{
    if (eventHandler()) {
        m_callbackQueue.async([completion = std::move(completion)] {
            completion(TDWErrorCreateWithMessage(
                "Attempting to subscribe to device events more than once on the same "
                "TidewellServiceClient instance.",
                kSubscribedAlreadyCode));
        });
        return;
    }
    _subscribeToDeviceEventsWithEventHandler(std::move(handler), std::move(completion));
}

void TidewellServiceClient::_subscribeToDeviceEventsWithEventHandler(
    EventHandler handler, ErrorHandler completion)
{
    // Before the handler is stored: a connection that is made here finds none to renew, and the
    // service gets one message.
    (void)_ensureConnection();
    setEventHandler(std::move(handler));
    _performWithServiceObject([weak = weak_from_this(), completion = std::move(completion)](
                                  TidewellServiceProtocol* service,
                                  const std::optional<Error>& error) {
        const auto self = weak.lock();
        if (!self)
            return;
        if (!service) {
            const Error reason = error.value_or(TDWErrorCreateWithMessage(
                "Error communicating with XPC service.", kCommunicationCode));
            return self->m_callbackQueue.async([completion, reason] { completion(reason); });
        }
        service->subscribeToDeviceEvents([self, completion](const std::optional<Error>& failure) {
            self->m_callbackQueue.async([self, completion, failure] {
                if (failure)
                    self->m_log->error("Error subscribing to device connection events: "
                        + failure->debugDescription());
                completion(failure);
            });
        });
    });
}

void TidewellServiceClient::_resubscribeToDeviceEventsIfNeeded()
{
    auto handler = eventHandler();
    if (!handler)
        return;
    m_log->info("Re-subscribing to device connection events.");
    _subscribeToDeviceEventsWithEventHandler(
        std::move(handler), [weak = weak_from_this()](const std::optional<Error>& error) {
            const auto self = weak.lock();
            if (!self)
                return;
            if (error)
                self->m_log->error("Error re-subscribing to device connection events: "
                    + error->debugDescription());
            else
                self->m_log->normal("Successfully re-subscribed to device connection events.");
        });
}

void TidewellServiceClient::serviceDidReceiveDeviceEvent(const std::string& event)
{
    if (!eventHandler())
        return;
    m_callbackQueue.async([self = shared_from_this(), event] {
        if (const auto handler = self->eventHandler())
            handler(event);
    });
}

void TidewellServiceClient::serviceReachedResourceLimitWithUptime(const Value& uptime)
{
    m_log->debug("serviceReachedResourceLimitWithUptime: " + uptime.debugDescription());
    m_callbackQueue.async([self = shared_from_this(), uptime] {
        const auto handler = [&self] {
            const std::lock_guard lock(self->m_handlersLock);
            return self->m_serviceReachedResourceLimit;
        }();
        if (handler)
            handler(uptime);
    });
}
