#include "LibUsb/ConfigurationDescriptor.h"

#include <cstring>
#include <memory>
#include <vector>

namespace tdw::simulator {

namespace {

/// The structures with their storage. libusb's structure is the first member, so that the pointer
/// which the caller gives back leads here.
struct OwnedConfiguration {
    libusb_config_descriptor descriptor {};
    std::vector<libusb_interface> interfaces;
    std::vector<libusb_interface_descriptor> settings;
    std::vector<libusb_endpoint_descriptor> endpoints;
};

template <typename T>
T readPrefix(std::span<const std::uint8_t> bytes, std::size_t size)
{
    T value {};
    std::memcpy(&value, bytes.data(), size);
    return value;
}

/// Sets the pointers once the vectors do not grow any more.
void connect(OwnedConfiguration& owned)
{
    std::size_t endpoint = 0;
    for (std::size_t i = 0; i < owned.settings.size(); ++i) {
        owned.settings[i].endpoint = owned.endpoints.data() + endpoint;
        endpoint += owned.settings[i].bNumEndpoints;
        owned.interfaces.push_back({ &owned.settings[i], 1 });
    }
    owned.descriptor.interface = owned.interfaces.data();
}

} // namespace

libusb_config_descriptor* parseConfiguration(std::span<const std::uint8_t> bytes)
{
    auto owned = std::make_unique<OwnedConfiguration>();
    std::size_t promised = 0;
    while (bytes.size() >= 2 && bytes[0] >= 2 && bytes[0] <= bytes.size()) {
        // The fields of a descriptor stand in the structures as they come, in the order of x86
        // and ARM machines.
        if (bytes[1] == LIBUSB_DT_CONFIG && bytes[0] >= LIBUSB_DT_CONFIG_SIZE)
            owned->descriptor = readPrefix<libusb_config_descriptor>(bytes, LIBUSB_DT_CONFIG_SIZE);
        else if (bytes[1] == LIBUSB_DT_INTERFACE && bytes[0] >= LIBUSB_DT_INTERFACE_SIZE) {
            owned->settings.push_back(
                readPrefix<libusb_interface_descriptor>(bytes, LIBUSB_DT_INTERFACE_SIZE));
            promised += owned->settings.back().bNumEndpoints;
        } else if (bytes[1] == LIBUSB_DT_ENDPOINT && bytes[0] >= LIBUSB_DT_ENDPOINT_SIZE)
            owned->endpoints.push_back(
                readPrefix<libusb_endpoint_descriptor>(bytes, LIBUSB_DT_ENDPOINT_SIZE));
        bytes = bytes.subspan(bytes[0]);
    }
    const bool isWhole = owned->descriptor.bNumInterfaces == owned->settings.size()
        && promised == owned->endpoints.size() && !owned->settings.empty();
    if (!isWhole)
        return nullptr;
    connect(*owned);
    return &owned.release()->descriptor;
}

void freeConfiguration(libusb_config_descriptor* configuration)
{
    delete reinterpret_cast<OwnedConfiguration*>(configuration); // NOLINT: see OwnedConfiguration
}

} // namespace tdw::simulator
