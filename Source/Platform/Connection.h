#pragma once

#include "Platform/Endpoint.h"
#include "Platform/Export.h"
#include "Platform/FileHandle.h"
#include "Platform/Message.h"
#include "Platform/Queue.h"
#include "Platform/ServiceStart.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace tdw {

class MessageChannel;

/// Codes in `kCocoaErrorDomain` of messages that never get their reply.
inline constexpr std::int64_t kConnectionInterruptedError = 4097;
inline constexpr std::int64_t kConnectionInvalidError = 4099;
inline constexpr std::int64_t kConnectionSpentError = 4100;
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
};

/// A connection to another process of this user, over which both sides send messages.
///
///     auto connection = Connection::toService({ "org.example.Service", "example-service" });
///     connection->activate({ .message = …, .interruption = …, .invalidation = … });
///     connection->send("list", {}, [](Result<Array> reply) { … });
///
///      made ──send──> connecting ──> open ──the other end goes──> interrupted
///                         │            │
///                         └────────────┴─ no service to be had, or `invalidate` ──> invalid
///
/// Making one succeeds always and sends nothing; the first message connects, and starts the service
/// where it must. When the other end goes away, the interruption handler runs, then what waits for
/// replies fails. From then on, as after an invalidation, nothing is sent, and messages fail with
/// `kConnectionSpentError`: what the connection meant to the other end, a subscription say, went
/// with it, so that its owner has to make a new one. A connection that the other end made is
/// invalid then. A message gets its reply or its error, exactly once.
///
/// Safe for use by several threads at once. Handlers run on the connection's queue, one at a time.
/// While replies are outstanding the connection keeps itself alive; otherwise it ends, without
/// calling handlers, with its last owner.
class TDW_EXPORT Connection : public std::enable_shared_from_this<Connection> {
public:
    using ReplyHandler = std::function<void(Result<Array>)>;

    struct Handlers {
        /// What the other end asks. Without one, everything is answered with an error.
        std::function<void(IncomingMessage)> message {};
        /// The other end is gone.
        std::function<void()> interruption {};
        /// No other end can be had, or somebody invalidated the connection. Of this and
        /// `interruption`, one runs, once; all handlers are given up after it.
        std::function<void()> invalidation {};
    };

    static std::shared_ptr<Connection> toService(ServiceIdentity service);
    static std::shared_ptr<Connection> toEndpoint(Endpoint endpoint);

    /// What a listener accepted. It is open from its activation on.
    /// @param queue a serial one; several connections may share it
    static std::shared_ptr<Connection> accepted(FileHandle socket, Queue queue);

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection();

    /// To be called once, before anything is sent.
    void activate(Handlers handlers);

    /// Sends a message that gets no reply. What cannot be sent is lost.
    /// @param choice whether a service is started for its sake
    void send(std::string_view selector, Array arguments = {},
        IfNobodyListens choice = IfNobodyListens::Start);

    /// Sends a message. Errors of the reply: the other end's own; the reason why there is no
    /// connection; `kConnectionInterruptedError` (it may or may not have arrived);
    /// `kConnectionSpentError`, `kConnectionInvalidError` (it was not sent); what of the arguments
    /// cannot be sent.
    void send(std::string_view selector, Array arguments, ReplyHandler handler);

    /// Ends the connection: what waits for a reply fails, then the invalidation handler runs.
    void invalidate();

private:
    using Opener = std::function<Result<FileHandle>(IfNobodyListens, const std::function<bool()>&)>;

    struct OutgoingMessage {
        Result<Data> frame;
        std::uint64_t identifier = 0;
        ReplyHandler handler;
        IfNobodyListens choice = IfNobodyListens::Start;
        bool isLate = false; // submitted after the invalidation
    };

    Connection(Queue queue, Opener opener, FileHandle socket);

    void submit(OutgoingMessage message);
    void sendNow(OutgoingMessage message);
    Result<void> open(IfNobodyListens choice);
    Result<void> openChannel(FileHandle socket);
    void received(Message message);
    void received(Reply reply);
    void ended(const Error& error);
    void finish(std::function<void()> Handlers::*handler, const Error& pending, Error later);
    void becomeInvalid(const Error& error);

    const Queue m_queue;
    const Opener m_opener;
    std::atomic<std::uint64_t> m_lastIdentifier = 0;
    std::atomic<bool> m_isInvalidated = false;

    // Everything below belongs to the queue.
    Handlers m_handlers;
    FileHandle m_acceptedSocket;
    std::shared_ptr<MessageChannel> m_channel;
    std::unordered_map<std::uint64_t, ReplyHandler> m_pending;
    std::shared_ptr<Connection> m_keptAlive;
    /// What a message fails with, once nothing is sent any more.
    std::optional<Error> m_end;
};

} // namespace tdw
