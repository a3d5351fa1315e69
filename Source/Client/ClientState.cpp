#include "Client/ClientState.h"

#include "Interfaces/TDWResponse.h"
#include "Support/TDWErrorHelpers.h"

#include <cerrno>
#include <chrono>
#include <utility>

using tdw::Connection;
using tdw::Error;
using tdw::Value;

namespace {

constexpr std::int32_t kNoConnectionCode = -2;
constexpr std::int32_t kSubscribedAlreadyCode = 33;

/// Whether the service has certainly not read the message, so that sending it again does nothing
/// twice.
bool isUnread(const Error& error)
{
    return error.domain() == tdw::kCocoaErrorDomain && error.code() == tdw::kConnectionClosedError;
}

bool isPerhapsUnread(const Error& error)
{
    const Value* cause = error.userInfo().find(tdw::kUnderlyingErrorKey);
    return isUnread(error)
        || (error.domain() == tdw::kCocoaErrorDomain
            && error.code() == tdw::kConnectionInterruptedError && cause && cause->asError()
            && cause->asError()->code() == ECONNRESET);
}

} // namespace

TidewellServiceClient::State::State(
    std::optional<tdw::Endpoint> serviceEndpoint, tdw::CallbackQueue queue)
    : endpoint(std::move(serviceEndpoint))
    , callbackQueue(std::move(queue))
    , log(std::string(kTidewellErrorDomain), "TidewellServiceClient")
{
}

TidewellServiceClient::State::~State()
{
    log.debug("deinit");
    // The connection's handlers hold the client weakly, and find it gone.
    invalidate(false);
    setResourceLimitHandler(nullptr);
}

std::shared_ptr<const TidewellServiceClient::EventHandler>
TidewellServiceClient::State::eventHandler() const
{
    const std::lock_guard lock(m_lock);
    return m_subscription ? m_subscription->eventHandler : nullptr;
}

bool TidewellServiceClient::State::hasEventHandler() const
{
    const std::lock_guard lock(m_lock);
    return m_subscription != nullptr;
}

bool TidewellServiceClient::State::hasResourceLimitHandler() const
{
    const std::lock_guard lock(m_lock);
    return m_resourceLimitHandler != nullptr;
}

std::shared_ptr<const TidewellServiceClient::ResourceLimitHandler>
TidewellServiceClient::State::resourceLimitHandler() const
{
    const std::lock_guard lock(m_lock);
    return m_resourceLimitHandler;
}

void TidewellServiceClient::State::setResourceLimitHandler(ResourceLimitHandler handler)
{
    auto held
        = handler ? std::make_shared<const ResourceLimitHandler>(std::move(handler)) : nullptr;
    {
        const std::lock_guard lock(m_lock);
        m_resourceLimitHandler.swap(held);
    }
    if (held)
        tdw::destroyOn(callbackQueue, std::move(held));
}

bool TidewellServiceClient::State::isCurrent(const std::weak_ptr<Connection>& connection) const
{
    const auto current = connection.lock();
    const std::lock_guard lock(m_lock);
    return current && current == m_connection;
}

void TidewellServiceClient::State::invalidate(bool terminatesService)
{
    std::shared_ptr<Connection> connection;
    std::shared_ptr<Subscription> subscription;
    {
        const std::lock_guard lock(m_lock);
        ++m_period;
        connection.swap(m_connection);
        subscription.swap(m_subscription);
    }
    if (connection && terminatesService)
        tdw::ServiceProxy(connection, nullptr).terminate();
    if (connection)
        connection->invalidate();
    if (subscription)
        tdw::destroyOn(callbackQueue, std::exchange(subscription->eventHandler, nullptr));
}

TidewellServiceClient::State::Use TidewellServiceClient::State::_ensureConnection()
{
    const std::lock_guard lock(m_lock);
    if (!m_connection)
        createConnection();
    return { m_connection, m_period };
}

/// With the lock held.
void TidewellServiceClient::State::createConnection()
{
    log.info("Creating service connection.");
    m_connection = endpoint ? Connection::toEndpoint(*endpoint)
                            : Connection::toService(tdw::tidewellService());
    // A connection's end is told by the one that ended, which may not be the current one any more.
    const std::weak_ptr<Connection> created = m_connection;
    const auto whenEnded = [weak = client, created](const auto& report) {
        if (const auto self = weak.lock()) {
            report(self->m_state->log);
            self->m_state->forget(created);
        }
    };
    m_connection->activate({
        .message =
            [self = client.lock(), created](const tdw::IncomingMessage& message) {
                if (self->m_state->isCurrent(created))
                    tdw::dispatch(message, *self);
            },
        .interruption =
            [whenEnded] {
                whenEnded(
                    [](const tdw::Log& clientLog) { clientLog.error("Connection interrupted."); });
            },
        .invalidation =
            [whenEnded] {
                whenEnded(
                    [](const tdw::Log& clientLog) { clientLog.notice("Connection invalidated."); });
            },
    });
    _resubscribeToDeviceEventsIfNeeded();
}

void TidewellServiceClient::State::forget(const std::weak_ptr<Connection>& connection)
{
    // Given up without the lock, because that may wait for a handler which wants it.
    const auto ended = connection.lock();
    const std::lock_guard lock(m_lock);
    if (ended == m_connection)
        m_connection.reset();
}

void TidewellServiceClient::State::_performWithServiceObject(
    const ServiceBlock& block, bool isSafeToRepeat)
{
    perform(_ensureConnection(), block,
        isSafeToRepeat ? Repetition::IfPerhapsUnread : Repetition::IfUnread);
}

void TidewellServiceClient::State::perform(
    const Use& use, const ServiceBlock& block, Repetition repetition) const
{
    if (!use.connection)
        return block(nullptr,
            TDWErrorCreateWithMessage(
                "Connection to XPC service is not available.", kNoConnectionCode));
    const auto failed = [weak = client, connection = std::weak_ptr(use.connection),
                            period = use.period, block, repetition](const Error& error) {
        const auto self = weak.lock();
        const bool isRepeated = repetition == Repetition::IfPerhapsUnread
            ? isPerhapsUnread(error)
            : repetition == Repetition::IfUnread && isUnread(error);
        const auto next = self && isRepeated
            ? self->m_state->useInsteadOf({ connection.lock(), period })
            : std::nullopt;
        if (next)
            self->m_state->perform(*next, block, Repetition::None);
        else
            block(nullptr, error);
    };
    tdw::ServiceProxy service(use.connection, failed);
    block(&service, std::nullopt);
}

/// A connection for a message that one which has ended did not deliver; none where the client has
/// been invalidated since.
std::optional<TidewellServiceClient::State::Use> TidewellServiceClient::State::useInsteadOf(
    const Use& ended)
{
    const std::lock_guard lock(m_lock);
    if (m_period != ended.period)
        return std::nullopt;
    if (m_connection == ended.connection)
        m_connection.reset();
    if (!m_connection)
        createConnection();
    return Use { m_connection, m_period };
}

void TidewellServiceClient::State::_invokeServer(
    const tdw::DeviceQuery& query, CompletionHandler handler)
{
    const TDWServerDescription* const server = TDWServerNamed(tdw::serverFor(query));
    const double timeout = std::chrono::duration<double>(server->timeout).count();
    const tdw::HandlerOnce<Value> finish(callbackQueue, std::move(handler));
    _performWithServiceObject(
        [weak = client, name = std::string(server->name), arguments = tdw::argumentsFor(query),
            timeout, finish](TidewellServiceProtocol* service, const std::optional<Error>& error) {
            const auto self = weak.lock();
            if (!self)
                return;
            if (service)
                service->invokeServer(name, arguments, timeout,
                    [self, finish](const Value& envelope) { finish(envelope); });
            else
                finish(TDWClientErrorResponse(*error));
        },
        tdw::isSafeToRepeat(query));
}

void TidewellServiceClient::State::getServiceEndpoint(
    std::function<void(const std::optional<tdw::Endpoint>&, const std::optional<Error>&)> handler)
{
    const tdw::HandlerOnce<std::optional<tdw::Endpoint>, std::optional<Error>> finish(
        callbackQueue, std::move(handler));
    _performWithServiceObject(
        [weak = client, finish](
            TidewellServiceProtocol* service, const std::optional<Error>& error) {
            const auto self = weak.lock();
            if (!self)
                return;
            if (!service)
                return finish(std::nullopt, error);
            service->getServiceConnectionEndpoint(
                [self, finish](const tdw::Endpoint& found) { finish(found, std::nullopt); });
        },
        true);
}

void TidewellServiceClient::State::_subscribeToDeviceEventsWithEventHandler(
    EventHandler handler, ErrorHandler completionHandler)
{
    const auto subscription = std::make_shared<Subscription>(Subscription { .eventHandler
        = handler ? std::make_shared<const EventHandler>(std::move(handler)) : nullptr,
        .completion = { callbackQueue, std::move(completionHandler) } });
    const bool isAccepted = [&] {
        const std::lock_guard lock(m_lock);
        if (m_subscription)
            return false;
        // Before the subscription is stored: a connection that is made here finds none to renew,
        // and the service gets one message.
        if (!m_connection)
            createConnection();
        if (subscription->eventHandler)
            m_subscription = subscription;
        sendSubscription(subscription);
        return true;
    }();
    if (isAccepted)
        return;
    subscription->completion(TDWErrorCreateWithMessage(
        "Attempting to subscribe to device events more than once on the same "
        "TidewellServiceClient instance.",
        kSubscribedAlreadyCode));
    if (subscription->eventHandler)
        tdw::destroyOn(callbackQueue, std::exchange(subscription->eventHandler, nullptr));
}

/// With the lock held.
void TidewellServiceClient::State::_resubscribeToDeviceEventsIfNeeded()
{
    if (!m_subscription)
        return;
    log.info("Re-subscribing to device connection events.");
    sendSubscription(m_subscription);
}

/// With the lock held.
void TidewellServiceClient::State::sendSubscription(
    const std::shared_ptr<Subscription>& subscription)
{
    const auto answer = [weak = client, subscription, connection = std::weak_ptr(m_connection)](
                            const std::optional<Error>& error) {
        if (const auto self = weak.lock())
            self->m_state->answered(subscription, connection, error);
    };
    tdw::ServiceProxy(m_connection, answer)
        .subscribeToDeviceEvents(
            [answer, self = client.lock()](const std::optional<Error>& error) { answer(error); });
}

void TidewellServiceClient::State::answered(const std::shared_ptr<Subscription>& subscription,
    const std::weak_ptr<Connection>& connection, const std::optional<Error>& error)
{
    if (error && isPerhapsUnread(*error) && repeatSubscription(subscription, connection))
        return;
    const bool isRenewal = [&] {
        const std::lock_guard lock(m_lock);
        return std::exchange(subscription->isAnswered, true);
    }();
    const std::string what = isRenewal ? "re-subscribing" : "subscribing";
    if (error)
        log.error("Error " + what + " to device connection events: " + error->debugDescription());
    else if (isRenewal)
        log.notice("Successfully re-subscribed to device connection events.");
    subscription->completion(error);
}

/// Replaces the connection, which renews the subscription. Returns false if the connection was
/// replaced already, or the subscription has ended.
bool TidewellServiceClient::State::repeatSubscription(
    const std::shared_ptr<Subscription>& subscription, const std::weak_ptr<Connection>& connection)
{
    // Given up without the lock.
    const auto ended = connection.lock();
    const std::lock_guard lock(m_lock);
    if (m_subscription != subscription || std::exchange(subscription->isRepeated, true))
        return false;
    if (m_connection == ended)
        m_connection.reset();
    if (!m_connection)
        createConnection();
    return true;
}
