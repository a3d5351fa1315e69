#pragma once

#include "Interfaces/TDWDeviceEvent.h"
#include "Platform/Export.h"
#include "Platform/Messages/Endpoint.h"
#include "Platform/Queues/CallbackQueue.h"
#include "Platform/Values/Error.h"

#include <functional>
#include <memory>
#include <optional>
#include <set>

namespace tdw {

/// Tells an application which devices are there, for as long as it wants to know.
///
///     const auto monitor = tdw::DeviceMonitor::start(tdw::Queue::main(),
///         { .event = [](const tdw::DeviceEvent& event) { … },
///             .outage = [](const std::optional<tdw::Error>& reason) { … } });
///
/// It starts the service where none runs, subscribes to its events, and subscribes again by itself
/// when the service ends, after a pause that grows from 100 ms to 10 s. What came and went
/// meanwhile is told once the next service is there; what stayed is not told again. The events
/// always add up to what is there: each device is attached and detached in turn, by each way to it.
///
/// All functions may be called from any thread.
class TDW_EXPORT DeviceMonitor {
public:
    /// They run on the callback queue, one after the other where the queue runs its blocks so, and
    /// are destroyed there. Each may be null. An exception that leaves one ends the process.
    struct Handlers {
        /// A device has come, has gone, or has been paired. The first events are the devices that
        /// are there already. A pairing is told once, within seconds also where the multiplexer
        /// does not report it (that of Debian 13 and later).
        std::function<void(const DeviceEvent& event)> event {};

        /// Called with the reason as soon as the monitor cannot know which devices are there: no
        /// service can be had, no multiplexer runs (`isDeviceNotFound`), no events server can be
        /// run. Called again where the reason changes. The devices told last count as present until
        /// more is known. Called without a reason when the monitor knows again, and the first time
        /// that it knows.
        ///
        /// Whether there is a multiplexer is asked after each subscription and when the last device
        /// has left, and then, after a growing pause, until there is one.
        std::function<void(const std::optional<Error>& reason)> outage {};
    };

    /// @param queue where the handlers run
    /// @param endpoint reaches the service behind it, instead of the user's own by name
    static DeviceMonitor start(CallbackQueue queue, Handlers handlers,
        const std::optional<Endpoint>& endpoint = std::nullopt);

    DeviceMonitor(DeviceMonitor&& other) noexcept;
    DeviceMonitor& operator=(DeviceMonitor&& other) noexcept;
    DeviceMonitor(const DeviceMonitor&) = delete;
    DeviceMonitor& operator=(const DeviceMonitor&) = delete;

    /// Ends the subscription. No handler starts after that; on another thread than the callback
    /// queue's, one may be running still. Never waits.
    ~DeviceMonitor();

    /// The devices that are there: those of the events that have been delivered until now.
    std::set<DevicePath> devices() const;

private:
    class Core;
    explicit DeviceMonitor(std::shared_ptr<Core> core);
    std::shared_ptr<Core> m_core;
};

} // namespace tdw
