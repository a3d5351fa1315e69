#include "Mux/MuxConnection.h"

#include <asio/steady_timer.hpp>

namespace tdw::simulator {

namespace {

constexpr FrameShape kMuxShape { kMuxHeaderSize, false };

} // namespace

MuxConnection::MuxConnection(Simulation& simulation, PortConnector& ports,
    const std::shared_ptr<Channel>& channel, std::uint64_t number)
    : m_simulation(simulation)
    , m_ports(ports)
    , m_channel(channel)
    , m_number(number)
    , m_protocol(simulation, [&ports](const Attachment& attachment, std::uint16_t port) {
        return ports.accepts(attachment, port);
    })
{
}

void MuxConnection::applyAcceptFault()
{
    const auto fault = m_simulation.reach(FaultSite { kMuxPlace, "", "Accept" });
    const auto channel = m_channel.lock();
    if (!fault || !channel)
        return;
    const FaultedReply faulted = applyFault(fault, Data(), kMuxShape);
    if (faulted.after == FaultedReply::After::Close)
        channel->close();
    else if (faulted.after == FaultedReply::After::Ignore)
        m_state = State::Ignoring;
    else
        channel->send(faulted.bytes);
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
    const auto fault = m_simulation.reach(FaultSite { kMuxPlace, device, request.name, &logged });
    if (fault && fault->kind == FaultKind::Detach) {
        if (SimulatedDevice* concerned = m_simulation.device(device)) {
            (void)m_simulation.detach(*concerned, ConnectionType::Usb);
            (void)m_simulation.detach(*concerned, ConnectionType::Network);
        }
    }
    if (request.name == "Listen")
        m_description = request.message;
    // What strikes before an answer must also leave undone what the request asks for.
    const bool isUndone
        = fault && (fault->kind == FaultKind::Drop || fault->kind == FaultKind::Hang);
    const MuxReply reply = isUndone ? MuxReply {} : m_protocol.reply(frame, request, fault);
    deliverAnswer(reply, applyFault(fault, reply.bytes, kMuxShape));
}

void MuxConnection::deliverAnswer(const MuxReply& reply, const FaultedReply& faulted)
{
    const auto channel = m_channel.lock();
    if (!channel)
        return;
    if (faulted.delay.count() == 0) {
        channel->send(faulted.bytes);
        finish(reply, faulted.after);
        return;
    }
    m_state = State::Waiting;
    // Each answer has a timer of its own, since notifications may be under way as well.
    auto timer = std::make_shared<asio::steady_timer>(channel->executor(), faulted.delay);
    timer->async_wait([self = shared_from_this(), timer, reply, faulted](std::error_code error) {
        const auto waiting = self->m_channel.lock();
        if (error || !waiting)
            return;
        self->m_state = State::Open;
        waiting->send(faulted.bytes);
        self->finish(reply, faulted.after);
        self->handleFrames();
    });
}

void MuxConnection::finish(const MuxReply& reply, FaultedReply::After after)
{
    const auto channel = m_channel.lock();
    if (!channel)
        return;
    if (after == FaultedReply::After::Ignore) {
        m_state = State::Ignoring;
        return;
    }
    if (after == FaultedReply::After::Close || reply.next == MuxReply::Next::Close) {
        channel->closeAfterSending();
        return;
    }
    if (reply.next == MuxReply::Next::Listen) {
        m_isListening = true;
        m_simulation.addListener(m_number, m_description);
    } else if (reply.next == MuxReply::Next::Connect) {
        m_state = State::HandedOver;
        m_ports.connect(channel, reply.target, reply.port, m_decoder.takeRest());
    }
}

void MuxConnection::ended()
{
    m_isListening = false;
    m_simulation.removeListener(m_number);
}

void MuxConnection::notify(const SimulationEvent& event)
{
    const auto channel = m_channel.lock();
    if (!channel || !m_isListening || m_state == State::Ignoring)
        return;
    static constexpr std::string_view kNames[] = { "Attached", "Detached", "Paired" };
    const auto fault = m_simulation.reach(FaultSite {
        kMuxPlace, event.attachment.device->udid(), kNames[static_cast<int>(event.kind)] });
    const FaultedReply faulted
        = applyFault(fault, m_protocol.notification(event, fault), kMuxShape);
    deliverAnswer(MuxReply {}, faulted);
}

std::string MuxConnection::concernedDevice(const MuxProtocol::Request& request) const
{
    if (const std::string* record = request.message.stringAt("PairRecordID"))
        return *record;
    const auto identifier = request.message.intAt("DeviceID");
    if (!identifier)
        return {};
    const auto attachment = m_simulation.attachment(static_cast<std::uint32_t>(*identifier));
    return attachment ? attachment->device->udid() : std::string();
}

} // namespace tdw::simulator
