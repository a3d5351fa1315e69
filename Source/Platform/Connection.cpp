#include "Platform/Connection.h"

#include "Platform/MessageChannel.h"

#include <cassert>
#include <utility>
#include <variant>

namespace tdw {

namespace {

constexpr std::string_view kQueueLabel = "TDWConnection";

Error unanswered()
{
    return Error(kCocoaErrorDomain, kReplyInvalidError,
        std::string_view("The other end of the connection gave the message up."));
}

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

Error spent()
{
    return Error(kCocoaErrorDomain, kConnectionSpentError,
        std::string_view("The connection had ended before the message was sent."));
}

} // namespace

class MessageReply::State {
public:
    explicit State(Sender sender)
        : m_sender(std::move(sender))
    {
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() { answer(unanswered()); }

    void answer(Result<Array> content)
    {
        if (m_sender && !m_isAnswered.exchange(true))
            m_sender(std::move(content));
    }

private:
    const Sender m_sender;
    std::atomic<bool> m_isAnswered = false;
};

MessageReply::MessageReply(Sender sender)
    : m_state(std::make_shared<State>(std::move(sender)))
{
}

void MessageReply::succeed(Array values) const
{
    m_state->answer(std::move(values));
}

void MessageReply::fail(Error error) const
{
    m_state->answer(std::move(error));
}

std::shared_ptr<Connection> Connection::toService(ServiceIdentity service)
{
    auto opener = [service = std::move(service)](
                      IfNobodyListens choice, const std::function<bool()>& isCancelled) {
        return connectToService(service, choice, isCancelled);
    };
    return std::shared_ptr<Connection>(
        new Connection(Queue::serial(kQueueLabel), std::move(opener), {}));
}

std::shared_ptr<Connection> Connection::toEndpoint(Endpoint endpoint)
{
    auto opener = [endpoint = std::move(endpoint)](IfNobodyListens, const std::function<bool()>&) {
        return connectToTrustedSocket(endpoint.path());
    };
    return std::shared_ptr<Connection>(
        new Connection(Queue::serial(kQueueLabel), std::move(opener), {}));
}

std::shared_ptr<Connection> Connection::accepted(FileHandle socket, Queue queue)
{
    return std::shared_ptr<Connection>(
        new Connection(std::move(queue), nullptr, std::move(socket)));
}

Connection::Connection(Queue queue, Opener opener, FileHandle socket)
    : m_queue(std::move(queue))
    , m_opener(std::move(opener))
    , m_acceptedSocket(std::move(socket))
{
}

Connection::~Connection()
{
    if (m_channel)
        m_queue.async([channel = m_channel] { channel->close(); });
}

void Connection::activate(Handlers handlers)
{
    m_queue.async([self = shared_from_this(), handlers = std::move(handlers)]() mutable {
        self->m_handlers = std::move(handlers);
        if (!self->m_acceptedSocket.isOpen())
            return;
        if (const auto opened = self->openChannel(std::move(self->m_acceptedSocket)); !opened)
            self->becomeInvalid(opened.error());
    });
}

void Connection::send(std::string_view selector, Array arguments, IfNobodyListens choice)
{
    submit({ .frame = encodeMessage({ std::string(selector), 0, std::move(arguments) }),
        .identifier = 0,
        .handler = {},
        .choice = choice });
}

void Connection::send(std::string_view selector, Array arguments, ReplyHandler handler)
{
    const std::uint64_t identifier = ++m_lastIdentifier;
    submit({ .frame = encodeMessage({ std::string(selector), identifier, std::move(arguments) }),
        .identifier = identifier,
        .handler = std::move(handler) });
}

void Connection::submit(OutgoingMessage message)
{
    // Work of a queue is copied with its function, so what is large or unique is moved through.
    auto shared = std::make_shared<OutgoingMessage>(std::move(message));
    shared->isLate = m_isInvalidated;
    m_queue.async([self = shared_from_this(), shared] { self->sendNow(std::move(*shared)); });
}

void Connection::sendNow(OutgoingMessage message)
{
    const auto fail = [&message](const Error& error) {
        if (message.handler)
            message.handler(error);
    };
    if (!message.frame)
        return fail(message.frame.error());
    // What was submitted before the invalidation still goes out, unless it would have to connect.
    if (!m_channel && m_isInvalidated)
        becomeInvalid(invalidated());
    if (m_end)
        return fail(message.isLate ? spent() : *m_end);
    if (!m_channel) {
        if (const auto opened = open(message.choice); !opened) {
            // A message that is not worth a service's start says nothing about the connection.
            if (message.choice == IfNobodyListens::Start)
                becomeInvalid(opened.error());
            return fail(opened.error());
        }
    }
    if (message.handler) {
        m_pending.emplace(message.identifier, std::move(message.handler));
        m_keptAlive = shared_from_this();
    }
    m_channel->send(*std::move(message.frame));
}

Result<void> Connection::open(IfNobodyListens choice)
{
    assert(m_opener);
    return openChannel(TDW_TRY(m_opener(choice, [this] { return m_isInvalidated.load(); })));
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
        .ended
        = [whileAlive](
              const Error& error) { whileAlive([&](Connection& self) { self.ended(error); }); },
    };
    m_channel = TDW_TRY(MessageChannel::create(std::move(socket), m_queue, std::move(handlers)));
    m_channel->start();
    return {};
}

void Connection::received(Message message)
{
    MessageReply::Sender sender;
    if (message.identifier != 0) {
        // The reply belongs to the channel that the message came through, not to one made later.
        sender = [channel = m_channel, queue = m_queue, identifier = message.identifier](
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
        MessageReply(std::move(sender)) };
    if (m_handlers.message)
        m_handlers.message(std::move(incoming));
}

void Connection::received(Reply reply)
{
    auto entry = m_pending.extract(reply.identifier);
    // A reply to nothing that was asked is the other end's mistake, and harms nobody.
    if (entry.empty())
        return;
    if (m_pending.empty())
        m_keptAlive.reset();
    if (auto* values = std::get_if<Array>(&reply.content))
        entry.mapped()(std::move(*values));
    else
        entry.mapped()(std::get<Error>(std::move(reply.content)));
}

void Connection::ended(const Error& error)
{
    if (m_opener)
        finish(&Handlers::interruption, interrupted(error), spent());
    else
        becomeInvalid(interrupted(error));
}

void Connection::invalidate()
{
    m_isInvalidated = true;
    m_queue.async([self = shared_from_this()] { self->becomeInvalid(invalidated()); });
}

void Connection::becomeInvalid(const Error& error)
{
    finish(&Handlers::invalidation, error, invalidated());
}

void Connection::finish(std::function<void()> Handlers::*handler, const Error& pending, Error later)
{
    if (m_end)
        return;
    m_end = std::move(later);
    if (m_channel)
        m_channel->close();
    m_channel.reset();
    const auto keptAlive = std::exchange(m_keptAlive, nullptr);
    // First: whoever learns that a message has failed may ask again at once, and is to find that
    // this connection is no more.
    const Handlers handlers = std::exchange(m_handlers, {});
    if (handlers.*handler)
        (handlers.*handler)();
    for (const auto& [identifier, reply] : std::exchange(m_pending, {}))
        reply(pending);
}

} // namespace tdw
