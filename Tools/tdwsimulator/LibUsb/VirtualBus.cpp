#include "LibUsb/VirtualBus.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace tdw::simulator {

namespace {

int connectToSimulator()
{
    const char* path = std::getenv(kUsbSocketVariable); // NOLINT(concurrency-mt-unsafe): one thread
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    if (!path || std::strlen(path) >= sizeof address.sun_path)
        return -1;
    std::strcpy(
        address.sun_path, path); // NOLINT(clang-analyzer-security.insecureAPI.strcpy): measured
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return descriptor;
    ::close(descriptor);
    return -1;
}

} // namespace

VirtualBus& VirtualBus::instance()
{
    // Never destroyed: threads of the daemon may still run while the process ends.
    static auto* const bus = new VirtualBus;
    return *bus;
}

int VirtualBus::open()
{
    m_socket = connectToSimulator();
    m_wakeup = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (m_socket < 0 || m_wakeup < 0)
        return LIBUSB_ERROR_IO;
    m_descriptors = { { m_socket, POLLIN }, { m_wakeup, POLLIN } };
    while (!m_isReady && m_socket >= 0)
        receive(0);
    m_news.clear();
    return m_isReady ? 0 : LIBUSB_ERROR_IO;
}

std::vector<libusb_device*> VirtualBus::presentDevices() const
{
    std::vector<libusb_device*> devices;
    for (const auto& device : m_devices) {
        if (device->isPresent)
            devices.push_back(device.get());
    }
    return devices;
}

int VirtualBus::submit(libusb_transfer* transfer)
{
    libusb_device& device = *transfer->dev_handle->device;
    if (!device.isPresent)
        return LIBUSB_ERROR_NO_DEVICE;
    const auto length = static_cast<std::size_t>(transfer->length);
    UsbHeader header;
    header.device = device.location;
    if (transfer->type == LIBUSB_TRANSFER_TYPE_CONTROL) {
        header.kind = UsbMessage::Control;
        header.number = ++m_lastControl;
        // What the device is to answer is not sent to it.
        const bool isInput = (transfer->buffer[0] & LIBUSB_ENDPOINT_IN) != 0;
        m_controls.emplace(header.number, transfer);
        return send(header, { transfer->buffer, isInput ? kUsbSetupSize : length })
            ? 0
            : LIBUSB_ERROR_IO;
    }
    if ((transfer->endpoint & LIBUSB_ENDPOINT_IN) != 0) {
        device.readers.push_back(transfer);
        feed(device);
        return 0;
    }
    header.kind = UsbMessage::Output;
    if (!send(header, { transfer->buffer, length }))
        return LIBUSB_ERROR_IO;
    transfer->actual_length = transfer->length;
    complete(transfer, LIBUSB_TRANSFER_COMPLETED);
    return 0;
}

int VirtualBus::cancel(libusb_transfer* transfer)
{
    auto& readers = transfer->dev_handle->device->readers;
    const auto reader = std::find(readers.begin(), readers.end(), transfer);
    const auto control = std::find_if(m_controls.begin(), m_controls.end(),
        [&](const auto& entry) { return entry.second == transfer; });
    if (reader != readers.end())
        readers.erase(reader);
    else if (control != m_controls.end())
        m_controls.erase(control);
    else
        return LIBUSB_ERROR_NOT_FOUND;
    transfer->actual_length = 0;
    complete(transfer, LIBUSB_TRANSFER_CANCELLED);
    return 0;
}

int VirtualBus::configure(libusb_device& device, int configuration)
{
    if (!device.isPresent)
        return LIBUSB_ERROR_NO_DEVICE;
    if (configuration < 1 || static_cast<std::size_t>(configuration) > device.configurations.size())
        return LIBUSB_ERROR_NOT_FOUND;
    device.configuration = configuration;
    UsbHeader header;
    header.kind = UsbMessage::Configure;
    header.device = device.location;
    header.status = configuration;
    return send(header, {}) ? 0 : LIBUSB_ERROR_IO;
}

void VirtualBus::observe(libusb_hotplug_callback_fn callback, void* context, bool enumerates)
{
    m_callback = callback;
    m_context = context;
    if (!enumerates)
        return;
    for (libusb_device* device : presentDevices())
        tell(*device, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED);
}

void VirtualBus::handleEvents(std::chrono::milliseconds timeout)
{
    if (m_completions.empty() && m_news.empty())
        wait(timeout);
    receive(MSG_DONTWAIT);
    std::uint64_t wakeups = 0;
    (void)!::read(m_wakeup, &wakeups, sizeof wakeups);
    deliver();
}

void VirtualBus::wait(std::chrono::milliseconds timeout)
{
    pollfd events[] { { m_wakeup, POLLIN, 0 }, { m_socket, POLLIN, 0 } };
    ::poll(events, m_socket < 0 ? 1 : 2, static_cast<int>(timeout.count()));
}

void VirtualBus::receive(int flags)
{
    std::uint8_t buffer[kUsbMaximumTransfer];
    if (m_socket < 0)
        return;
    const ssize_t count = ::recv(m_socket, buffer, sizeof buffer, flags);
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (count <= 0) {
        hangUp();
        return;
    }
    m_bytes.insert(m_bytes.end(), buffer, buffer + count);
    std::size_t used = 0;
    UsbHeader header;
    while (m_bytes.size() - used >= sizeof header) {
        std::memcpy(&header, m_bytes.data() + used, sizeof header);
        if (m_bytes.size() - used - sizeof header < header.length)
            break;
        handle(header, { m_bytes.data() + used + sizeof header, header.length });
        used += sizeof header + header.length;
    }
    m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<std::ptrdiff_t>(used));
}

void VirtualBus::handle(const UsbHeader& header, std::span<const std::uint8_t> payload)
{
    libusb_device* device = find(header.device);
    if (header.kind == UsbMessage::Ready)
        m_isReady = true;
    else if (header.kind == UsbMessage::Arrived)
        arrive(header, payload);
    else if (header.kind == UsbMessage::ControlReply)
        finishControl(header, payload);
    else if (device && header.kind == UsbMessage::Left)
        m_news.emplace_back(device, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);
    else if (device && header.kind == UsbMessage::Input) {
        device->input.push_back({ { payload.begin(), payload.end() }, 0 });
        feed(*device);
    }
}

void VirtualBus::arrive(const UsbHeader& header, std::span<const std::uint8_t> payload)
{
    if (payload.size() < LIBUSB_DT_DEVICE_SIZE)
        return;
    auto device = std::make_unique<libusb_device>();
    device->location = header.device;
    device->speed = header.speed;
    device->openError = header.status;
    std::memcpy(&device->descriptor, payload.data(), LIBUSB_DT_DEVICE_SIZE);
    payload = payload.subspan(LIBUSB_DT_DEVICE_SIZE);
    while (payload.size() >= LIBUSB_DT_CONFIG_SIZE) {
        const std::size_t length
            = std::min<std::size_t>(payload[2] | payload[3] << 8, payload.size());
        device->configurations.emplace_back(payload.begin(), payload.begin() + length);
        payload = payload.subspan(std::max<std::size_t>(length, 1));
    }
    m_devices.push_back(std::move(device));
    m_news.emplace_back(m_devices.back().get(), LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED);
}

void VirtualBus::leave(libusb_device& device)
{
    device.isPresent = false;
    for (libusb_transfer* reader : std::exchange(device.readers, {})) {
        reader->actual_length = 0;
        complete(reader, LIBUSB_TRANSFER_NO_DEVICE);
    }
    std::erase_if(m_controls, [&](const auto& entry) {
        if (entry.second->dev_handle->device != &device)
            return false;
        complete(entry.second, LIBUSB_TRANSFER_NO_DEVICE);
        return true;
    });
    tell(device, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);
}

/// Gives input to the transfers that wait for it, as a host controller does: a transfer ends when
/// it is full, or with a packet that is shorter than the endpoint's, which may be an empty one.
void VirtualBus::feed(libusb_device& device)
{
    const std::size_t packet = device.speed >= LIBUSB_SPEED_SUPER ? 1024 : 512;
    while (!device.input.empty() && !device.readers.empty()) {
        libusb_transfer* reader = device.readers.front();
        device.readers.pop_front();
        libusb_device::Received& received = device.input.front();
        const std::size_t room = static_cast<std::size_t>(reader->length);
        const std::size_t count = std::min(room, received.bytes.size() - received.taken);
        std::memcpy(reader->buffer, received.bytes.data() + received.taken, count);
        received.taken += count;
        reader->actual_length = static_cast<int>(count);
        const bool owesEmptyPacket = count == room && received.bytes.size() % packet == 0;
        if (received.taken == received.bytes.size() && (!owesEmptyPacket || count == 0))
            device.input.pop_front();
        complete(reader, LIBUSB_TRANSFER_COMPLETED);
    }
}

void VirtualBus::finishControl(const UsbHeader& header, std::span<const std::uint8_t> payload)
{
    const auto found = m_controls.find(header.number);
    if (found == m_controls.end())
        return;
    libusb_transfer* transfer = found->second;
    m_controls.erase(found);
    const std::size_t room = static_cast<std::size_t>(transfer->length) - kUsbSetupSize;
    const std::size_t count = std::min(room, payload.size());
    std::memcpy(transfer->buffer + kUsbSetupSize, payload.data(), count);
    transfer->actual_length = static_cast<int>(count);
    complete(transfer, static_cast<libusb_transfer_status>(header.status));
}

void VirtualBus::complete(libusb_transfer* transfer, libusb_transfer_status status)
{
    m_completions.push_back({ transfer, status });
    const std::uint64_t one = 1;
    (void)!::write(m_wakeup, &one, sizeof one);
}

void VirtualBus::deliver()
{
    // What callbacks submit and cancel completes with the next call. A device leaves after what it
    // said before: a daemon that could not read on would wait for its transfers for ever.
    const auto news = std::exchange(m_news, {});
    for (const Completion& completion : std::exchange(m_completions, {})) {
        libusb_transfer* transfer = completion.transfer;
        transfer->status = completion.status;
        const bool isFreedHere = (transfer->flags & LIBUSB_TRANSFER_FREE_TRANSFER) != 0;
        transfer->callback(transfer);
        if (isFreedHere)
            libusb_free_transfer(transfer);
    }
    for (const auto& [device, event] : news) {
        if (event == LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT)
            leave(*device);
        else
            tell(*device, event);
    }
}

bool VirtualBus::send(const UsbHeader& header, std::span<const std::uint8_t> payload)
{
    UsbHeader whole = header;
    whole.length = static_cast<std::uint32_t>(payload.size());
    std::vector<std::uint8_t> bytes(sizeof whole);
    std::memcpy(bytes.data(), &whole, sizeof whole);
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    std::span<const std::uint8_t> rest = bytes;
    // May block, but not for long: the simulator reads whatever else it does.
    while (!rest.empty()) {
        const ssize_t count = ::send(m_socket, rest.data(), rest.size(), MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        rest = rest.subspan(static_cast<std::size_t>(count));
    }
    return true;
}

libusb_device* VirtualBus::find(std::uint16_t location) const
{
    const auto found = std::find_if(m_devices.begin(), m_devices.end(),
        [&](const auto& device) { return device->isPresent && device->location == location; });
    return found == m_devices.end() ? nullptr : found->get();
}

void VirtualBus::tell(libusb_device& device, libusb_hotplug_event event)
{
    if (m_callback)
        m_callback(nullptr, &device, event, m_context);
}

/// Without the simulator there is no device.
void VirtualBus::hangUp()
{
    ::close(m_socket);
    m_socket = -1;
    m_descriptors = { { m_wakeup, POLLIN } };
    for (libusb_device* device : presentDevices())
        m_news.emplace_back(device, LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT);
}

} // namespace tdw::simulator
