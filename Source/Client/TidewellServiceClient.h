#pragma once

#include "Client/TidewellServiceProtocol.h"
#include "Platform/CallbackQueue.h"
#include "Platform/Endpoint.h"
#include "Platform/Error.h"
#include "Platform/Export.h"
#include "Platform/Value.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tdw {
class Connection;
class Log;
} // namespace tdw

/// Everything an application needs: the devices of this user, asked through the service.
///
///     const auto client = TidewellServiceClient::initWithQueue(tdw::Queue::main());
///     client->deviceListWithCompletionHandler([](const tdw::Value& envelope) {
///         std::optional<tdw::Error> error;
///         if (const auto list = TDWResponseUnwrap(envelope, error))
///             …
///     });
///     tdw::dispatchMain();
///
/// The first request connects, and starts the service where none runs. Every request returns at
/// once; its handler is called once, with the server's response envelope, or with an error envelope
/// where the service cannot be reached. The client sets no deadline of its own: the service ends a
/// server that takes longer than its request allows (10 seconds, 20 for pairing).
///
/// Every handler runs on the callback queue, never on the caller's stack. All functions may be
/// called from any thread.
///
/// A connection that is lost is made anew by the next request, which also renews the subscription
/// to device events; until then no events come. While it is connected, the connection holds the
/// client: an application that is done with it calls `invalidate` or
/// `invalidateTerminatingService`.
class TDW_EXPORT TidewellServiceClient
    : public TidewellClientProtocol,
      public std::enable_shared_from_this<TidewellServiceClient> {
public:
    /// Takes a response envelope; `TDWResponseUnwrap` opens it.
    using CompletionHandler = std::function<void(const tdw::Value& envelope)>;

    /// Takes an error, or none on success.
    using ErrorHandler = std::function<void(const std::optional<tdw::Error>& error)>;

    /// Takes one event: "type,connection,UDID", with type 1 for a device that has come, 2 for one
    /// that has gone, 3 for one that has been paired, and connection 1 for USB, 2 for the network.
    using EventHandler = std::function<void(const std::string& event)>;

    /// @param endpoint reaches the service behind it, instead of the user's own by name
    /// @param queue the main queue where none is given
    static std::shared_ptr<TidewellServiceClient> initWithEndpoint(
        std::optional<tdw::Endpoint> endpoint,
        std::optional<tdw::CallbackQueue> queue = std::nullopt);
    static std::shared_ptr<TidewellServiceClient> initWithQueue(tdw::CallbackQueue queue);

    /// A client of its own with the other's endpoint and callback queue.
    static std::shared_ptr<TidewellServiceClient> initWithClient(
        const TidewellServiceClient& client);

    TidewellServiceClient(const TidewellServiceClient&) = delete;
    TidewellServiceClient& operator=(const TidewellServiceClient&) = delete;
    ~TidewellServiceClient() override;

    const std::optional<tdw::Endpoint>& endpoint() const { return m_endpoint; }
    const tdw::CallbackQueue& callbackQueue() const { return m_callbackQueue; }

    /// What is called when the service reports that it has reached a resource limit, with its
    /// uptime in seconds. The client itself does nothing about it.
    void setServiceReachedResourceLimit(std::function<void(const tdw::Value& uptime)> handler);

    /// Ends the subscription and the connection, and the service with them. The client can still
    /// be used; a later request connects anew, without a subscription.
    void invalidate();
    void invalidateTerminatingService(bool terminatesService);

    /// Lists the devices that can be reached now.
    void deviceListWithCompletionHandler(CompletionHandler handler);

    /// Tells about one device.
    /// @param connectionType 1 for USB only, 2 for the network only, anything else for both
    void deviceInfoWithUDID(const std::string& udid, bool includeCompanionIdentifiers,
        std::uint64_t connectionType, CompletionHandler handler);

    /// Tells the state of a device's battery.
    void deviceBatteryWithUDID(
        const std::string& udid, std::uint64_t connectionType, CompletionHandler handler);

    /// Tell about watches, or their batteries alone.
    /// @param companionDeviceIdentifiers as the request for device information gives them
    void companionDevicesForDeviceWithUDID(const std::string& udid, std::uint64_t connectionType,
        const std::vector<std::string>& companionDeviceIdentifiers, CompletionHandler handler);
    void companionBatteriesForDeviceWithUDID(const std::string& udid, std::uint64_t connectionType,
        const std::vector<std::string>& companionDeviceIdentifiers, CompletionHandler handler);

    /// Allows or forbids connections over Wi-Fi.
    void setWirelessEnabled(bool isEnabled, const std::string& udid, CompletionHandler handler);

    /// Sets the host that a device synchronises with.
    void setWirelessBuddyID(
        const std::string& buddyID, const std::string& udid, CompletionHandler handler);

    /// Write one of the settings that the configuration server allows.
    void deviceSetDomainKeyBoolValue(const std::string& udid, const std::string& domain,
        const std::string& key, bool value, CompletionHandler handler);
    void deviceSetDomainKeyValue(const std::string& udid, const std::string& domain,
        const std::string& key, const std::string& value, CompletionHandler handler);

    /// Pairs with a device, or removes the pairing.
    void pairDeviceWithUDID(const std::string& udid, CompletionHandler handler);
    void unpairDeviceWithUDID(const std::string& udid, CompletionHandler handler);

    /// Gives a preview of a wallpaper as a PNG.
    /// @param wallpaperName 0 for the lock screen, 1 for the home screen
    /// @param widthPixels sent with two decimals
    void getWallpaperPreviewImageForDeviceWithUDID(const std::string& udid,
        std::uint64_t connectionType, std::uint64_t wallpaperName, double widthPixels,
        CompletionHandler handler);

    /// Asks for the address of a listener with the same service behind it, for another client.
    /// @param handler takes the endpoint, or the error
    void getServiceEndpointWithCompletionHandler(std::function<void(
            const std::optional<tdw::Endpoint>& endpoint, const std::optional<tdw::Error>& error)>
            handler);

    /// Subscribes to device events, once in a client's life until `invalidate`. The events begin
    /// with the devices that are there.
    /// @param handler takes an error (33: there is a subscription already, which stays), or none.
    ///        The event handler stays whether the subscription succeeds or fails, and is tried
    ///        again with each new connection.
    void subscribeToDeviceEventsWithEventHandler(EventHandler eventHandler, ErrorHandler handler);

    /// What the service calls.
    void serviceReachedResourceLimitWithUptime(const tdw::Value& uptime) override;
    void serviceDidReceiveDeviceEvent(const std::string& event) override;

private:
    /// Called with the service, and once more with an error where a message to it fails; or with
    /// an error alone.
    using ServiceBlock = std::function<void(
        TidewellServiceProtocol* service, const std::optional<tdw::Error>& error)>;

    TidewellServiceClient(std::optional<tdw::Endpoint> endpoint, tdw::CallbackQueue queue);

    // The names are the interface's own.
    // NOLINTBEGIN(readability-identifier-naming)
    void _invokeServer(std::string_view server, std::vector<std::string> arguments, double timeout,
        CompletionHandler handler);
    std::shared_ptr<tdw::Connection> _ensureConnection();
    void _performWithServiceObject(const ServiceBlock& block);
    void _subscribeToDeviceEventsWithEventHandler(EventHandler eventHandler, ErrorHandler handler);
    void _resubscribeToDeviceEventsIfNeeded();
    // NOLINTEND(readability-identifier-naming)

    void performWithServiceObject(const ServiceBlock& block, bool isFirstAttempt);
    void createConnection();
    void forget(const std::weak_ptr<tdw::Connection>& connection);
    EventHandler eventHandler() const;
    void setEventHandler(EventHandler handler);

    const std::optional<tdw::Endpoint> m_endpoint;
    const tdw::CallbackQueue m_callbackQueue;
    const std::unique_ptr<const tdw::Log> m_log;

    /// Recursive, because making a connection renews the subscription, which asks for the
    /// connection.
    std::recursive_mutex m_connectionLock;
    std::shared_ptr<tdw::Connection> m_connection;

    mutable std::mutex m_handlersLock;
    EventHandler m_eventHandler;
    std::function<void(const tdw::Value& uptime)> m_serviceReachedResourceLimit;
};
