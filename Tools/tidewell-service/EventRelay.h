#pragma once

#include "DevicePresence.h"
#include "Host/StreamingServerRun.h"
#include "Platform/Bundle.h"
#include "Platform/Log.h"
#include "Platform/Queue.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace tdw::service {

/// One events server for all subscribers.
///
///      no subscriber ──subscribe──> starting ──first line, or quiet──> streaming
///            ^                         ^  │ ends                          │ ends
///            │                         │  └─> subscribers that wait       │
///            │                         │      get the error               │
///            └── last one leaves ──────┴────────── pause <────────────────┘
///
/// A subscription has succeeded once the events server has: it ends at once where it cannot
/// subscribe, and says nothing where it can and there are no devices. An events server that ends is
/// started again after a pause, which grows as long as it does not live; what came and went
/// meanwhile reaches the subscribers as if it happened then.
///
/// Belongs to a serial queue: all functions are called there, and all handlers are.
class EventRelay : public std::enable_shared_from_this<EventRelay> {
public:
    using LineHandler = std::function<void(const std::string&)>;
    using ReplyHandler = std::function<void(const std::optional<Error>&)>;

    /// Asks for the devices that are there now; none where that cannot be told.
    using ListDevices
        = std::function<void(std::function<void(std::optional<std::set<DevicePath>>)>)>;

    /// Quiet that long after its start, an events server has subscribed.
    static constexpr std::chrono::milliseconds kQuietStart { 250 };
    static constexpr std::chrono::milliseconds kShortestPause { 100 };
    static constexpr std::chrono::milliseconds kLongestPause { 10000 };
    /// An events server that lived that long is no reason to wait longer the next time.
    static constexpr std::chrono::seconds kGoodLife { 10 };

    EventRelay(Queue queue, Bundle bundle, ListDevices listDevices);

    /// @param identifier of the subscriber; one that subscribes again replaces what it had
    /// @param reply called once
    void subscribe(std::uint64_t identifier, LineHandler lines, ReplyHandler reply);
    void unsubscribe(std::uint64_t identifier);

    /// Forgets all subscribers and kills the events server.
    /// @param done called when it is gone, so that nobody else has to clean up after it
    void stop(std::function<void()> done);

private:
    enum class State { Stopped, Starting, Streaming, Pausing };
    using Clock = std::chrono::steady_clock;

    struct Subscriber {
        LineHandler lines;
        /// Null once it has been called.
        ReplyHandler reply;
    };

    void start();
    void started();
    void received(const std::string& line);
    void ended(const std::optional<Error>& error);
    void pause();
    void endServer(int signalNumber);
    void endWork();
    void failWaiting(const Error& error);
    void welcome(Subscriber& subscriber);
    void confirmDevices();
    void tell(const DevicePresence::Lines& lines) const;
    void after(std::chrono::milliseconds delay, void (EventRelay::*action)());

    const Queue m_queue;
    const Queue m_waitQueue = Queue::serial("TDWEventsServer");
    const Bundle m_bundle;
    const ListDevices m_listDevices;
    const Log m_log;

    State m_state = State::Stopped;
    std::map<std::uint64_t, Subscriber> m_subscribers;
    DevicePresence m_presence;
    std::shared_ptr<StreamingServerRun> m_run;
    /// Events servers that have not ended, those that were told to among them.
    std::size_t m_living = 0;
    std::function<void()> m_whenNoneLives;
    /// Which events server the handlers belong to; those of an earlier one count no more.
    std::uint64_t m_generation = 0;
    WorkItem m_timer;
    Clock::time_point m_startTime {};
    std::chrono::milliseconds m_pause = kShortestPause;
};

} // namespace tdw::service
