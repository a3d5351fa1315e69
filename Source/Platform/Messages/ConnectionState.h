#pragma once

#include <vector>

namespace tdw {

/// What a connection does about what happens to it. Knows no socket, thread or clock.
///
///      Idle ──message──> Opening ──opened──> Open ──the other end goes──> Interrupted
///       │ ^                 │                  │
///       │ └─── Looking ─────│──────opened──────┘
///       └───────────────────┴──────────────────┴─ not opened, or invalidated ──> Invalid
class ConnectionState {
public:
    enum class Value {
        /// Nothing has been sent yet, and there is no socket.
        Idle,
        /// A notice waits for a look whether there is another end; none is started for its sake.
        Looking,
        /// Messages wait for a socket, and for a service to start where none runs.
        Opening,
        /// There is a socket.
        Open,
        /// The other end is gone, and nothing is sent any more.
        Interrupted,
        /// No other end could be had, or the owner has ended the connection.
        Invalid,
    };

    enum class Event {
        /// Something to send.
        Message,
        /// Something to send that no service is started for.
        Notice,
        Opened,
        NotOpened,
        PeerGone,
        Invalidated,
    };

    enum class Action {
        /// The message of the event waits for a socket.
        Keep,
        Send,
        /// The message of the event is refused: the connection has ended.
        Refuse,
        /// Connect where a service listens.
        Look,
        /// Connect, and start the service where none listens.
        Open,
        SendKept,
        Close,
        ReportInterruption,
        ReportInvalidation,
        /// Whatever waits for a socket or a reply fails.
        FailWaiting,
    };

    /// Which end made the connection. One that the other end made cannot be had again: it is
    /// invalid, not interrupted, once that end has gone.
    enum class Origin { Ours, Theirs };

    explicit ConnectionState(Origin origin)
        : m_origin(origin)
    {
    }

    Value value() const { return m_value; }

    /// Takes an event. Returns what is to be done about it, in this order.
    std::vector<Action> next(Event event);

private:
    std::vector<Action> end(Value value);

    const Origin m_origin;
    Value m_value = Value::Idle;
};

} // namespace tdw
