#include "Mux/MuxRecords.h"

#include <arpa/inet.h>
#include <netinet/in.h>

namespace tdw::simulator {

namespace {

/// Records carry a whole `sockaddr_storage`.
constexpr std::size_t kSocketAddressSize = 128;

/// The address as the system family lays it out; the port is zero, as in real records.
Data socketAddress(const std::string& address, AddressLayout layout)
{
    Data data(kSocketAddressSize);
    if (layout == AddressLayout::Bsd) {
        data[0] = std::byte { 16 }; // the length of an IPv4 socket address
        data[1] = std::byte { 2 }; // AF_INET
    } else {
        data[0] = std::byte { 2 }; // AF_INET as a 16-bit little-endian number
    }
    ::inet_pton(AF_INET, address.c_str(), data.data() + 4);
    return data;
}

std::uint64_t bitsPerSecond(UsbSpeed speed)
{
    switch (speed) {
    case UsbSpeed::Low:
        return 1'500'000;
    case UsbSpeed::Full:
        return 12'000'000;
    case UsbSpeed::High:
        return 480'000'000;
    case UsbSpeed::Super:
        return 5'000'000'000;
    }
    return 0;
}

} // namespace

Dictionary attachedMessage(const Attachment& attachment, AddressLayout layout)
{
    const SimulatedDevice& device = *attachment.device;
    Dictionary properties;
    if (attachment.type == ConnectionType::Usb) {
        properties
            = Dictionary { { "ConnectionSpeed", bitsPerSecond(device.description().usbSpeed) },
                  { "ConnectionType", "USB" }, { "DeviceID", attachment.identifier },
                  { "LocationID", attachment.location() }, { "ProductID", device.productId() },
                  { "SerialNumber", device.udid() } };
    } else {
        const std::string name
            = device.text("WiFiAddress") + "@fe80::a0b0:c0ff:fed0:e001._apple-mobdev2._tcp.local.";
        properties
            = Dictionary { { "ConnectionType", "Network" }, { "DeviceID", attachment.identifier },
                  { "EscapedFullServiceName", name }, { "InterfaceIndex", 1 },
                  { "NetworkAddress", socketAddress(device.networkAddress(), layout) },
                  { "SerialNumber", device.udid() } };
    }
    return Dictionary { { "MessageType", "Attached" }, { "DeviceID", attachment.identifier },
        { "Properties", std::move(properties) } };
}

Dictionary deviceMessage(std::string_view type, std::uint32_t identifier)
{
    return Dictionary { { "MessageType", type }, { "DeviceID", identifier } };
}

Dictionary resultMessage(MuxResult result)
{
    return Dictionary { { "MessageType", "Result" },
        { "Number", static_cast<std::uint32_t>(result) } };
}

} // namespace tdw::simulator
