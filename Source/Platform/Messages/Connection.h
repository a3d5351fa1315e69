#pragma once

#include "Platform/Messages/ConnectionState.h"
#include "Platform/Messages/Endpoint.h"
#include "Platform/Messages/Message.h"
#include "Platform/Messages/ServiceStart.h"
#include "Platform/Queues/Queue.h"
#include "Platform/System/FileHandle.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tdw {

class MessageChannel;

/// Codes in `kCocoaErrorDomain` of messages that never get their reply.
inline constexpr std::int64_t kConnectionInterruptedError = 4097;
inline constexpr std::int64_t kConnectionInvalidError = 4099;
inline constexpr std::int64_t kConnectionClosedError = 4100;
inline constexpr std::int64_t kReplyInvalidError = 4101;

/// The right and the duty to answer one message: a handle, whose copies all mean the same reply.
/// The first answer counts; without any, the last copy answers with an error as it goes. Safe for
/// use by several threads at once.
class MessageReply {
public:
    using Sender = std::function<void(Result<Array>)>;

    /// @param sender null where no reply is wanted
    explicit MessageReply(Sender sender);

    void succeed(Array values = {}) const;
    void fail(Error error) const;

private:
    class State;
    std::shared_ptr<State> m_state;
};

/// A message of the other end, with what it is to be answered with.
struct IncomingMessage {
    std::string selector;
    Array arguments;
    MessageReply reply;
    /// As `Message::trace`.
    std::string trace {};
};

/// A connection to another process of this user, over which both sides send messages.
///
///     auto connection = Connection::toService({ "org.example.Service", "example-service" });
///     connection->activate({ .message = …, .interruption = …, .invalidation = … });
///     connection->send("list", {}, [](Result<Array> reply) { … });
///
/// Making one succeeds always and sends nothing; the first message connects, and starts the service
/// where it must (`ConnectionState` has the whole of it). When the other end goes away, the
/// interruption handler runs, then what waits for replies fails. From then on, as after an
/// invalidation, nothing is sent, and messages fail with `kConnectionClosedError`: what the
/// connection meant to the other end, a subscription say, went with it, so that its owner has to
/// make a new one. A connection that the other end made is invalid then. A message gets its reply
/// or its error, exactly once.
///
/// Safe for use by several threads at once. Handlers run on the connection's queue, one at a time;
/// the connections that this process makes share one queue, and one thread. No handler may block.
/// While messages wait for a socket or for their replies the connection keeps itself alive;
/// otherwise it ends, without calling handlers, with its last owner.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    using ReplyHandler = std::function<void(Result<Array>)>;

    struct Handlers {
        /// What the other end asks. Without one, everything is answered with an error.
        std::function<void(IncomingMessage)> message {};
        /// The other end is gone.
        std::function<void()> interruption {};
        /// No other end can be had, or the connection was invalidated. Of this and
        /// `interruption`, one runs, once; all handlers are given up after it.
        std::function<void()> invalidation {};
    };

    static std::shared_ptr<Connection> toService(ServiceIdentity service);
    static std::shared_ptr<Connection> toEndpoint(Endpoint endpoint);

    /// What a listener accepted. It is open from its activation on.
    /// @param queue a serial one; several connections may share it
    static std::shared_ptr<Connection> accepted(FileHandle socket, Queue queue);

    /// The queue of the connections that this process makes, as long as one of them, or this,
    /// lives.
    static std::shared_ptr<const Queue> sharedQueue();

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection();

    /// To be called once, before anything is sent.
    void activate(Handlers handlers);

    /// Sends a message that gets no reply. What cannot be sent is lost.
    /// @param choice whether a service is started for its sake
    void send(
        std::string_view selector, Array arguments = {}, StartPolicy choice = StartPolicy::Start);

    /// Sends a message. Errors of the reply: the other end's own; the reason why there is no
    /// connection; `kConnectionInterruptedError` (it may or may not have arrived; with ECONNRESET
    /// as its underlying error, the other end left something unread); `kConnectionClosedError` (it
    /// did not arrive: the connection had ended, or the other end went without reading it);
    /// `kConnectionInvalidError` (the owner ended the connection meanwhile); what of the arguments
    /// cannot be sent.
    void send(std::string_view selector, Array arguments, ReplyHandler handler);

    /// Ends the connection: what waits for a reply fails, then the invalidation handler runs.
    void invalidate();

private:
    /// How a socket is had.
    struct Opener {
        /// Without a wait, and only where a service listens.
        std::function<Result<FileHandle>()> look {};
        /// On a thread of its own, because a service has to be started first.
        std::function<Result<FileHandle>(const IsCancelled&)> start {};
    };

    struct OutgoingMessage {
        Result<Data> frame;
        std::uint64_t identifier = 0;
        StartPolicy choice = StartPolicy::Start;
    };

    Connection(std::shared_ptr<const Queue> queue, ConnectionState::Origin origin, Opener opener);

    void submit(OutgoingMessage message, ReplyHandler handler);
    void handle(OutgoingMessage message, ReplyHandler handler);
    void proceed(ConnectionState::Event event, const Error& reason);
    void perform(ConnectionState::Action action, const Error& reason);
    void sendKept();
    void open();
    void opened(Result<FileHandle> socket);
    Result<void> openChannel(FileHandle socket);
    void received(Message message);
    void received(Reply reply);
    void ended(const Error& error, const std::vector<std::uint64_t>& unread);
    void report(std::function<void()> Handlers::*handler);
    void failWaiting(const Error& reason);

    /// Shared, because the last of the connections that share it ends it.
    const std::shared_ptr<const Queue> m_queue;
    const Opener m_opener;
    std::atomic<std::uint64_t> m_lastIdentifier = 0;
    std::atomic<bool> m_isInvalidated = false;

    // Everything below belongs to the queue.
    ConnectionState m_state;
    Handlers m_handlers;
    FileHandle m_acceptedSocket;
    std::shared_ptr<MessageChannel> m_channel;
    /// Messages that wait for a socket.
    std::vector<OutgoingMessage> m_kept;
    /// Those that wait for a reply, with or without a socket.
    std::map<std::uint64_t, ReplyHandler> m_pending;
    std::shared_ptr<Connection> m_keptAlive;
};

} // namespace tdw
