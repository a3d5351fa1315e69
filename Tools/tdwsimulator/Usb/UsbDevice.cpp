#include "Usb/UsbDevice.h"

#include "Usb/UsbDescriptors.h"

#include <asio/local/connect_pair.hpp>
#include <asio/local/stream_protocol.hpp>

#include <utility>

namespace tdw::simulator {

namespace {

/// libusb's numbers for what a device may come to.
constexpr std::int32_t kErrorAccess = -3;
constexpr std::int32_t kTransferCompleted = 0;
constexpr std::int32_t kTransferStall = 4;

} // namespace

/// The near end of a stream: what the service says goes to the host.
class UsbDevice::StreamHandler final : public ChannelHandler {
public:
    StreamHandler(std::weak_ptr<UsbDevice> device, UsbStream stream)
        : m_device(std::move(device))
        , m_stream(stream)
    {
    }

    void received(std::span<const std::byte> bytes) override
    {
        if (const auto device = m_device.lock())
            device->m_mux.send(m_stream, bytes);
    }

    void ended() override
    {
        const auto device = m_device.lock();
        // Nothing to do where the host has ended the stream, or opened another of its name since.
        if (device && device->m_streams.contains(m_stream)
            && !device->m_streams.at(m_stream)->isOpen()) {
            device->m_streams.erase(m_stream);
            device->m_mux.end(m_stream);
        }
    }

private:
    std::weak_ptr<UsbDevice> m_device;
    UsbStream m_stream;
};

UsbDevice::UsbDevice(asio::io_context& context, Simulation& simulation, PortConnector& ports,
    const Attachment& attachment, Send send)
    : m_context(context)
    , m_simulation(simulation)
    , m_ports(ports)
    , m_attachment(attachment)
    , m_send(std::move(send))
    , m_mux(*this)
{
}

UsbDevice::~UsbDevice()
{
    for (const auto& [stream, channel] : std::exchange(m_streams, {}))
        channel->close();
}

void UsbDevice::arrive()
{
    UsbHeader arrived = header(UsbMessage::Arrived);
    arrived.speed = static_cast<std::uint8_t>(m_attachment.device->description().usbSpeed);
    if (strike("Open"))
        arrived.status = kErrorAccess;
    m_send(arrived, usbDescriptors(*m_attachment.device));
}

void UsbDevice::handle(const UsbHeader& header, std::span<const std::byte> payload)
{
    if (header.kind == UsbMessage::Output)
        m_mux.receive(payload);
    else if (header.kind == UsbMessage::Control)
        control(header, payload);
    else if (header.kind == UsbMessage::Configure) {
        const Dictionary message { { "Configuration", header.status } };
        (void)strike("Configure", &message);
    }
}

void UsbDevice::control(const UsbHeader& request, std::span<const std::byte> payload)
{
    if (strike("Control") == FaultKind::Hang)
        return;
    const auto answer = answerControl(*m_attachment.device, payload);
    UsbHeader reply = header(UsbMessage::ControlReply);
    reply.number = request.number;
    reply.status = answer ? kTransferCompleted : kTransferStall;
    m_send(reply, answer ? std::span<const std::byte>(*answer) : std::span<const std::byte>());
}

void UsbDevice::transmit(Data packet)
{
    m_send(header(UsbMessage::Input), packet);
}

bool UsbDevice::greets()
{
    return !strike("Version");
}

bool UsbDevice::opened(UsbStream stream, std::uint16_t port)
{
    const Dictionary message { { "Port", port } };
    if (strike("Connect", &message) || !m_ports.accepts(m_attachment, port))
        return false;
    asio::local::stream_protocol::socket near(m_context);
    asio::local::stream_protocol::socket far(m_context);
    std::error_code error;
    asio::local::connect_pair(near, far, error);
    if (error)
        return false;
    const auto channel = Channel::create(std::move(near));
    channel->handOver(std::make_shared<StreamHandler>(weak_from_this(), stream));
    channel->start();
    m_streams.insert_or_assign(stream, channel);
    const auto service = Channel::create(std::move(far));
    m_ports.connect(service, m_attachment, port, {});
    service->start();
    return true;
}

void UsbDevice::received(UsbStream stream, std::span<const std::byte> bytes)
{
    const auto found = m_streams.find(stream);
    if (found != m_streams.end())
        found->second->send(Data(bytes.begin(), bytes.end()));
}

void UsbDevice::ended(UsbStream stream)
{
    if (const auto ended = m_streams.extract(stream))
        ended.mapped()->closeAfterSending();
}

UsbHeader UsbDevice::header(UsbMessage kind) const
{
    UsbHeader header;
    header.kind = kind;
    header.device
        = static_cast<std::uint16_t>(m_attachment.usbBus() << 8 | m_attachment.usbAddress());
    return header;
}

std::optional<FaultKind> UsbDevice::strike(std::string_view request, const Dictionary* message)
{
    const auto fault = m_simulation.reach(
        FaultSite { kUsbPlace, m_attachment.device->udid(), request, message });
    return fault ? std::optional(fault->kind) : std::nullopt;
}

} // namespace tdw::simulator
