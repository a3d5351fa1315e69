#include "Usb/UsbBus.h"

#include "Platform/Messages/FrameBuffer.h"

#include <cstring>
#include <utility>

namespace tdw::simulator {

namespace {

std::uint16_t locationOf(const Attachment& attachment)
{
    return static_cast<std::uint16_t>(attachment.usbBus() << 8 | attachment.usbAddress());
}

} // namespace

/// Cuts what the stand-in sends into messages.
class UsbBus::Link final : public ChannelHandler {
public:
    Link(UsbBus& bus, Channel* channel)
        : m_bus(bus)
        , m_channel(channel)
    {
    }

    void received(std::span<const std::byte> bytes) override
    {
        m_buffer.append(bytes);
        UsbHeader header;
        while (m_buffer.bytes().size() >= sizeof header) {
            std::memcpy(&header, m_buffer.bytes().data(), sizeof header);
            if (m_buffer.bytes().size() < sizeof header + header.length)
                return;
            const auto found = m_bus.m_devices.find(header.device);
            if (found != m_bus.m_devices.end()) {
                const auto device = found->second;
                device->handle(header, m_buffer.bytes().subspan(sizeof header, header.length));
            }
            m_buffer.drop(sizeof header + header.length);
        }
    }

    void ended() override
    {
        // A daemon that has come in the meantime keeps its devices.
        if (m_bus.m_channel.get() != m_channel)
            return;
        m_bus.m_channel.reset();
        m_bus.m_devices.clear();
    }

private:
    UsbBus& m_bus;
    Channel* m_channel;
    FrameBuffer m_buffer;
};

UsbBus::UsbBus(asio::io_context& context, Simulation& simulation, PortConnector& ports,
    std::function<void()> daemonCame)
    : m_context(context)
    , m_simulation(simulation)
    , m_ports(ports)
    , m_daemonCame(std::move(daemonCame))
    , m_listener(
          context, [this](asio::local::stream_protocol::socket socket) { take(std::move(socket)); })
{
    m_simulation.observe([this](const SimulationEvent& event) { follow(event); });
}

UsbBus::~UsbBus() = default;

Result<void> UsbBus::open(const std::filesystem::path& path)
{
    return m_listener.open(path);
}

void UsbBus::take(asio::local::stream_protocol::socket socket)
{
    m_devices.clear();
    m_channel = Channel::create(std::move(socket));
    m_channel->handOver(std::make_shared<Link>(*this, m_channel.get()));
    m_channel->start();
    for (const Attachment& attachment : m_simulation.attachments())
        attach(attachment);
    send(UsbHeader { .kind = UsbMessage::Ready }, {});
    m_daemonCame();
}

void UsbBus::follow(const SimulationEvent& event)
{
    if (event.kind == SimulationEvent::Kind::Attached)
        attach(event.attachment);
    else if (event.kind == SimulationEvent::Kind::Detached)
        detach(event.attachment);
}

void UsbBus::attach(const Attachment& attachment)
{
    if (!m_channel || attachment.type != ConnectionType::Usb)
        return;
    const auto device = std::make_shared<UsbDevice>(m_context, m_simulation, m_ports, attachment,
        [this](UsbHeader header, std::span<const std::byte> payload) { send(header, payload); });
    m_devices.insert_or_assign(locationOf(attachment), device);
    device->arrive();
}

void UsbBus::detach(const Attachment& attachment)
{
    if (attachment.type != ConnectionType::Usb || m_devices.erase(locationOf(attachment)) == 0)
        return;
    send(UsbHeader { .kind = UsbMessage::Left, .device = locationOf(attachment) }, {});
}

void UsbBus::send(UsbHeader header, std::span<const std::byte> payload)
{
    if (!m_channel)
        return;
    header.length = static_cast<std::uint32_t>(payload.size());
    Data bytes(sizeof header + payload.size());
    std::memcpy(bytes.data(), &header, sizeof header);
    std::copy(payload.begin(), payload.end(), bytes.begin() + sizeof header);
    m_channel->send(std::move(bytes));
}

} // namespace tdw::simulator
