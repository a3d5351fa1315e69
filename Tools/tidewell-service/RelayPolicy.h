#pragma once

#include "Platform/Values/Error.h"
#include "Support/Backoff.h"
#include "Support/DevicePresence.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tdw::service {

/// When an events server runs, and what subscribers are told: events and times go in, actions come
/// out, in the order in which they are to be taken.
///
///      no subscriber ──subscribe──> starting ──first event, or quiet──> streaming
///            ^                         ^  │ ends                          │ ends
///            │                         │  └─> subscribers that wait       │
///            │                         │      get the error               │
///            └── last one leaves ──────┴────────── pause <────────────────┘
///
/// A subscription has succeeded once the events server has: it ends at once where it cannot
/// subscribe, and says nothing where it can and there are no devices. An events server that ends is
/// started again after a pause, which grows as long as it does not live; what came and went
/// meanwhile reaches the subscribers as if it happened then.
class RelayPolicy {
public:
    using Clock = Backoff::Clock;
    using Subscriber = std::uint64_t;

    struct StartServer { };
    /// The present events server is to end; what it says from now on does not count.
    struct EndServer { };
    /// There is one timer: this replaces the one before.
    struct SetTimer {
        std::chrono::milliseconds delay;
    };
    struct CancelTimer { };
    struct Reply {
        Subscriber subscriber {};
        std::optional<Error> error {};
    };
    struct Tell {
        Subscriber subscriber {};
        DeviceEvent event {};
    };
    /// The devices that are there now are to be listed, for `listed`.
    struct ListDevices { };
    using Action
        = std::variant<StartServer, EndServer, SetTimer, CancelTimer, Reply, Tell, ListDevices>;
    using Actions = std::vector<Action>;

    /// Quiet that long after its start, an events server has subscribed.
    static constexpr std::chrono::milliseconds kQuietStart { 250 };
    /// One that writes something else than events has probably failed; its end says why.
    static constexpr std::chrono::milliseconds kNoisyStart { 2000 };

    /// @param subscriber one that subscribes again replaces what it had
    Actions subscribed(Subscriber subscriber, Clock::time_point now);
    Actions unsubscribed(Subscriber subscriber);

    /// The present events server runs.
    Actions started();

    /// A line of the present events server.
    Actions received(std::string_view line);

    /// The present events server has ended, or could not be started.
    Actions ended(const Error& error, Clock::time_point now);
    Actions timerFired(Clock::time_point now);

    /// @param devices none where they cannot be told
    Actions listed(const std::optional<std::set<DevicePath>>& devices);

    std::size_t subscriberCount() const { return m_subscribers.size(); }
    bool isSubscribed(Subscriber subscriber) const { return m_subscribers.contains(subscriber); }

private:
    enum class State {
        /// There is no subscriber, and no events server.
        Stopped,
        /// An events server runs, and has not shown yet whether it could subscribe.
        Starting,
        /// It could: subscribers are told what it says.
        Streaming,
        /// It has ended, and the next one waits for the timer.
        Pausing,
    };
    enum class Place { Waiting, Told };

    void start(Actions& actions, Clock::time_point now);
    void succeeded(Actions& actions);
    void welcome(Actions& actions, Subscriber subscriber);
    void tell(Actions& actions, const DevicePresence::Events& events) const;

    State m_state = State::Stopped;
    std::map<Subscriber, Place> m_subscribers;
    DevicePresence m_presence;
    Backoff m_backoff;
    bool m_isNoisy = false;
};

} // namespace tdw::service
