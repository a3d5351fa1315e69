#pragma once

#include "Host/EventStreamRun.h"
#include "Platform/Queues/Queue.h"
#include "Platform/System/Bundle.h"
#include "Platform/System/Log.h"
#include "RelayPolicy.h"
#include "ServerThread.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>

namespace tdw::service {

/// One events server for all subscribers: does what `RelayPolicy` decides.
///
/// Belongs to a serial queue: all functions are called there, and all handlers are.
class EventRelay : public std::enable_shared_from_this<EventRelay> {
public:
    using EventHandler = std::function<void(const DeviceEvent&)>;
    using ReplyHandler = std::function<void(const std::optional<Error>&)>;

    /// Asks for the devices that are there now; none where that cannot be told.
    using ListDevices
        = std::function<void(std::function<void(std::optional<std::set<DevicePath>>)>)>;

    EventRelay(
        Queue queue, Bundle bundle, std::shared_ptr<ServerThread> servers, ListDevices listDevices);

    /// @param identifier of the subscriber; one that subscribes again replaces what it had
    /// @param reply called once
    void subscribe(std::uint64_t identifier, EventHandler events, ReplyHandler reply);
    void unsubscribe(std::uint64_t identifier);
    std::size_t subscriberCount() const { return m_policy.subscriberCount(); }
    bool isSubscribed(std::uint64_t identifier) const { return m_policy.isSubscribed(identifier); }

    /// Forgets all subscribers and kills the events server.
    /// @param done called when it is gone, so that nothing is left to be cleaned up
    void stop(std::function<void()> done);

private:
    struct Subscriber {
        EventHandler events;
        /// Null once it has been called.
        ReplyHandler reply;
    };

    void take(const RelayPolicy::Actions& actions);
    void perform(RelayPolicy::StartServer action);
    void perform(RelayPolicy::EndServer action);
    void perform(const RelayPolicy::SetTimer& action);
    void perform(RelayPolicy::CancelTimer action);
    void perform(const RelayPolicy::Reply& action);
    void perform(const RelayPolicy::Tell& action);
    void perform(RelayPolicy::ListDevices action);

    void started(std::uint64_t generation, Result<std::shared_ptr<EventStreamRun>> run);
    void ended(std::uint64_t generation, const std::optional<Error>& error);
    void endServer(int signalNumber);

    const Queue m_queue;
    const Bundle m_bundle;
    const std::shared_ptr<ServerThread> m_servers;
    const ListDevices m_listDevices;
    const Log m_log;

    RelayPolicy m_policy;
    std::map<std::uint64_t, Subscriber> m_subscribers;
    std::shared_ptr<EventStreamRun> m_run;
    /// Which events server the handlers belong to; those of an earlier one count no more.
    std::uint64_t m_generation = 0;
    /// Events servers that have not ended, those that were told to among them.
    std::size_t m_living = 0;
    int m_lastSignal = 0;
    std::function<void()> m_whenNoneLives;
    WorkItem m_timer;
};

} // namespace tdw::service
