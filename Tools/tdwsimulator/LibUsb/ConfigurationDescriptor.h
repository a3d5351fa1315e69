#pragma once

#include <libusb.h>

#include <cstdint>
#include <span>

namespace tdw::simulator {

/// Makes libusb's structures of a configuration descriptor as it comes over the wire, interfaces
/// and endpoints included; null where it is cut short. `freeConfiguration` frees all of it.
libusb_config_descriptor* parseConfiguration(std::span<const std::uint8_t> bytes);

void freeConfiguration(libusb_config_descriptor* configuration);

} // namespace tdw::simulator
