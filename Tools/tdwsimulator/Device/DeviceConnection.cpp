#include "Device/DeviceConnection.h"

#include "Device/ReplyFault.h"

#include <asio/post.hpp>
#include <asio/steady_timer.hpp>

#include <cassert>

namespace tdw::simulator {

DeviceConnection::DeviceConnection(
    ServiceContext context, const std::shared_ptr<Channel>& channel, ServiceLaunch service)
    : m_simulation(context.simulation)
    , m_attachment(context.attachment)
    , m_channel(channel)
    , m_place(std::move(service.name))
    , m_pairing(std::move(service.pairing))
{
    context.push = [this](const Value& message) {
        push(message);
    };
    m_service = makeService(m_place, context);
}

void DeviceConnection::start()
{
    if (m_pairing)
        startTls(m_pairing);
}

void DeviceConnection::received(std::span<const std::byte> bytes)
{
    if (m_state == State::Ignoring || m_state == State::Closed)
        return;
    if (m_tls)
        receiveTls(bytes);
    else
        m_decoder.append(bytes);
    handleFrames();
}

void DeviceConnection::handleFrames()
{
    while (m_state == State::Open && !m_isHandshaking) {
        const auto message = m_decoder.next();
        if (!message) {
            close();
            return;
        }
        if (!*message)
            return;
        handle(**message);
    }
}

void DeviceConnection::handle(const Value& message)
{
    const Dictionary* request = message.asDictionary();
    if (!request) {
        close();
        return;
    }
    const std::string name = m_service->requestName(*request);
    const auto fault
        = m_simulation.reach(FaultSite { m_place, m_attachment.device->udid(), name, request });
    if (fault && fault->kind == FaultKind::Detach) {
        unplug();
        return;
    }
    ServiceReply reply;
    if (fault && fault->kind == FaultKind::Error)
        reply.messages = { m_service->refusal(*request, fault->error) };
    // What strikes before an answer also leaves undone what the request asks for.
    else if (!fault || (fault->kind != FaultKind::Drop && fault->kind != FaultKind::Hang))
        reply = m_service->handle(*request);

    Data answer;
    for (const Value& part : reply.messages) {
        const auto frame
            = encodePropertyListFrame(fault ? withFault(*fault, part) : part, m_service->format());
        assert(frame);
        if (frame)
            answer.insert(answer.end(), frame->begin(), frame->end());
    }
    deliverReply(reply, applyFault(fault, std::move(answer), FrameShape {}));
}

void DeviceConnection::deliverReply(const ServiceReply& reply, const FaultedReply& faulted)
{
    if (faulted.delay.count() == 0) {
        sendContent(faulted.bytes);
        finish(reply, faulted.after);
        return;
    }
    afterDelay(faulted.delay, [this, reply, faulted] {
        sendContent(faulted.bytes);
        finish(reply, faulted.after);
    });
}

void DeviceConnection::finish(const ServiceReply& reply, FaultedReply::After after)
{
    using Next = ServiceReply::Next;
    if (after == FaultedReply::After::Ignore) {
        m_state = State::Ignoring;
        return;
    }
    if (after == FaultedReply::After::Close) {
        close();
        return;
    }
    if (reply.next == Next::StartTls)
        startTls(reply.pairing);
    else if (reply.next == Next::StopTls)
        m_isLeavingTls = true;
    else if (reply.next == Next::Reattach)
        reattach();
    else if (reply.next == Next::Close)
        sayGoodbye();
}

void DeviceConnection::sendContent(std::span<const std::byte> content)
{
    const auto channel = m_channel.lock();
    if (!channel || content.empty())
        return;
    if (!m_tls) {
        channel->send(Data(content.begin(), content.end()));
        return;
    }
    m_tls->send(content);
    channel->send(m_tls->takeOutput());
}

void DeviceConnection::push(const Value& message)
{
    if (m_state != State::Open || m_isHandshaking)
        return;
    if (const auto frame = encodePropertyListFrame(message, m_service->format()))
        sendContent(*frame);
}

void DeviceConnection::startTls(const std::shared_ptr<const Pairing>& pairing)
{
    m_isHandshaking = true;
    const Dictionary message { { "Service", m_place } };
    const auto fault = m_simulation.reach(
        FaultSite { kTlsPlace, m_attachment.device->udid(), "Handshake", &message });
    if (!fault) {
        acceptTls(pairing, false);
        return;
    }
    switch (fault->kind) {
    case FaultKind::Hang:
        m_state = State::Ignoring;
        return;
    case FaultKind::Drop:
        close();
        return;
    case FaultKind::Detach:
        unplug();
        return;
    case FaultKind::Garbage:
        sendContent(Data(64, std::byte { 0xa5 }));
        close();
        return;
    case FaultKind::Delay:
        afterDelay(fault->delay, [this, pairing] { acceptTls(pairing, false); });
        return;
    default:
        acceptTls(pairing, fault->kind == FaultKind::WrongCertificate);
    }
}

void DeviceConnection::acceptTls(
    const std::shared_ptr<const Pairing>& pairing, bool isWrongCertificate)
{
    if (m_attachment.device->trust().trust() == Trust::ForgotHostInTls) {
        logTls("Failed", { { "Reason", "the host is forgotten" } });
        close();
        return;
    }
    SSL_CTX* context = pairing->tls.get();
    if (isWrongCertificate) {
        m_wrongContext = m_attachment.device->pairings().foreignContext(*pairing);
        context = m_wrongContext.get();
    }
    m_pairing = pairing;
    m_tls = std::make_unique<TlsSession>(*context);
    const Data rest = m_decoder.takeRest();
    if (!rest.empty())
        receiveTls(rest);
}

void DeviceConnection::receiveTls(std::span<const std::byte> bytes)
{
    const auto channel = m_channel.lock();
    Data content;
    const TlsSession::State state = m_tls->receive(bytes, content);
    m_decoder.append(content);
    if (channel)
        channel->send(m_tls->takeOutput());
    if (state == TlsSession::State::Failed) {
        logTls("Failed", { { "Reason", m_tls->failure() } });
        close();
    } else if (state == TlsSession::State::Ended) {
        if (m_isLeavingTls)
            leaveTls();
        else
            close();
    } else if (state == TlsSession::State::Open && m_isHandshaking) {
        m_isHandshaking = false;
        logTls("Established", { { "Version", m_tls->version() } });
    }
}

void DeviceConnection::leaveTls()
{
    m_tls->end();
    if (const auto channel = m_channel.lock())
        channel->send(m_tls->takeOutput());
    m_decoder.append(m_tls->takeRest());
    m_tls.reset();
    m_isLeavingTls = false;
}

void DeviceConnection::logTls(std::string_view event, Dictionary message)
{
    message.set("Service", m_place);
    m_simulation.log().add(FaultSite { kTlsPlace, m_attachment.device->udid(), event, &message });
}

void DeviceConnection::afterDelay(std::chrono::milliseconds delay, std::function<void()> action)
{
    const auto channel = m_channel.lock();
    if (!channel)
        return;
    m_state = State::Waiting;
    auto timer = std::make_shared<asio::steady_timer>(channel->executor(), delay);
    timer->async_wait(
        [self = shared_from_this(), timer, action = std::move(action)](std::error_code error) {
            const auto open = self->m_channel.lock();
            if (error || !open || !open->isOpen())
                return;
            self->m_state = State::Open;
            action();
            self->handleFrames();
        });
}

void DeviceConnection::unplug()
{
    m_state = State::Closed;
    // Closes this connection with all others of the device.
    (void)m_simulation.detach(*m_attachment.device, m_attachment.type);
}

void DeviceConnection::reattach()
{
    const auto channel = m_channel.lock();
    if (!channel)
        return;
    asio::post(channel->executor(), [&simulation = m_simulation, attachment = m_attachment] {
        simulation.reconnect(*attachment.device);
    });
}

void DeviceConnection::sayGoodbye()
{
    const auto channel = m_channel.lock();
    if (channel && m_tls) {
        m_tls->end();
        channel->send(m_tls->takeOutput());
    }
    close();
}

void DeviceConnection::close()
{
    m_state = State::Closed;
    if (const auto channel = m_channel.lock())
        channel->closeAfterSending();
}

} // namespace tdw::simulator
