#include "Platform/Messages/Connection.h"

#include "Platform/Messages/MessageChannel.h"
#include "Platform/NeverDestroyed.h"
#include "Platform/System/Trace.h"

#include <cassert>
#include <mutex>
#include <utility>
#include <variant>

namespace tdw {

namespace {

Error invalidated()
{
    return Error(kCocoaErrorDomain, kConnectionInvalidError,
        std::string_view("The connection has been invalidated."));
}

Error interrupted(const Error& cause)
{
    const Dictionary userInfo { { kLocalizedFailureReasonErrorKey,
                                    "The connection was interrupted: " + cause.failureReason() },
        { kUnderlyingErrorKey, cause } };
    return Error(kCocoaErrorDomain, kConnectionInterruptedError, userInfo);
}

Error closed()
{
    return Error(kCocoaErrorDomain, kConnectionClosedError,
        std::string_view("The connection had ended before the message was sent."));
}

} // namespace

std::shared_ptr<const Queue> Connection::sharedQueue()
{
    struct Shared {
        std::mutex mutex;
        std::weak_ptr<const Queue> queue;
    };
    // Threads may still make connections while the process exits.
    static const auto& shared = neverDestroyed(std::make_unique<Shared>());
    const std::lock_guard lock(shared->mutex);
    auto queue = shared->queue.lock();
    if (!queue) {
        queue = std::make_shared<const Queue>(Queue::serial("TDWConnections"));
        shared->queue = queue;
    }
    return queue;
}

std::shared_ptr<Connection> Connection::toService(ServiceIdentity service)
{
    Opener opener;
    opener.look = [service] {
        return connectToRunningService(service);
    };
    opener.start = [service = std::move(service)](const IsCancelled& isCancelled) {
        return connectToService(service, StartPolicy::Start, isCancelled);
    };
    return std::shared_ptr<Connection>(
        new Connection(sharedQueue(), ConnectionState::Origin::Ours, std::move(opener)));
}

std::shared_ptr<Connection> Connection::toEndpoint(Endpoint endpoint)
{
    Opener opener { .look = [endpoint = std::move(endpoint)] {
        return connectToTrustedSocket(endpoint.path());
    } };
    return std::shared_ptr<Connection>(
        new Connection(sharedQueue(), ConnectionState::Origin::Ours, std::move(opener)));
}

std::shared_ptr<Connection> Connection::accepted(FileHandle socket, Queue queue)
{
    std::shared_ptr<Connection> connection(new Connection(
        std::make_shared<const Queue>(std::move(queue)), ConnectionState::Origin::Theirs, {}));
    connection->m_acceptedSocket = std::move(socket);
    return connection;
}

Connection::Connection(
    std::shared_ptr<const Queue> queue, ConnectionState::Origin origin, Opener opener)
    : m_queue(std::move(queue))
    , m_opener(std::move(opener))
    , m_state(origin)
{
}

Connection::~Connection()
{
    if (!m_channel)
        return;
    // Where this is the queue, nothing more is read from now on: the other end is to learn that
    // nothing was done about what it sent meanwhile.
    if (m_queue->isCurrent())
        m_channel->close();
    else
        m_queue->async([channel = m_channel] { channel->close(); });
}

void Connection::activate(Handlers handlers)
{
    m_queue->async([self = shared_from_this(), handlers = std::move(handlers)]() mutable {
        self->m_handlers = std::move(handlers);
        if (self->m_acceptedSocket.isOpen())
            self->opened(std::move(self->m_acceptedSocket));
    });
}

void Connection::send(std::string_view selector, Array arguments, StartPolicy choice)
{
    submit({ .frame
               = encodeMessage({ std::string(selector), 0, std::move(arguments), traceAddress() }),
               .identifier = 0,
               .choice = choice },
        nullptr);
}

void Connection::send(std::string_view selector, Array arguments, ReplyHandler handler)
{
    const std::uint64_t identifier = ++m_lastIdentifier;
    submit({ .frame = encodeMessage(
                 { std::string(selector), identifier, std::move(arguments), traceAddress() }),
               .identifier = identifier },
        std::move(handler));
}

void Connection::submit(OutgoingMessage message, ReplyHandler handler)
{
    // Work of a queue is copied with its function, so what is large or unique is moved through.
    auto shared = std::make_shared<OutgoingMessage>(std::move(message));
    m_queue->async([self = shared_from_this(), shared, handler = std::move(handler)]() mutable {
        self->handle(std::move(*shared), std::move(handler));
    });
}

void Connection::handle(OutgoingMessage message, ReplyHandler handler)
{
    if (!message.frame) {
        if (handler)
            handler(message.frame.error());
        return;
    }
    if (handler) {
        m_pending.emplace(message.identifier, std::move(handler));
        m_keptAlive = shared_from_this();
    }
    const auto event = message.choice == StartPolicy::Start ? ConnectionState::Event::Message
                                                            : ConnectionState::Event::Notice;
    m_kept.push_back(std::move(message));
    proceed(event, closed());
}

void Connection::proceed(ConnectionState::Event event, const Error& reason)
{
    for (const ConnectionState::Action action : m_state.next(event))
        perform(action, reason);
}

void Connection::perform(ConnectionState::Action action, const Error& reason)
{
    using enum ConnectionState::Action;
    switch (action) {
    case Keep:
        return;
    case Send:
    case SendKept:
        return sendKept();
    case Look:
        return opened(m_opener.look());
    case Open:
        return open();
    case Close:
        m_channel->close();
        m_channel.reset();
        return;
    case ReportInterruption:
        return report(&Handlers::interruption);
    case ReportInvalidation:
        return report(&Handlers::invalidation);
    case Refuse:
    case FailWaiting:
        return failWaiting(reason);
    }
}

void Connection::sendKept()
{
    // Sending may end the channel.
    const auto channel = m_channel;
    for (OutgoingMessage& message : std::exchange(m_kept, {}))
        channel->send(*std::move(message.frame), message.identifier);
}

void Connection::open()
{
    auto socket = m_opener.look();
    if (socket || !m_opener.start)
        return opened(std::move(socket));
    // The work alone keeps its queue, so that nothing waits for it where the process ends first.
    const Queue queue = Queue::serial("TDWServiceStart");
    queue.async([queue, self = shared_from_this()] {
        const auto started = std::make_shared<Result<FileHandle>>(
            self->m_opener.start([self] { return self->m_isInvalidated.load(); }));
        self->m_queue->async([self, started] { self->opened(std::move(*started)); });
    });
}

void Connection::opened(Result<FileHandle> socket)
{
    const auto isOpen = [&]() -> Result<void> {
        return openChannel(TDW_TRY(std::move(socket)));
    }();
    if (isOpen)
        proceed(ConnectionState::Event::Opened, closed());
    else
        proceed(ConnectionState::Event::NotOpened, isOpen.error());
}

Result<void> Connection::openChannel(FileHandle socket)
{
    const auto whileAlive = [weak = weak_from_this()](const auto& action) {
        if (const auto self = weak.lock())
            action(*self);
    };
    MessageChannel::Handlers handlers {
        .message =
            [whileAlive](Message message) {
                whileAlive([&](Connection& self) { self.received(std::move(message)); });
            },
        .reply =
            [whileAlive](Reply reply) {
                whileAlive([&](Connection& self) { self.received(std::move(reply)); });
            },
        .ended =
            [whileAlive](const Error& error, const std::vector<std::uint64_t>& unread) {
                whileAlive([&](Connection& self) { self.ended(error, unread); });
            },
    };
    m_channel = TDW_TRY(MessageChannel::create(std::move(socket), *m_queue, std::move(handlers)));
    m_channel->start();
    return {};
}

void Connection::received(Message message)
{
    MessageReply::Sender sender;
    if (message.identifier != 0) {
        // The reply belongs to the channel that the message came through, not to one made later.
        sender = [channel = m_channel, queue = *m_queue, identifier = message.identifier](
                     Result<Array> content) {
            const auto reply = [&]() -> Reply {
                if (content)
                    return { identifier, *std::move(content) };
                return { identifier, std::move(content.error()) };
            }();
            auto frame = encodeReply(reply);
            if (!frame)
                frame = encodeReply({ identifier, frame.error() });
            assert(frame);
            queue.async([channel, frame = *std::move(frame)] {
                channel->send(frame);
                channel->answered();
            });
        };
    }
    IncomingMessage incoming { std::move(message.selector), std::move(message.arguments),
        MessageReply(std::move(sender)), std::move(message.trace) };
    if (m_handlers.message)
        m_handlers.message(std::move(incoming));
}

void Connection::received(Reply reply)
{
    auto entry = m_pending.extract(reply.identifier);
    // A reply without a request is the other end's error and has no effect.
    if (entry.empty())
        return;
    if (m_pending.empty())
        m_keptAlive.reset();
    if (auto* values = std::get_if<Array>(&reply.content))
        entry.mapped()(std::move(*values));
    else
        entry.mapped()(std::get<Error>(std::move(reply.content)));
}

void Connection::ended(const Error& error, const std::vector<std::uint64_t>& unread)
{
    std::vector<ReplyHandler> notSent;
    for (const std::uint64_t identifier : unread) {
        if (auto entry = m_pending.extract(identifier))
            notSent.push_back(std::move(entry.mapped()));
    }
    proceed(ConnectionState::Event::PeerGone, interrupted(error));
    for (const ReplyHandler& handler : notSent)
        handler(closed());
}

void Connection::invalidate()
{
    m_isInvalidated = true;
    m_queue->async([self = shared_from_this()] {
        self->proceed(ConnectionState::Event::Invalidated, invalidated());
    });
}

void Connection::report(std::function<void()> Handlers::*handler)
{
    const Handlers handlers = std::exchange(m_handlers, {});
    if (handlers.*handler)
        (handlers.*handler)();
}

void Connection::failWaiting(const Error& reason)
{
    m_kept.clear();
    const auto keptAlive = std::exchange(m_keptAlive, nullptr);
    for (const auto& [identifier, handler] : std::exchange(m_pending, {}))
        handler(reason);
}

} // namespace tdw
