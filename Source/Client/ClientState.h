#pragma once

#include "Client/HandlerOnce.h"
#include "Client/ServiceMessages.h"
#include "Client/TidewellServiceClient.h"
#include "Platform/Messages/Connection.h"
#include "Platform/System/Log.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

/// What a client does behind its face: its connection, its subscription and its handlers. The lock
/// guards all three; nothing of the application runs or is destroyed under it.
class __attribute__((visibility("hidden"))) TidewellServiceClient::State {
public:
    State(std::optional<tdw::Endpoint> serviceEndpoint, tdw::CallbackQueue queue);
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State();

    const std::optional<tdw::Endpoint> endpoint;
    const tdw::CallbackQueue callbackQueue;
    const tdw::Log log;

    /// Whose state it is. The connection holds the client, and everything else holds it weakly.
    std::weak_ptr<TidewellServiceClient> client;

    // The names are the interface's own.
    // NOLINTBEGIN(readability-identifier-naming)
    void _invokeServer(const tdw::DeviceQuery& query, CompletionHandler handler);
    void _subscribeToDeviceEventsWithEventHandler(EventHandler eventHandler, ErrorHandler handler);
    // NOLINTEND(readability-identifier-naming)

    void getServiceEndpoint(std::function<void(
            const std::optional<tdw::Endpoint>& endpoint, const std::optional<tdw::Error>& error)>
            handler);
    void invalidate(bool terminatesService);

    bool hasEventHandler() const;
    bool hasResourceLimitHandler() const;

    /// The current ones, or null. Asked on the callback queue, because the last owner destroys
    /// them.
    std::shared_ptr<const EventHandler> eventHandler() const;
    std::shared_ptr<const ResourceLimitHandler> resourceLimitHandler() const;
    void setResourceLimitHandler(ResourceLimitHandler handler);

    /// Whether a connection is the one that counts.
    bool isCurrent(const std::weak_ptr<tdw::Connection>& connection) const;

private:
    /// Called with the service, and once more with an error where a message to it fails; or with
    /// an error alone.
    using ServiceBlock = std::function<void(
        TidewellServiceProtocol* service, const std::optional<tdw::Error>& error)>;

    /// A connection to use now.
    struct Use {
        std::shared_ptr<tdw::Connection> connection;
        /// The time between two invalidations in which it was asked for.
        std::uint64_t period = 0;
    };

    enum class Repetition {
        None,
        /// Where the service has certainly not read the message.
        IfUnread,
        /// Also where it left something unread: this message, or one behind it.
        IfPerhapsUnread,
    };

    struct Subscription {
        std::shared_ptr<const EventHandler> eventHandler;
        tdw::HandlerOnce<std::optional<tdw::Error>> completion;
        /// The first answer is the completion's, and those of renewals are logged.
        bool isAnswered = false;
        bool isRepeated = false;
    };

    // NOLINTBEGIN(readability-identifier-naming): as above
    Use _ensureConnection();
    void _performWithServiceObject(const ServiceBlock& block, bool isSafeToRepeat);
    void _resubscribeToDeviceEventsIfNeeded();
    // NOLINTEND(readability-identifier-naming)

    void perform(const Use& use, const ServiceBlock& block, Repetition repetition) const;
    std::optional<Use> useInsteadOf(const Use& ended);
    void createConnection();
    void sendSubscription(const std::shared_ptr<Subscription>& subscription);
    void answered(const std::shared_ptr<Subscription>& subscription,
        const std::weak_ptr<tdw::Connection>& connection, const std::optional<tdw::Error>& error);
    bool repeatSubscription(const std::shared_ptr<Subscription>& subscription,
        const std::weak_ptr<tdw::Connection>& connection);
    void forget(const std::weak_ptr<tdw::Connection>& connection);

    mutable std::mutex m_lock;
    std::shared_ptr<tdw::Connection> m_connection;
    std::shared_ptr<Subscription> m_subscription;
    std::shared_ptr<const ResourceLimitHandler> m_resourceLimitHandler;
    std::uint64_t m_period = 0;
};
