#include "Usb/UsbDescriptors.h"

#include <algorithm>
#include <initializer_list>

namespace tdw::simulator {

namespace {

constexpr unsigned kConfigurations = 4;
constexpr unsigned kFirstWithMultiplexer = 3;

enum DescriptorType : unsigned { Device = 1, Configuration, String, Interface, Endpoint };
enum StringIndex : unsigned { Languages, Manufacturer, Product, SerialNumber };

/// What `UsbSpeed` and libusb call the fastest bus.
bool isSuperSpeed(const SimulatedDevice& device)
{
    return device.description().usbSpeed == UsbSpeed::Super;
}

void append(Data& data, std::initializer_list<unsigned> bytes)
{
    for (const unsigned byte : bytes)
        data.push_back(static_cast<std::byte>(byte));
}

void appendInterface(
    Data& data, unsigned number, std::initializer_list<unsigned> kind, unsigned packetSize)
{
    append(data, { 9, Interface, number, 0, 2 });
    append(data, kind);
    append(data, { 0 });
    // One bulk endpoint each way, the device's input after its output as on phones.
    append(data, { 7, Endpoint, 0x02 + 2 * number, 2, packetSize & 0xff, packetSize >> 8, 0 });
    append(data, { 7, Endpoint, 0x83 + 2 * number, 2, packetSize & 0xff, packetSize >> 8, 0 });
}

Data configuration(const SimulatedDevice& device, unsigned number)
{
    const unsigned packetSize = isSuperSpeed(device) ? 1024 : 512;
    const bool hasMultiplexer = number >= kFirstWithMultiplexer;
    Data interfaces;
    appendInterface(interfaces, 0, { 6, 1, 1 }, packetSize); // still images
    if (hasMultiplexer)
        appendInterface(interfaces, 1, { 255, 254, 2 }, packetSize);
    const auto length = static_cast<unsigned>(9 + interfaces.size());
    Data data;
    append(data,
        { 9, Configuration, length & 0xff, length >> 8, hasMultiplexer ? 2u : 1u, number, 0, 0xc0,
            250 });
    data.insert(data.end(), interfaces.begin(), interfaces.end());
    return data;
}

Data stringDescriptor(std::string_view text)
{
    Data data;
    append(data, { static_cast<unsigned>(2 + 2 * text.size()), String });
    for (const char character : text)
        append(data, { static_cast<unsigned char>(character), 0 });
    return data;
}

/// On the bus an identifier has no hyphen.
std::string busSerialNumber(const SimulatedDevice& device)
{
    std::string serial = device.udid();
    std::erase(serial, '-');
    return serial;
}

std::optional<Data> answerString(const SimulatedDevice& device, unsigned index)
{
    switch (index) {
    case Languages: {
        Data languages;
        append(languages, { 4, String, 0x09, 0x04 });
        return languages;
    }
    case Manufacturer:
        return stringDescriptor("Apple Inc.");
    case Product:
        return stringDescriptor(device.text("DeviceClass"));
    case SerialNumber:
        return stringDescriptor(busSerialNumber(device));
    default:
        return std::nullopt;
    }
}

} // namespace

Data usbDescriptors(const SimulatedDevice& device)
{
    const auto product = static_cast<unsigned>(device.productId());
    const unsigned release = isSuperSpeed(device) ? 3 : 2;
    Data data;
    append(data,
        { 18, Device, 0, release, 0, 0, 0, 64, 0xac, 0x05, product & 0xff, product >> 8, 0, 0x16,
            Manufacturer, Product, SerialNumber, kConfigurations });
    for (unsigned number = 1; number <= kConfigurations; ++number) {
        const Data next = configuration(device, number);
        data.insert(data.end(), next.begin(), next.end());
    }
    return data;
}

std::optional<Data> answerControl(const SimulatedDevice& device, std::span<const std::byte> setup)
{
    constexpr unsigned kGetDescriptor = 6;
    constexpr unsigned kVendorRead = 0xc0;
    constexpr unsigned kVendorWrite = 0x40;
    constexpr unsigned kGetMode = 0x45;
    constexpr unsigned kSetMode = 0x52;
    if (setup.size() < 8)
        return std::nullopt;
    const auto type = std::to_integer<unsigned>(setup[0]);
    const auto request = std::to_integer<unsigned>(setup[1]);
    if (type == 0x80 && request == kGetDescriptor && std::to_integer<unsigned>(setup[3]) == String)
        return answerString(device, std::to_integer<unsigned>(setup[2]));
    // Daemons after Debian 13's ask for the mode first; this device has the ordinary one.
    if (type == kVendorRead && request == kGetMode) {
        Data mode;
        append(mode, { 3, 3, 3, 0 });
        return mode;
    }
    if ((type == kVendorRead || type == kVendorWrite) && request == kSetMode) {
        Data done;
        append(done, { 0 });
        return done;
    }
    return std::nullopt;
}

} // namespace tdw::simulator
