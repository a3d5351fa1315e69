#pragma once

#include "Client/RequestArguments.h"
#include "Client/TidewellServiceProtocol.h"
#include "Platform/Export.h"
#include "Platform/Messages/Endpoint.h"
#include "Platform/Queues/CallbackQueue.h"
#include "Platform/Values/Error.h"
#include "Platform/Values/Value.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

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
/// where the service cannot be reached.
///
/// The client sets no deadline of its own. The service ends a server that takes longer than its
/// request allows (10 seconds, 20 for pairing), but a service that is stopped answers nothing, and
/// an application that does not want to wait for it any longer ends the wait by
/// `invalidateTerminatingService(false)`: what waits for an answer fails, within moments.
///
/// A request that the service went away without having read is sent once more, to the next service;
/// one that only reads also where the service went without having read all of several requests.
/// Otherwise a request whose service is lost fails with `NSCocoaErrorDomain` 4097: it may have been
/// carried out, and one that only reads can be made again. 4099: the client was invalidated
/// meanwhile.
///
/// Every handler runs on the callback queue, never on the caller's stack, and is destroyed there
/// with everything that it holds. A handler may be null, and its request costs nothing more then.
/// An exception that leaves a handler ends the process where it was thrown. All functions may be
/// called from any thread, and in handlers.
///
/// A connection that is lost is made again by the next request, which also renews the subscription
/// to device events; until then no events come (`tdw::DeviceMonitor` renews by itself). While it is
/// connected, the connection holds the client: an application that is done with it calls
/// `invalidate` or `invalidateTerminatingService`.
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

    /// Takes the service's uptime in seconds, a number.
    using ResourceLimitHandler = std::function<void(const tdw::Value& uptime)>;

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

    const std::optional<tdw::Endpoint>& endpoint() const;
    const tdw::CallbackQueue& callbackQueue() const;

    /// What is called when the service reports that it has reached a resource limit; null where
    /// nothing is. The client itself does nothing about it.
    ResourceLimitHandler serviceReachedResourceLimit() const;
    void setServiceReachedResourceLimit(ResourceLimitHandler handler);

    /// Ends the subscription and the connection, and the service with them; requests that wait for
    /// an answer fail. After that nothing is connected or started for their sake. The client can
    /// still be used: a later request connects again, without a subscription.
    void invalidate();
    void invalidateTerminatingService(bool terminatesService);

    /// Sends any of the requests that are named below.
    void send(const tdw::DeviceQuery& query, CompletionHandler handler);

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
    /// with the devices that are there. With a null event handler no event is delivered, and the
    /// client counts as not subscribed.
    /// @param handler takes an error (33: there is a subscription already, which stays), or none.
    ///        The event handler stays whether the subscription succeeds or fails, and is tried
    ///        again with each new connection.
    void subscribeToDeviceEventsWithEventHandler(EventHandler eventHandler, ErrorHandler handler);

    /// What the service calls.
    void serviceReachedResourceLimitWithUptime(const tdw::Value& uptime) override;
    void serviceDidReceiveDeviceEvent(const std::string& event) override;

private:
    class State;
    explicit TidewellServiceClient(std::unique_ptr<State> state);

    const std::unique_ptr<State> m_state;
};
