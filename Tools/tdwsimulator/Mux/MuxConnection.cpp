#include "Mux/MuxConnection.h"

#include "Mux/MuxServer.h"

#include <asio/steady_timer.hpp>

namespace tdw::simulator {

namespace {

constexpr FrameShape kMuxShape { kMuxHeaderSize, false };

} // namespace

MuxConnection::MuxConnection(
    MuxServer& server, const std::shared_ptr<Channel>& channel, std::uint64_t number)
    : m_server(server)
    , m_channel(channel)
    , m_number(number)
    , m_protocol(server.m_simulation, [&server](const Attachment& attachment, std::uint16_t port) {
        return server.m_gate.accepts(attachment, port);
    })
{
}

void MuxConnection::greet()
{
    const auto fault = m_server.m_simulation.occurred(Occurrence { kMuxPlace, "", "Accept" });
    const auto channel = m_channel.lock();
    if (!fault || !channel)
        return;
    const Delivery delivery = deliver(fault, Data(), kMuxShape);
    if (delivery.after == Delivery::After::Close)
        channel->close();
    else if (delivery.after == Delivery::After::Ignore)
        m_state = State::Ignoring;
    else
        channel->send(delivery.bytes);
}

void MuxConnection::received(std::span<const std::byte> bytes)
{
    m_decoder.append(bytes);
    handleFrames();
}

void MuxConnection::handleFrames()
{
    while (m_state == State::Open) {
        const auto frame = m_decoder.next();
        if (!frame) {
            if (const auto channel = m_channel.lock())
                channel->close();
            return;
        }
        if (!*frame)
            return;
        handle(**frame);
    }
}

void MuxConnection::handle(const MuxFrame& frame)
{
    const MuxProtocol::Request request = MuxProtocol::read(frame);
    Dictionary logged = request.message;
    logged.set("(version)", frame.version);
    logged.set("(message)", frame.message);
    logged.set("(tag)", frame.tag);
    const std::string device = concernedDevice(request);
    Simulation& simulation = m_server.m_simulation;
    const auto fault = simulation.occurred(Occurrence { kMuxPlace, device, request.name, &logged });
    if (fault && fault->kind == FaultKind::Detach) {
        if (SimulatedDevice* concerned = simulation.device(device)) {
            (void)simulation.detach(*concerned, ConnectionType::Usb);
            (void)simulation.detach(*concerned, ConnectionType::Network);
        }
    }
    if (request.name == "Listen")
        m_description = request.message;
    // What strikes before an answer must also leave undone what the request asks for.
    const bool isUndone
        = fault && (fault->kind == FaultKind::Drop || fault->kind == FaultKind::Hang);
    const MuxReply reply = isUndone ? MuxReply {} : m_protocol.reply(frame, request, fault);
    deliverAnswer(reply, deliver(fault, reply.bytes, kMuxShape));
}

void MuxConnection::deliverAnswer(const MuxReply& reply, const Delivery& delivery)
{
    const auto channel = m_channel.lock();
    if (!channel)
        return;
    if (delivery.delay.count() == 0) {
        channel->send(delivery.bytes);
        finish(reply, delivery.after);
        return;
    }
    m_state = State::Waiting;
    // Each answer has a timer of its own, since notifications may be under way as well.
    auto timer = std::make_shared<asio::steady_timer>(channel->executor(), delivery.delay);
    timer->async_wait([self = shared_from_this(), timer, reply, delivery](std::error_code error) {
        const auto waiting = self->m_channel.lock();
        if (error || !waiting)
            return;
        self->m_state = State::Open;
        waiting->send(delivery.bytes);
        self->finish(reply, delivery.after);
        self->handleFrames();
    });
}

void MuxConnection::finish(const MuxReply& reply, Delivery::After after)
{
    const auto channel = m_channel.lock();
    if (!channel)
        return;
    if (after == Delivery::After::Ignore) {
        m_state = State::Ignoring;
        return;
    }
    if (after == Delivery::After::Close || reply.next == MuxReply::Next::Close) {
        channel->closeAfterSending();
        return;
    }
    if (reply.next == MuxReply::Next::Listen) {
        m_server.m_listeners.emplace(m_number, weak_from_this());
        m_server.m_simulation.listeners.emplace(m_number, m_description);
    } else if (reply.next == MuxReply::Next::Connect) {
        m_state = State::HandedOver;
        m_server.m_gate.connect(channel, reply.target, reply.port, m_decoder.takeRest());
    }
}

void MuxConnection::ended()
{
    m_server.m_listeners.erase(m_number);
    m_server.m_simulation.listeners.erase(m_number);
}

void MuxConnection::notify(const SimulationEvent& event)
{
    const auto channel = m_channel.lock();
    if (!channel || m_state == State::Ignoring)
        return;
    static constexpr std::string_view kNames[] = { "Attached", "Detached", "Paired" };
    const auto fault = m_server.m_simulation.occurred(Occurrence {
        kMuxPlace, event.attachment.device->udid(), kNames[static_cast<int>(event.kind)] });
    const Delivery delivery = deliver(fault, m_protocol.notification(event, fault), kMuxShape);
    deliverAnswer(MuxReply {}, delivery);
}

std::string MuxConnection::concernedDevice(const MuxProtocol::Request& request) const
{
    if (const std::string* record = request.message.stringAt("PairRecordID"))
        return *record;
    const auto identifier = request.message.intAt("DeviceID");
    if (!identifier)
        return {};
    const auto attachment
        = m_server.m_simulation.attachment(static_cast<std::uint32_t>(*identifier));
    return attachment ? attachment->device->udid() : std::string();
}

} // namespace tdw::simulator
