#pragma once

#include "Platform/Values/Error.h"
#include "Platform/Values/Result.h"
#include "Support/Backoff.h"
#include "Support/DevicePresence.h"

#include <chrono>
#include <optional>
#include <set>
#include <variant>
#include <vector>

namespace tdw {

/// What a device monitor does about what happens. Knows no connection, thread or clock.
///
///      subscribing ──subscribed──> streaming
///          ^   │ failed                │ the service ended
///          │   v                       │
///         pausing <────────────────────┘
///
/// The list of devices is asked for after each subscription, and when the last device has left: it
/// tells which devices went unseen, and whether there is a multiplexer at all. Where it cannot be
/// had, it is asked for again after a growing pause.
class MonitorPolicy {
public:
    using Time = Backoff::Clock::time_point;

    /// Connect and subscribe.
    struct Subscribe { };
    /// Give the connection up.
    struct Disconnect { };
    struct ListDevices { };
    /// Call `waited` after a delay; replaces the wait before it.
    struct Wait {
        std::chrono::milliseconds delay {};
    };
    /// Tell the application why nothing can be known, or that it can again.
    struct Outage {
        std::optional<Error> reason;
    };
    /// An event goes to the application.
    using Action = std::variant<DeviceEvent, Outage, Subscribe, Disconnect, ListDevices, Wait>;
    using Actions = std::vector<Action>;

    /// The least pause between two lists: each is a process.
    static constexpr std::chrono::milliseconds kMinimumListPause { 1000 };

    Actions started(Time now);
    Actions subscribed(Time now);
    Actions received(const DeviceEvent& event, Time now);
    /// @param devices errors: those of the server; those of the connection end that as well
    Actions listed(const Result<std::set<DevicePath>>& devices, Time now);
    /// The subscription failed, or the connection of one that succeeded has ended.
    Actions failed(const Error& reason, Time now);
    Actions waited(Time now);

private:
    enum class State { Subscribing, Streaming, Pausing };
    enum class Knowledge { NothingTold, Known, Unknown };

    Actions subscribe(Time now);
    Actions list(Time now);
    void tell(Actions& actions, const DevicePresence::Events& events);
    void know(Actions& actions);
    void doNotKnow(Actions& actions, const Error& reason);

    State m_state = State::Subscribing;
    Knowledge m_knowledge = Knowledge::NothingTold;
    /// Of an outage, what was told last.
    std::optional<Error> m_reason;
    DevicePresence m_presence;
    bool m_isListing = false;
    Backoff m_subscriptionBackoff;
    Backoff m_listBackoff;
};

} // namespace tdw
