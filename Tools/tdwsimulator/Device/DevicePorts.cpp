#include "Device/DevicePorts.h"

#include "Device/DeviceConnection.h"
#include "Model/SimulatorError.h"

#include <algorithm>
#include <random>

namespace tdw::simulator {

namespace {

/// A host that starts services and never connects to them gets no more than this.
constexpr std::size_t kMaximumLaunches = 256;

constexpr std::uint16_t kFirstUsbPort = 49152;

/// Somewhere in the loopback network, away from its beginning, where others are.
std::string randomLoopbackAddress()
{
    std::random_device random;
    auto number = [&](unsigned from, unsigned to) {
        return std::to_string(std::uniform_int_distribution<unsigned>(from, to)(random));
    };
    return "127." + number(64, 254) + "." + number(0, 255) + "." + number(1, 254);
}

} // namespace

DevicePorts::DevicePorts(asio::io_context& context, Simulation& simulation)
    : m_context(context)
    , m_simulation(simulation)
{
    m_simulation.observe([this](const SimulationEvent& event) {
        if (event.kind == SimulationEvent::Kind::Detached)
            forget(event.attachment);
    });
}

bool DevicePorts::accepts(const Attachment& attachment, std::uint16_t port) const
{
    return port == kLockdownPort || m_launches.contains({ attachment.number, port });
}

void DevicePorts::connect(const std::shared_ptr<Channel>& channel, const Attachment& attachment,
    std::uint16_t port, std::span<const std::byte> bytes)
{
    // A delay may lie between the answer that accepts a port and the connection to it.
    const auto present = m_simulation.attachment(*attachment.device, attachment.type);
    if (!present || present->number != attachment.number || !accepts(attachment, port)) {
        channel->close();
        return;
    }
    ServiceContext context { .simulation = m_simulation,
        .attachment = attachment,
        .launch = [this, attachment](const ServiceLaunch& wanted) {
            return launch(attachment, wanted);
        } };
    ServiceLaunch service { .name = std::string(kLockdownPlace) };
    if (port != kLockdownPort)
        service = m_launches.extract(PortKey { attachment.number, port }).mapped();
    std::erase_if(m_channels, [](const auto& entry) { return entry.second.expired(); });
    m_channels.emplace(attachment.number, channel);
    const auto connection
        = std::make_shared<DeviceConnection>(std::move(context), channel, std::move(service));
    connection->start();
    channel->handOver(connection, bytes);
}

Result<std::uint16_t> DevicePorts::launch(const Attachment& attachment, const ServiceLaunch& wanted)
{
    if (m_launches.size() >= kMaximumLaunches)
        return simulatorError("too many services wait for a connection");
    std::uint16_t port = 0;
    if (attachment.type == ConnectionType::Usb) {
        port = freeUsbPort(attachment);
    } else {
        const SimulatedDevice& device = *attachment.device;
        const auto number = std::make_shared<std::uint16_t>(0);
        auto listener = TDW_TRY(NetworkListener::open(
            m_context, device.networkAddress(), 0, [this, &device, number](StreamSocket socket) {
                acceptFromNetwork(device, *number, std::move(socket));
            }));
        port = *number = listener->port();
        m_serviceListeners.insert_or_assign({ attachment.number, port }, std::move(listener));
    }
    m_launches.insert_or_assign({ attachment.number, port }, wanted);
    return port;
}

std::uint16_t DevicePorts::freeUsbPort(const Attachment& attachment)
{
    do {
        m_lastUsbPort = m_lastUsbPort >= kLockdownPort - 1
            ? kFirstUsbPort
            : static_cast<std::uint16_t>(m_lastUsbPort + 1);
    } while (m_launches.contains({ attachment.number, m_lastUsbPort }));
    return m_lastUsbPort;
}

Result<std::string> DevicePorts::openNetwork(const SimulatedDevice& device)
{
    if (device.description().networkAddress)
        return openAddress(device, *device.description().networkAddress);
    constexpr int kAttempts = 32;
    Result<std::string> opened = openAddress(device, randomLoopbackAddress());
    for (int attempt = 1; !opened && attempt < kAttempts; ++attempt)
        opened = openAddress(device, randomLoopbackAddress());
    return opened;
}

Result<std::string> DevicePorts::openAddress(
    const SimulatedDevice& device, const std::string& address)
{
    auto listener = TDW_TRY(NetworkListener::open(
        m_context, address, kLockdownPort, [this, &device](StreamSocket socket) {
            acceptFromNetwork(device, kLockdownPort, std::move(socket));
        }));
    m_lockdownListeners.insert_or_assign(&device, std::move(listener));
    return address;
}

void DevicePorts::acceptFromNetwork(
    const SimulatedDevice& device, std::uint16_t port, StreamSocket socket)
{
    const auto attachment = m_simulation.attachment(device, ConnectionType::Network);
    if (!attachment || !accepts(*attachment, port))
        return;
    // A launched service takes one connection; its port is free then.
    m_serviceListeners.erase({ attachment->number, port });
    const auto channel = Channel::create(std::move(socket));
    connect(channel, *attachment, port, {});
    channel->start();
}

void DevicePorts::forget(const Attachment& attachment)
{
    if (attachment.type == ConnectionType::Network)
        m_lockdownListeners.erase(attachment.device);
    std::erase_if(
        m_launches, [&](const auto& entry) { return entry.first.first == attachment.number; });
    std::erase_if(m_serviceListeners,
        [&](const auto& entry) { return entry.first.first == attachment.number; });
    const auto [first, last] = m_channels.equal_range(attachment.number);
    std::vector<std::shared_ptr<Channel>> channels;
    for (auto entry = first; entry != last; ++entry) {
        if (auto channel = entry->second.lock())
            channels.push_back(std::move(channel));
    }
    m_channels.erase(attachment.number);
    for (const auto& channel : channels)
        channel->close();
}

} // namespace tdw::simulator
